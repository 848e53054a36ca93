// The lease index against a plain map, while it grows and shrinks, and what a lease costs in
// memory.
#include "fsmdc/lease_index.hpp"

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdint>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <random>

#include "fsmdc/lease.h"
#include "fsmdc/lease_list.hpp"

namespace corvane {
namespace {

// Cookies out of a number: many leases share a file, and some a message or a client.
void set_cookies(LeaseRecord& record, std::uint32_t file, std::uint32_t message,
                 std::uint32_t client)
{
    std::memcpy(record.fileCookie, &file, sizeof file);
    std::memcpy(record.messageCookie, &message, sizeof message);
    std::memcpy(record.commCookie, &client, sizeof client);
}

class Index : public ::testing::Test {
protected:
    Index() { index_.clear(); }
    Lease* newest_of(std::uint32_t file) const
    {
        const auto found = files_.find(file);
        return found == files_.end() || found->second.empty() ? nullptr
                                                              : found->second.rbegin()->second;
    }
    void add(std::uint32_t file, std::uint32_t message, std::uint32_t client)
    {
        const std::uint32_t key = next_key_++;
        auto& lease = leases_[key] = std::make_unique<Lease>();
        lease->record.key = key;
        set_cookies(lease->record, file, message, client);
        index_.add(*lease);
        files_[file][key] = lease.get();
    }
    void remove(std::uint32_t key)
    {
        const auto found = leases_.find(key);
        std::uint32_t file = 0;
        std::memcpy(&file, found->second->record.fileCookie, sizeof file);
        EXPECT_EQ(LeaseIndex::has_other_of_file(*found->second), files_[file].size() > 1);
        index_.remove(*found->second);
        files_[file].erase(key);
        leases_.erase(found);
    }
    void check(std::uint32_t key, std::uint32_t file)
    {
        const auto found = leases_.find(key);
        Lease* const wanted = found == leases_.end() ? nullptr : found->second.get();
        ASSERT_EQ(index_.by_key(key), wanted);
        LeaseRecord record{};
        set_cookies(record, file, 0, 0);
        ASSERT_EQ(index_.by_file(record.fileCookie), newest_of(file));
        if (wanted == nullptr) return;
        const LeaseRecord& origin = wanted->record;
        ASSERT_EQ(index_.by_origin(origin.fileCookie, origin.messageCookie, origin.commCookie),
                  wanted);
    }

    // As the service's own, it keeps its tables for good; each test begins with an empty one.
    static inline LeaseIndex index_;
    std::uint32_t next_key_ = 0;
    std::map<std::uint32_t, std::unique_ptr<Lease>> leases_;
    std::map<std::uint32_t, std::map<std::uint32_t, Lease*>> files_;
};

TEST_F(Index, AgreesWithAPlainMapThroughGrowthAndRemoval)
{
    std::mt19937 engine(7);
    const auto random = [&] { return static_cast<std::uint32_t>(engine()); };
    for (std::uint32_t step = 0; step < 40000; ++step) {
        if (random() % 3 != 0 || leases_.empty()) {
            add(random() % 9000, step, random() % 5);
        } else {
            auto lease = leases_.lower_bound(random() % next_key_);
            if (lease == leases_.end()) lease = leases_.begin();
            remove(lease->first);
        }
        check(random() % next_key_, random() % 9000);
    }
    while (!leases_.empty()) remove(leases_.begin()->first);
    check(0, 0);
}

TEST_F(Index, AnotherMessageOrClientIsAnotherOrigin)
{
    add(1, 2, 3);
    LeaseRecord other{};
    set_cookies(other, 1, 2, 4);
    EXPECT_EQ(index_.by_origin(other.fileCookie, other.messageCookie, other.commCookie), nullptr);
    set_cookies(other, 1, 4, 3);
    EXPECT_EQ(index_.by_origin(other.fileCookie, other.messageCookie, other.commCookie), nullptr);
    set_cookies(other, 4, 2, 3);
    EXPECT_EQ(index_.by_origin(other.fileCookie, other.messageCookie, other.commCookie), nullptr);
}

// All that the allocator hands out for a lease, its share of the tables included.
TEST(LeaseMemory, ALiveLeaseTakesAtMost224Bytes)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's allocator says nothing about the real one";
#endif
    constexpr std::uint32_t kLeases = 300000;
    const struct mallinfo2 before = mallinfo2();
    for (std::uint32_t i = 0; i < kLeases; ++i) {
        LeaseRecord cookies{};
        set_cookies(cookies, i, i, i % 100);
        std::uint32_t key = 0;
        ASSERT_EQ(AddLeaseToList(cookies.volumeCookie, cookies.fileCookie, cookies.messageCookie,
                                 cookies.commCookie, 1, 3600000, &key, nullptr),
                  0);
    }
    const struct mallinfo2 after = mallinfo2();
    const std::size_t bytes = after.uordblks + after.hblkhd - before.uordblks - before.hblkhd;
    std::printf("%.1f bytes a lease\n", static_cast<double>(bytes) / kLeases);
    EXPECT_LE(bytes, std::size_t{224} * kLeases);
    reset_leases();
}

}  // namespace
}  // namespace corvane

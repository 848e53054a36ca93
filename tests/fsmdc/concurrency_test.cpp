// Many threads at once on the handlers, the leases and the purge.
#include <sys/time.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "fsmdc/lease_list.hpp"
#include "fsmdc/messages.h"
#include "tests/fsmdc/service_fixture.hpp"

namespace fsmdc_test {
namespace {

// A plug-in that any number of threads may call, and that counts who is locked.
std::atomic<int> g_maps;
std::atomic<int> g_unlocks;

std::uint32_t thread_safe_cookies(const FSUNI* path, void* volume, void* file)
{
    std::memset(volume, 1, 32);
    std::memset(file, 2, 32);
    std::memcpy(file, path, 16);  // "/v/" and the file's number
    return 0;
}
std::uint32_t thread_safe_map(const void*, const void*, std::int64_t, std::int64_t, std::int32_t,
                              void* record, std::uint32_t*)
{
    const std::uint32_t length = 64;
    std::memcpy(static_cast<char*>(record) + 16, &length, sizeof length);
    ++g_maps;
    return 0;
}
std::uint32_t thread_safe_unlock(const void*, const void*)
{
    ++g_unlocks;
    return 0;
}
std::uint32_t thread_safe_sizes(const void*, const void*, std::int32_t, std::int64_t, std::int64_t,
                                std::int64_t)
{
    return 0;
}

class Concurrency : public ServiceTest {
protected:
    Concurrency()
    {
        g_maps = g_unlocks = 0;
        library_.version = 3;
        library_.FS_GetCookies = thread_safe_cookies;
        library_.FS_GetLockedMap = thread_safe_map;
        library_.FS_UnlockMap = thread_safe_unlock;
        library_.FS_SetFileSizes = thread_safe_sizes;
        libs[0] = &library_;
        libs[2] = nullptr;
    }
    FsLibrary library_{};
};

Bytes map_request(int thread, int round, int file)
{
    Bytes message = request(SP_GET_INITIAL_MAP, 2160);
    put32(message, 8, static_cast<std::uint32_t>(thread));
    put32(message, 12, static_cast<std::uint32_t>(round));
    put64(message, 48, -1);
    put64(message, 56, -1);
    put_text(message, 112, "/v");
    put_text(message, 112 + 6, std::to_string(file));
    return message;
}

// One request on a key; returns the result.
std::int32_t ask(std::int32_t code, std::size_t key_at, std::uint32_t key,
                 void* (*handler)(void*, const DgramReplyAddr*) noexcept)
{
    Bytes message = request(code, 92);
    put64(message, 48, -1);
    put64(message, 56, -1);
    put32(message, key_at, key);
    const Reply reply(handler(message.data(), nullptr));
    return get32(reply.get(), 48);
}

TEST_F(Concurrency, EveryFileIsUnlockedOnceItsLeasesAreGone)
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 300;
    std::atomic<bool> stop = false;
    std::thread purger([&] {
        while (!stop) PurgeLeaseList();
    });
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < kRounds; ++round) {
                Bytes message = map_request(t, round, round % 7);
                const Reply reply(SP_LanGetInitialMap(message.data(), sender()));
                ASSERT_EQ(get32(reply.get(), 48), 0);
                const auto key = get<std::uint32_t>(reply.get(), 56);
                EXPECT_EQ(ask(SP_GET_EXTENDED_MAP, 84, key, SP_LanGetExtendedMap), 0);
                EXPECT_EQ(ask(SP_SET_SIZE, 60, key, SP_LanSetSize), 0);
                if (round % 5 == 0) continue;  // this lease stays
                EXPECT_EQ(ask(SP_CLOSE, 56, key, SP_LanClose), 0);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    stop = true;
    purger.join();

    int left = 0;
    std::set<std::string> files;
    while (leaseListHeadGlb.next != &leaseListHeadGlb) {
        const LeaseRecord* const lease = leaseListHeadGlb.next;
        files.insert(hex(lease->fileCookie, 32));
        Bytes cookies(64);
        EXPECT_EQ(RemoveLeaseFromList(lease->key, cookies.data(), cookies.data() + 32, nullptr, ""),
                  0u);
        ++left;
    }
    EXPECT_EQ(left, kThreads * kRounds / 5);
    EXPECT_EQ(files.size(), 7u);
    EXPECT_GE(g_maps.load(), 2 * kThreads * kRounds);
    EXPECT_LE(g_unlocks.load(), kThreads * kRounds - left);
}

TEST_F(Concurrency, KeysAreNeverGivenTwice)
{
    std::mutex lock;
    std::set<std::uint32_t> keys;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 2000; ++i) {
                Bytes file(32);
                put32(file, 0, static_cast<std::uint32_t>(t));
                put32(file, 4, static_cast<std::uint32_t>(i));
                std::uint32_t key = 0;
                ASSERT_EQ(AddLeaseToList(file.data(), file.data(), file.data(), file.data(), 1,
                                         5000, &key, nullptr),
                          0);
                const std::lock_guard guard(lock);
                EXPECT_TRUE(keys.insert(key).second);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(keys.size(), 8000u);
}

// A whole list runs out while requests go on: each lease is dropped once, whoever drops it.
TEST_F(Concurrency, AMassExpiryGoesOnBesideRequests)
{
    constexpr std::uint32_t kLeases = 20000;
    for (std::uint32_t i = 0; i < kLeases; ++i) {
        Bytes file(32);
        put32(file, 0, i);
        ASSERT_EQ(AddLeaseToList(file.data(), file.data(), cookie(1, 16).data(),
                                 cookie(2, 16).data(), 1, 3600000, nullptr, &library_),
                  0);
    }
    {
        const int grabbed = OSL_QuickLockGrab(&leaseListLock, 1);
        EXPECT_EQ(grabbed, 0);
        for (LeaseRecord* lease = leaseListHeadGlb.next; lease != &leaseListHeadGlb;
             lease = lease->next) {
            lease->duration = 0xFFFFFFFF - 29999;  // plus the grace: nothing
        }
        EXPECT_EQ(OSL_QuickLockRelease(&leaseListLock), 0);
    }
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t) {
        threads.emplace_back([] { EXPECT_EQ(PurgeLeaseList(), 0); });
        threads.emplace_back([&, t] {
            for (int i = 0; i < 500; ++i) {
                Bytes message = map_request(t, i, 1000 + t);
                const Reply reply(SP_LanGetInitialMap(message.data(), sender()));
                const auto key = get<std::uint32_t>(reply.get(), 56);
                EXPECT_EQ(ask(SP_CLOSE, 56, key, SP_LanClose), 0);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(PurgeLeaseList(), 0);
    EXPECT_EQ(leaseListHeadGlb.next, &leaseListHeadGlb);
    EXPECT_EQ(g_unlocks.load(), static_cast<int>(kLeases) + 1000);
}

TEST_F(Concurrency, VolumesAreFoundWhileOthersAreAdded)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (std::uint32_t i = 0; i < 3000; ++i) {
                Bytes volume(32);
                put32(volume, 0, i);
                ASSERT_EQ(AddVolumeDispatcherToList(volume.data(), &library_), 0u);
                ASSERT_EQ(GetLibrary(volume.data()), &library_);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    std::size_t nodes = 0;
    for (const VolumeDispatcher* node = dispatchListHeadGlb.next; node != &dispatchListHeadGlb;
         node = node->next) {
        ++nodes;
    }
    EXPECT_EQ(nodes, 3000u);
}

}  // namespace
}  // namespace fsmdc_test

// The index beside the list says what a walk of the list would say, whoever made the list.
#include "lan/tracker_list.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>

#include "tests/lan/server_fixture.hpp"
#include "tests/lan/trace_capture.hpp"

namespace {

using lan_test::Bytes;
using lan_test::native;
using lan_test::Reply;
using lan_test::sender;
using lan_test::TraceCapture;
using testing::ElementsAre;

Bytes numbered(std::uint32_t number)
{
    Bytes message = native({});
    lan_test::put_le32(message, lan_test::kIdentifier, number);
    return message;
}

class TrackerIndexTest : public lan_test::ServerTest {
protected:
    [[nodiscard]] const LanTracker* walk(const Bytes& message, const DgramReplyAddr& from) const
    {
        for (const LanTracker* entry : entries()) {
            const auto* header = static_cast<const unsigned char*>(entry->header);
            if (std::memcmp(header + 8, message.data() + 8, 16) == 0 &&
                std::memcmp(entry->comm_cookie, &from, 16) == 0) {
                return entry;
            }
        }
        return nullptr;
    }
    [[nodiscard]] const LanTracker* find(const Bytes& message, const DgramReplyAddr& from)
    {
        return corvane::TrackerList(*server_).find({message.data(), &from},
                                                   corvane::OtherSenders::kPassOver);
    }
};

// A thousand random steps over few identifiers and senders, so that everything collides.
TEST_F(TrackerIndexTest, AgreesWithAWalkAfterEveryStep)
{
    std::minstd_rand random(7);  // the same steps in every run
    MaxTrack = 20;
    for (int step = 0; step < 1000; ++step) {
        const Bytes message = numbered(static_cast<std::uint32_t>(random() % 40));
        const DgramReplyAddr from = sender(static_cast<std::uint16_t>(4000 + random() % 3));
        if (random() % 2 == 0) {
            LAN_RegisterInProcess(server_, &from, message.data());
        } else {
            LAN_RegisterComplete(server_, &from, message.data(), message.data());
        }
        PurgeTrackerList(server_);

        ASSERT_EQ(find(message, from), walk(message, from)) << "step " << step;
        ASSERT_NE(server_->index, nullptr);
        const auto all = entries();
        const auto oldest = std::find_if(all.begin(), all.end(),
                                         [](const LanTracker* entry) { return entry->reply; });
        ASSERT_EQ(corvane::TrackerList(*server_).oldest_complete(),
                  oldest == all.end() ? nullptr : *oldest)
            << "step " << step;
    }
}

// More entries than the first buckets: nothing is lost while the index grows.
TEST_F(TrackerIndexTest, GrowsWithoutLosingAnEntry)
{
    constexpr std::uint32_t kCount = 5000;
    MaxTrack = -1;
    const DgramReplyAddr from = sender(4000);
    const DgramReplyAddr other = sender(4001);
    for (std::uint32_t i = 0; i < kCount; ++i) {
        LAN_RegisterInProcess(server_, &from, numbered(i).data());
        if (i % 7 == 0) LAN_RegisterInProcess(server_, &other, numbered(i).data());
    }

    const auto all = entries();
    for (const LanTracker* entry : all) {
        const auto number = lan_test::get_le32(entry->header, lan_test::kIdentifier);
        const bool is_other = entry->comm_cookie[7] == (4001 & 0xFF);
        ASSERT_EQ(find(numbered(number), is_other ? other : from), entry);
    }
    EXPECT_EQ(all.size(), kCount + (kCount + 6) / 7);
}

// The oldest of several entries with one identifier is met first, also after the index has grown.
TEST_F(TrackerIndexTest, OtherSendersAreToldOfInListOrder)
{
    for (std::uint16_t port = 4000; port < 4005; ++port) {
        const DgramReplyAddr from = sender(port);
        LAN_RegisterInProcess(server_, &from, native({}).data());
    }
    for (std::uint32_t i = 0; i < 1000; ++i) {
        const DgramReplyAddr from = sender(4000);
        LAN_RegisterInProcess(server_, &from, numbered(i).data());
    }
    const TraceCapture trace;

    for (std::uint16_t port = 4000; port < 4005; ++port) {
        trace.clear();
        const DgramReplyAddr from = sender(port);
        std::int32_t is_duplicate = 0;
        LAN_HandleDuplicate(server_, &from, native({}).data(), &is_duplicate);
        EXPECT_EQ(is_duplicate, 1);
        EXPECT_EQ(trace.lines().size(), port - 4000U);
    }
}

// An entry that somebody else linked is found, and purged, like any other.
TEST_F(TrackerIndexTest, EntriesOfOtherHandsAreFoundAndPurged)
{
    const DgramReplyAddr from = sender(4000);
    const DgramReplyAddr stranger = sender(4001);
    LAN_RegisterInProcess(server_, &from, numbered(1).data());
    auto* const foreign = static_cast<LanTracker*>(OSL_Calloc(sizeof(LanTracker), 0));
    auto* const headless = static_cast<LanTracker*>(OSL_Calloc(sizeof(LanTracker), 0));
    std::memcpy(foreign->comm_cookie, &stranger, 16);
    foreign->header = LAN_MakeHeaderCopy(numbered(2).data());
    for (LanTracker* entry : {headless, foreign}) {
        entry->next = &server_->head;
        entry->prev = server_->head.prev;
        server_->head.prev->next = entry;
        server_->head.prev = entry;
    }

    EXPECT_EQ(HeaderInList(server_, &stranger, numbered(2).data()), 1);
    EXPECT_EQ(HeaderInList(server_, &from, numbered(1).data()), 1);
    LAN_RegisterInProcess(server_, &from, numbered(3).data());
    LAN_RegisterComplete(server_, &stranger, numbered(2).data(), numbered(2).data());
    LAN_RegisterComplete(server_, &from, numbered(3).data(), numbered(3).data());
    EXPECT_EQ(complete_entries(), 2U);
    MaxTrack = 1;
    PurgeTrackerList(server_);

    EXPECT_EQ(complete_entries(), 0U);
    EXPECT_EQ(server_->completed, 0U);
    EXPECT_EQ(entries().size(), 2U);
}

// A server that was set up by hand has no index at all.
TEST(TrackerWithoutIndex, ServesAServerMadeByHand)
{
    TrackMessages = 1;
    MaxTrack = 2;
    LanServer server{};
    server.head.next = server.head.prev = &server.head;
    OSL_QuickLockCreate(&server.lock, nullptr, 0);
    const DgramReplyAddr from = sender(4000);
    for (std::uint32_t i = 0; i < 5; ++i) {
        Bytes message = numbered(i);
        const Reply first(LAN_ProcessMessage(message.data(), 48, &server, &from));
        EXPECT_EQ(lan_test::get_le32(first.get(), lan_test::kResult), 8U);
    }

    EXPECT_EQ(server.completed, 1U);
    ASSERT_NE(server.head.next, &server.head);
    EXPECT_EQ(server.head.next->next, &server.head);
    EXPECT_EQ(lan_test::get_le32(server.head.next->header, lan_test::kIdentifier), 4U);
    lan_test::free_entries(server);
    OSL_QuickLockDispose(&server.lock);
    MaxTrack = 100;
}

}  // namespace

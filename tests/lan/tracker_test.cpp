// Duplicate tracking as a sender sees it, and as the list shows it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "lan/server.h"
#include "tests/lan/trace_capture.hpp"
#include "tests/lan/tracking_fixture.hpp"

namespace lan_test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

constexpr const char* kFound = "Found duplicate message\n";
constexpr const char* kDropping = "Dropping duplicate message\n";
constexpr const char* kOthers = "Duplicate message ids from different senders.\n";

TEST_F(Tracking, DuplicateIsAnsweredFromTheStoredReply)
{
    const Reply first = process(native({}));
    const TraceCapture trace;

    const Reply second = process(native({}));

    EXPECT_EQ(g_calls, 1);
    EXPECT_EQ(hex(bytes_of(second)), hex(bytes_of(first)));
    EXPECT_NE(first.get(), second.get());
    EXPECT_EQ(numDupsRepliedTo, 1);
    EXPECT_EQ(numDupsDropped, 0);
    EXPECT_THAT(trace.lines(), ElementsAre("LANSERVER: received message\n", kFound, kFound));
    EXPECT_EQ(entries().size(), 1U);
}

TEST_F(Tracking, DuplicateInProcessIsDroppedUntilTheFirstIsDone)
{
    Reply during;
    std::vector<std::string> lines;
    g_inside = [&] {
        const TraceCapture trace;
        during = process(native({}));
        lines = trace.lines();
    };

    const Reply first = process(native({}));
    const Reply later = process(native({}));

    EXPECT_EQ(during, nullptr);
    EXPECT_THAT(lines, ElementsAre("LANSERVER: received message\n", kDropping));
    EXPECT_EQ(numDupsDropped, 1);
    EXPECT_EQ(numDupsRepliedTo, 1);
    EXPECT_EQ(g_calls, 1);
    EXPECT_EQ(hex(bytes_of(later)), hex(bytes_of(first)));
}

// Same identifier, other sender: another port, another host, another listening socket.
TEST_F(Tracking, SameIdentifierOfAnotherSenderIsExecuted)
{
    DgramReplyAddr other_socket = sender(4000);
    other_socket.socket = 6;
    process(native({}), sender(4000));
    const TraceCapture trace;

    const Reply port = process(native({}), sender(4001));
    EXPECT_EQ(trace.count(kOthers), 1U);
    const Reply host = process(native({}), sender(4000, 0x0A000002));
    EXPECT_EQ(trace.count(kOthers), 3U);
    const Reply socket = process(native({}), other_socket);
    EXPECT_EQ(trace.count(kOthers), 6U);

    EXPECT_EQ(g_calls, 4);
    EXPECT_EQ(entries().size(), 4U);
    EXPECT_EQ(numDupsRepliedTo, 0);
    EXPECT_EQ(get_le32(socket.get(), 48), 4U);
}

// Only entries older than the match are told of.
TEST_F(Tracking, WalkEndsAtTheMatch)
{
    for (std::uint16_t port = 4000; port < 4003; ++port) process(native({}), sender(port));
    const TraceCapture trace;

    process(native({}), sender(4000));
    EXPECT_THAT(trace.lines(), Not(Contains(kOthers)));
    process(native({}), sender(4001));
    EXPECT_EQ(trace.count(kOthers), 1U);
    process(native({}), sender(4002));
    EXPECT_EQ(trace.count(kOthers), 3U);

    EXPECT_EQ(g_calls, 3);
    EXPECT_EQ(numDupsRepliedTo, 3);
}

// The last 4 bytes of the sender's record do not count.
TEST_F(Tracking, SenderIsSixteenBytes)
{
    DgramReplyAddr beyond = sender(4000);
    beyond.sender.sin_zero[4] = 9;
    DgramReplyAddr within = sender(4000);
    within.sender.sin_zero[3] = 9;
    process(native({}), sender(4000));

    process(native({}), beyond);
    EXPECT_EQ(g_calls, 1);
    process(native({}), within);
    EXPECT_EQ(g_calls, 2);
}

TEST_F(Tracking, EveryByteOfTheIdentifierCounts)
{
    for (std::size_t i = 0; i < 16; ++i) {
        Bytes message = native({});
        message[kIdentifier + i] ^= 0x80;
        process(message);
    }
    process(native({}));

    EXPECT_EQ(g_calls, 17);
}

TEST_F(Tracking, WithoutTheFlagNothingIsTracked)
{
    process(native({.flags = 0}));
    process(native({.flags = 0xFFFFFFFE}));

    EXPECT_EQ(g_calls, 2);
    EXPECT_TRUE(entries().empty());
    EXPECT_EQ(server_->completed, 0U);
}

// An untracked copy of a tracked request is executed: it does not ask for the check.
TEST_F(Tracking, UntrackedCopyIsExecutedAgain)
{
    process(native({.flags = 1}));
    process(native({.flags = 2}));

    EXPECT_EQ(g_calls, 2);
    EXPECT_EQ(server_->completed, 1U);
}

TEST_F(Tracking, OffMeansEveryDuplicateIsExecuted)
{
    TrackMessages = 0;

    for (int i = 0; i < 3; ++i) process(native({}));

    EXPECT_EQ(g_calls, 3);
    EXPECT_TRUE(entries().empty());
    EXPECT_EQ(numDupsRepliedTo, 0);
    EXPECT_EQ(numDupsDropped, 0);
}

TEST_F(Tracking, RequestWithoutReplyStaysInProcessForGood)
{
    MaxTrack = 0;

    EXPECT_EQ(process(native({.code = 2})), nullptr);
    EXPECT_EQ(process(native({.code = 2})), nullptr);
    complete(3);

    EXPECT_EQ(g_calls, 4);
    EXPECT_EQ(numDupsDropped, 1);
    EXPECT_THAT(listed(), ElementsAre(0x40));
    EXPECT_EQ(server_->completed, 0U);
}

TEST_F(Tracking, EntryHoldsSenderHeaderAndReply)
{
    const DgramReplyAddr from = sender(4007);
    const Reply reply = process(native({.identifier = 0x33, .length = 60}, 60), from);

    ASSERT_EQ(entries().size(), 1U);
    const LanTracker& entry = *entries()[0];
    EXPECT_EQ(hex(entry.comm_cookie, 16), "05000000 02000fa7 0a000001 00000000");
    EXPECT_EQ(hex(entry.header, 48), hex(native({.identifier = 0x33, .length = 60})));
    EXPECT_EQ(hex(entry.reply, 52), hex(bytes_of(reply)));
    EXPECT_NE(entry.reply, reply.get());
}

TEST_F(Tracking, HandleDuplicateReportsAndCopies)
{
    const Bytes message = native({});
    const DgramReplyAddr from = sender(4000);
    std::int32_t is_duplicate = 7;
    EXPECT_EQ(LAN_HandleDuplicate(server_, &from, message.data(), &is_duplicate), nullptr);
    EXPECT_EQ(is_duplicate, 0);

    LAN_RegisterInProcess(server_, &from, message.data());
    EXPECT_EQ(LAN_HandleDuplicate(server_, &from, message.data(), &is_duplicate), nullptr);
    EXPECT_EQ(is_duplicate, 1);
    EXPECT_EQ(numDupsRepliedTo, 0);

    const Bytes stored = native({.code = -1, .length = 56}, 56);
    LAN_RegisterComplete(server_, &from, message.data(), stored.data());
    const Reply copy(LAN_HandleDuplicate(server_, &from, message.data(), &is_duplicate));
    EXPECT_EQ(is_duplicate, 1);
    EXPECT_EQ(hex(bytes_of(copy)), hex(stored));
    EXPECT_EQ(numDupsRepliedTo, 1);

    const Bytes untracked = native({.flags = 0});
    EXPECT_EQ(LAN_HandleDuplicate(server_, &from, untracked.data(), &is_duplicate), nullptr);
    EXPECT_EQ(is_duplicate, 0);
}

TEST_F(Tracking, RegisteringTwiceListsOnce)
{
    const Bytes message = native({});
    const DgramReplyAddr from = sender(4000);
    EXPECT_EQ(HeaderInList(server_, &from, message.data()), 0);

    LAN_RegisterInProcess(server_, &from, message.data());
    LAN_RegisterInProcess(server_, &from, message.data());

    EXPECT_EQ(HeaderInList(server_, &from, message.data()), 1);
    const DgramReplyAddr other = sender(4001);
    EXPECT_EQ(HeaderInList(server_, &other, message.data()), 0);
    EXPECT_EQ(entries().size(), 1U);
    EXPECT_EQ(server_->completed, 0U);
}

// A second reply replaces the first, and is counted all the same.
TEST_F(Tracking, SecondReplyReplacesAndCounts)
{
    const Bytes message = native({});
    const DgramReplyAddr from = sender(4000);
    const Bytes first = native({.code = -1, .length = 52}, 52);
    const Bytes second = native({.code = -2, .length = 64}, 64);
    LAN_RegisterInProcess(server_, &from, message.data());

    LAN_RegisterComplete(server_, &from, message.data(), first.data());
    LAN_RegisterComplete(server_, &from, message.data(), second.data());

    ASSERT_EQ(entries().size(), 1U);
    EXPECT_EQ(hex(entries()[0]->reply, 64), hex(second));
    EXPECT_EQ(server_->completed, 2U);
    MaxTrack = 1;
    PurgeTrackerList(server_);
    EXPECT_TRUE(entries().empty());
    EXPECT_EQ(server_->completed, 1U);
}

TEST_F(Tracking, CompletingNeedsAllItsArguments)
{
    const Bytes message = native({});
    const DgramReplyAddr from = sender(4000);
    LAN_RegisterInProcess(server_, &from, message.data());

    LAN_RegisterComplete(nullptr, &from, message.data(), message.data());
    LAN_RegisterComplete(server_, nullptr, message.data(), message.data());
    LAN_RegisterComplete(server_, &from, nullptr, message.data());
    LAN_RegisterComplete(server_, &from, message.data(), nullptr);
    const Bytes unlisted = native({.identifier = 1});
    LAN_RegisterComplete(server_, &from, unlisted.data(), message.data());

    EXPECT_EQ(server_->completed, 0U);
    EXPECT_EQ(complete_entries(), 0U);
}

// A reply that lies about its length is not read beyond its header, nor copied when nothing could
// send it.
TEST(MessageCopy, NeverBelievesAbsurdLengths)
{
    for (const std::uint32_t length : {0U, 31U, 47U, 48U}) {
        const Bytes message = native({.length = length});
        const Reply copy(LAN_MakeMessageCopy(message.data()));
        ASSERT_TRUE(copy);
        EXPECT_EQ(hex(copy.get(), 48), hex(message)) << length;
    }
    for (const std::uint32_t length : {65'508U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        const Bytes message = native({.length = length});
        EXPECT_EQ(Reply(LAN_MakeMessageCopy(message.data())), nullptr) << length;
    }
    const Bytes longest = native({.length = 65'507}, 65'507);
    EXPECT_EQ(bytes_of(Reply(LAN_MakeMessageCopy(longest.data()))), longest);
}

TEST(MessageCopy, OfNothingIsNothing)
{
    EXPECT_EQ(LAN_MakeHeaderCopy(nullptr), nullptr);
    EXPECT_EQ(LAN_MakeMessageCopy(nullptr), nullptr);
}

TEST(MessageCopy, HeaderCopyIsFortyEightBytes)
{
    const Bytes message = native({.length = 60}, 60);

    const Reply copy(LAN_MakeHeaderCopy(message.data()));

    EXPECT_EQ(hex(copy.get(), 48), hex(message.data(), 48));
}

TEST_F(Tracking, UnsendableReplyLeavesTheRequestUntracked)
{
    LAN_RegisterMessageHandler(server_, 3, [](void* request, const DgramReplyAddr*) -> void* {
        ++g_calls;
        Bytes reply(48);
        std::memcpy(reply.data(), request, 48);
        put_le32(reply, kLength, 0xFFFFFFFF);
        void* const made = OSL_Malloc(48, 0);
        std::memcpy(made, reply.data(), 48);
        return made;
    });

    EXPECT_NE(process(native({.code = 3})), nullptr);
    EXPECT_NE(process(native({.code = 3})), nullptr);

    EXPECT_EQ(g_calls, 2);
    EXPECT_TRUE(entries().empty());
    EXPECT_EQ(server_->completed, 0U);
}

TEST(CookieCompare, LooksAtSixteenBytes)
{
    Bytes a(17, 1);
    Bytes b(17, 1);
    b[16] = 2;
    EXPECT_EQ(LAN_CompareCommCookies(a.data(), b.data()), 0);
    EXPECT_EQ(LAN_CompareMessageCookies(a.data(), b.data()), 0);
    b[15] = 0;
    EXPECT_EQ(LAN_CompareCommCookies(a.data(), b.data()), 1);
    EXPECT_EQ(LAN_CompareCommCookies(b.data(), a.data()), 1);
    EXPECT_EQ(LAN_CompareMessageCookies(a.data(), b.data()), 1);
}

TEST(CookieCompare, HeadersByTheirIdentifierOnly)
{
    const Bytes base = native({});
    Bytes other = native({.code = 9, .length = 99, .flags = 0});
    EXPECT_EQ(CompareHeaderId(base.data(), other.data()), 0);
    other[7] ^= 1;
    other[24] ^= 1;
    EXPECT_EQ(CompareHeaderId(base.data(), other.data()), 0);
    other[8] ^= 1;
    EXPECT_EQ(CompareHeaderId(base.data(), other.data()), 1);
    other[8] ^= 1;
    other[23] ^= 1;
    EXPECT_EQ(CompareHeaderId(base.data(), other.data()), 1);
}

TEST_F(Tracking, InfoDumpTracesBothCounters)
{
    numDupsRepliedTo = 12;
    numDupsDropped = 34;
    const TraceCapture trace;

    LAN_DumpInfo();

    EXPECT_THAT(trace.lines(), ElementsAre("Number of duplicate messages responded to: 12\n",
                                           "Number of duplicate messages dropped:      34\n"));
}

TEST_F(Tracking, ListDumpTracesEveryHeader)
{
    complete(2, 1);
    const TraceCapture trace;

    DumpTrackerList(5, server_);

    ASSERT_EQ(trace.lines().size(), 10U);
    EXPECT_EQ(trace.lines()[0], "functionCode 1\n");
    EXPECT_EQ(trace.lines()[2], "messageID 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 1\n");
    EXPECT_EQ(trace.lines()[7], "messageID 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11\n");
}

}  // namespace
}  // namespace lan_test

// From a message to its reply: settings, registration, header checks, dispatch.
#include "lan/server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <climits>
#include <cstring>
#include <optional>
#include <string>

#include "tests/lan/server_fixture.hpp"
#include "tests/lan/trace_capture.hpp"

namespace {

using lan_test::Bytes;
using lan_test::bytes_of;
using lan_test::hex;
using lan_test::native;
using lan_test::Reply;
using lan_test::sender;
using lan_test::TraceCapture;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

// What the handler was called with last.
struct Call {
    Bytes request;
    const DgramReplyAddr* sender = nullptr;
};
std::optional<Call> g_call;

void* reply_of(const void* request, std::uint32_t length)
{
    Bytes reply(length);
    std::memcpy(reply.data(), request, 48);
    lan_test::put_le32(reply, lan_test::kLength, length);
    void* const made = OSL_Malloc(length, 0);
    std::memcpy(made, reply.data(), length);
    return made;
}

void* recording_handler(void* request, const DgramReplyAddr* from)
{
    const auto* bytes = static_cast<const unsigned char*>(request);
    g_call = Call{Bytes(bytes, bytes + LAN_REQUEST_ROOM), from};
    return reply_of(request, 56);
}

class LanServerTest : public lan_test::ServerTest {
protected:
    void SetUp() override
    {
        ServerTest::SetUp();
        g_call.reset();
        server_->request_room = LAN_REQUEST_ROOM;  // as the recording handler reads it
        ASSERT_EQ(LAN_RegisterMessageHandler(server_, 3, recording_handler), 0U);
    }
};

TEST_F(LanServerTest, StartsEmpty)
{
    EXPECT_TRUE(entries().empty());
    EXPECT_EQ(server_->completed, 0U);
    EXPECT_EQ(server_->compare_addresses, nullptr);
    for (int code = 0; code < 100; ++code) {
        EXPECT_EQ(server_->handlers[code] != nullptr, code == 3);
    }
}

struct SettingRow {
    const char* name;
    const char* track;
    const char* most;
    std::int32_t track_value;
    std::int32_t most_value;
    const char* line;
};
class LanSettings : public testing::TestWithParam<SettingRow> {};

TEST_P(LanSettings, ComeFromTheEnvironment)
{
    const SettingRow& row = GetParam();
    TrackMessages = 1;
    MaxTrack = 100;
    if (row.track != nullptr) setenv("TRACK_MESSAGES", row.track, 1);
    if (row.most != nullptr) setenv("MAX_TRACKED_MESSAGES", row.most, 1);
    LanServer* server = nullptr;
    const TraceCapture trace;

    EXPECT_EQ(LAN_InitServer(&server), 0U);

    EXPECT_EQ(TrackMessages, row.track_value);
    EXPECT_EQ(MaxTrack, row.most_value);
    EXPECT_THAT(trace.lines(), ElementsAre(row.line));
    unsetenv("TRACK_MESSAGES");
    unsetenv("MAX_TRACKED_MESSAGES");
    lan_test::free_server(server);
}

constexpr const char* kDisabled = "Tracking messages for duplicate detection is DISABLED.\n";
INSTANTIATE_TEST_SUITE_P(
    Table, LanSettings,
    testing::Values(SettingRow{"unset", nullptr, nullptr, 1, 100,
                               "Tracking 100 messages for duplicate detection.\n"},
                    SettingRow{"limit", nullptr, "7", 1, 7,
                               "Tracking 7 messages for duplicate detection.\n"},
                    SettingRow{"negative", "-1", "-7", -1, -7,
                               "Tracking -7 messages for duplicate detection.\n"},
                    SettingRow{"off", "0", "5", 0, 5, kDisabled},
                    SettingRow{"empty", "", nullptr, 0, 100, kDisabled},
                    SettingRow{"word", "yes", nullptr, 0, 100, kDisabled},
                    SettingRow{"prefix", "2x", "9 or so", 2, 9,
                               "Tracking 9 messages for duplicate detection.\n"}),
    [](const auto& row) { return row.param.name; });

TEST(LanEnvironment, IntegersAreReadAsAtoiReadsThem)
{
    setenv("CORVANE_TEST_NUMBER", " \t-12rest", 1);
    EXPECT_EQ(getEnvInt("CORVANE_TEST_NUMBER", 3), -12);
    setenv("CORVANE_TEST_NUMBER", "rest", 1);
    EXPECT_EQ(getEnvInt("CORVANE_TEST_NUMBER", 3), 0);
    unsetenv("CORVANE_TEST_NUMBER");
    EXPECT_EQ(getEnvInt("CORVANE_TEST_NUMBER", 3), 3);
}

TEST_F(LanServerTest, RegistersCodesFromZeroToNinetyNine)
{
    EXPECT_EQ(LAN_RegisterMessageHandler(server_, 0, recording_handler), 0U);
    EXPECT_EQ(LAN_RegisterMessageHandler(server_, 99, recording_handler), 0U);
    EXPECT_EQ(LAN_RegisterMessageHandler(server_, 100, recording_handler), 1U);
    EXPECT_EQ(LAN_RegisterMessageHandler(server_, INT_MAX, recording_handler), 1U);
    EXPECT_EQ(LAN_RegisterMessageHandler(server_, -1, recording_handler), 1U);
    EXPECT_EQ(LAN_RegisterMessageHandler(server_, INT_MIN, recording_handler), 1U);

    process(native({.code = 0}));
    EXPECT_TRUE(g_call);
    g_call.reset();
    process(native({.code = 99, .identifier = 1}));
    EXPECT_TRUE(g_call);
}

TEST_F(LanServerTest, LaterRegistrationReplacesTheEarlier)
{
    const LanHandler silent = [](void*, const DgramReplyAddr*) -> void* { return nullptr; };

    EXPECT_EQ(LAN_RegisterMessageHandler(server_, 3, silent), 0U);

    EXPECT_EQ(process(native({.code = 3})), nullptr);
    EXPECT_FALSE(g_call);
}

TEST_F(LanServerTest, HandlerGetsMessageAndSender)
{
    const DgramReplyAddr from = sender(4001);
    const TraceCapture trace;

    const Reply reply = process(native({.code = 3, .length = 60}, 60), from);

    ASSERT_TRUE(g_call);
    Bytes expected = native({.code = 3, .length = 60}, 60);
    expected.resize(LAN_REQUEST_ROOM);
    EXPECT_EQ(hex(g_call->request), hex(expected));
    EXPECT_EQ(g_call->sender, &from);
    EXPECT_EQ(lan_test::get_le32(reply.get(), lan_test::kLength), 56U);
    EXPECT_THAT(trace.lines(), ElementsAre("LANSERVER: received message\n"));
}

// The handler sees a foreign header in this machine's order, and the body as it came.
TEST_F(LanServerTest, ForeignHeaderIsTranslatedForHandlerAndCaller)
{
    Bytes message = native({.code = 3, .length = 60}, 60);
    lan_test::put_be32(message, 0, 1);
    lan_test::put_be32(message, 4, 7);
    lan_test::put_be32(message, 24, 3);
    lan_test::put_be32(message, 28, 60);
    lan_test::put_be32(message, 32, 1);
    const DgramReplyAddr from = sender(4001);

    const Reply reply(LAN_ProcessMessage(message.data(), 60, server_, &from));

    Bytes expected = native({.code = 3, .length = 60}, 60);
    lan_test::put_be32(expected, 0, 1);
    std::swap(expected[42], expected[43]);
    ASSERT_TRUE(g_call);
    EXPECT_EQ(hex(g_call->request.data(), 60), hex(expected));
    EXPECT_EQ(hex(message), hex(expected));
}

class LanMessageSize : public LanServerTest, public testing::WithParamInterface<std::size_t> {};

// Whatever the size: the handler reads zeros where the message ends, and nothing outside the
// caller's bytes is touched (the message lies right before a page that nobody may touch).
TEST_P(LanMessageSize, MissingBytesReadAsZeros)
{
    const std::size_t size = GetParam();
    constexpr std::size_t kArea = 8192;
    auto* const area = static_cast<unsigned char*>(
        mmap(nullptr, kArea, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(area, MAP_FAILED);
    ASSERT_EQ(mprotect(area + kArea / 2, kArea / 2, PROT_NONE), 0);
    unsigned char* const message = area + kArea / 2 - size;
    const Bytes bytes = native({.code = 3, .length = 48}, size);
    std::memcpy(message, bytes.data(), size);
    const DgramReplyAddr from = sender(4001);

    const Reply reply(
        LAN_ProcessMessage(message, static_cast<std::uint32_t>(size), server_, &from));

    ASSERT_TRUE(g_call);
    Bytes expected = bytes;
    expected.resize(LAN_REQUEST_ROOM);
    EXPECT_EQ(hex(g_call->request), hex(expected));
    EXPECT_EQ(hex(message, size), hex(bytes));
    munmap(area, kArea);
}

INSTANTIATE_TEST_SUITE_P(Sizes, LanMessageSize, testing::Values(48, 49, 2303, 2304, 2305, 4000));

// A new server's handlers get the message where it lies, whatever its size.
TEST(LanHandlers, GetTheMessageItselfUnlessTheServerAsksForRoom)
{
    static const void* seen = nullptr;
    LanServer* server = nullptr;
    ASSERT_EQ(LAN_InitServer(&server), 0U);
    const LanHandler look = [](void* request, const DgramReplyAddr*) -> void* {
        seen = request;
        return nullptr;
    };
    LAN_RegisterMessageHandler(server, 3, look);
    const DgramReplyAddr from = sender(4001);
    Bytes message = native({.code = 3, .flags = 0}, 60);

    for (const std::uint32_t size : {20, 48, 60}) {
        seen = nullptr;
        EXPECT_EQ(LAN_ProcessMessage(message.data(), size, server, &from), nullptr);
        EXPECT_EQ(seen, message.data()) << size;
    }

    server->request_room = 60;
    EXPECT_EQ(LAN_ProcessMessage(message.data(), 60, server, &from), nullptr);
    EXPECT_EQ(seen, message.data());
    EXPECT_EQ(LAN_ProcessMessage(message.data(), 59, server, &from), nullptr);
    EXPECT_NE(seen, message.data());
    lan_test::free_server(server);
}

class LanShortMessage : public LanServerTest, public testing::WithParamInterface<std::uint32_t> {};

// The length field counts, not what was received: the header is taken from its 48 bytes even when
// fewer of them came.
TEST_P(LanShortMessage, ThatSaysItHasAHeaderPassesWithAMismatch)
{
    Bytes message = native({.code = 3, .length = 48});
    const DgramReplyAddr from = sender(4001);
    const TraceCapture trace;

    const Reply reply(LAN_ProcessMessage(message.data(), GetParam(), server_, &from));

    ASSERT_TRUE(g_call);
    EXPECT_EQ(hex(g_call->request.data(), 48), hex(message));
    EXPECT_EQ(lan_test::get_le32(reply.get(), lan_test::kLength), 56U);
    EXPECT_THAT(trace.lines(), ElementsAre("LANSERVER: received message\n",
                                           "LANSERVER: header length 48;receive length mismatch " +
                                               std::to_string(GetParam()) + "\n"));
}

TEST_P(LanShortMessage, ThatSaysItHasNoneIsRefused)
{
    Bytes message = native({.code = 3, .length = 47});
    const DgramReplyAddr from = sender(4001);
    const TraceCapture trace;

    const Reply reply(LAN_ProcessMessage(message.data(), GetParam(), server_, &from));

    EXPECT_FALSE(g_call);
    EXPECT_EQ(lan_test::get_le32(reply.get(), lan_test::kResult), 6U);
    EXPECT_THAT(trace.lines(),
                Contains("LANSERVER: invalid message length, min allowed message length 48 length "
                         "received 47\n"));
}

TEST_P(LanShortMessage, OfTheOtherByteOrderIsTurnedRoundWhole)
{
    Bytes message = native({.code = 3});
    for (const std::size_t field : {0, 4, 24, 28, 32}) {
        lan_test::put_be32(message, field, lan_test::get_le32(message.data(), field));
    }
    Bytes expected = native({.code = 3});
    lan_test::put_be32(expected, 0, 1);
    std::swap(expected[42], expected[43]);
    const DgramReplyAddr from = sender(4001);

    const Reply reply(LAN_ProcessMessage(message.data(), GetParam(), server_, &from));

    ASSERT_TRUE(g_call);
    EXPECT_EQ(hex(g_call->request.data(), 48), hex(expected));
    EXPECT_EQ(hex(message), hex(expected));
}

INSTANTIATE_TEST_SUITE_P(Sizes, LanShortMessage, testing::Values(0, 20, 30, 47));

TEST_F(LanServerTest, MismatchIsReportedNotRefused)
{
    const TraceCapture trace;

    const Reply reply = process(native({.code = 3, .length = 61}, 60));

    EXPECT_TRUE(g_call);
    EXPECT_THAT(trace.lines(),
                Contains("LANSERVER: header length 61;receive length mismatch 60\n"));
}

TEST_F(LanServerTest, MoreBytesThanTheHeaderSaysIsNoMismatch)
{
    const TraceCapture trace;

    const Reply reply = process(native({.code = 3, .length = 59}, 60));

    EXPECT_TRUE(g_call);
    EXPECT_THAT(trace.lines(), ElementsAre("LANSERVER: received message\n"));
}

TEST_F(LanServerTest, LengthBelowAHeaderIsAnsweredWithSix)
{
    const TraceCapture trace;

    const Reply reply = process(native({.code = 3, .length = 47}, 100));

    Bytes expected = native({.code = -3, .length = 48});
    lan_test::put_le32(expected, lan_test::kResult, 6);
    EXPECT_EQ(hex(bytes_of(reply)), hex(expected));
    EXPECT_FALSE(g_call);
    EXPECT_TRUE(entries().empty());
    EXPECT_THAT(
        trace.lines(),
        ElementsAre("LANSERVER: received message\n",
                    "LANSERVER: invalid message length, min allowed message length 48 length "
                    "received 47\n"));
}

// The error reply keeps a foreign marker beside fields in this machine's order.
TEST_F(LanServerTest, ErrorReplyKeepsTheMarker)
{
    Bytes message = native({});
    lan_test::put_be32(message, 0, 1);
    lan_test::put_be32(message, 4, 7);
    lan_test::put_be32(message, 24, 50);
    lan_test::put_be32(message, 28, 48);
    lan_test::put_be32(message, 32, 0);

    const Reply reply = process(message);

    EXPECT_EQ(hex(bytes_of(reply)),
              "00000001 07000000 40414243 44454647 48494a4b 4c4d4e4f "
              "ceffffff 30000000 00000000 08000000 c8c9cbca cccdcecf");
}

class LanUnknownCode : public LanServerTest, public testing::WithParamInterface<std::int32_t> {};

TEST_P(LanUnknownCode, IsAnsweredWithEightAndTracked)
{
    const std::int32_t code = GetParam();

    const Reply reply = process(native({.code = code}));

    Bytes expected = native({.length = 48});
    lan_test::put_le32(expected, lan_test::kFunctionCode, 0U - static_cast<std::uint32_t>(code));
    lan_test::put_le32(expected, lan_test::kResult, 8);
    EXPECT_EQ(hex(bytes_of(reply)), hex(expected));
    ASSERT_EQ(entries().size(), 1U);
    EXPECT_EQ(hex(entries()[0]->reply, 48), hex(expected));
}

INSTANTIATE_TEST_SUITE_P(Codes, LanUnknownCode,
                         testing::Values(0, 1, 2, 4, 99, 100, 101, INT_MAX, -1, -3, -100, INT_MIN));

TEST(LanHeaderCheck, TranslatesOnceAndAcceptsFromFortyEightOn)
{
    Bytes message = native({});
    lan_test::put_be32(message, 0, 1);
    lan_test::put_be32(message, 28, 48);

    EXPECT_EQ(ValidateHeader(message.data()), nullptr);
    EXPECT_EQ(lan_test::get_le32(message.data(), 28), 48U);

    Bytes huge = native({.length = 0xFFFFFFFF});
    EXPECT_EQ(ValidateHeader(huge.data()), nullptr);
    Bytes none = native({.length = 0});
    EXPECT_NE(Reply(ValidateHeader(none.data())), nullptr);
}

TEST(LanReply, RepeatsTheRequestAndNegatesItsCode)
{
    const Bytes request = native({.code = 5, .length = 4000, .flags = 0xFFFFFFFF});

    const Reply reply(BuildReply(request.data(), -9));

    Bytes expected = native({.code = -5, .length = 48, .flags = 0xFFFFFFFF});
    lan_test::put_le32(expected, lan_test::kResult, 0xFFFFFFF7);
    EXPECT_EQ(hex(bytes_of(reply)), hex(expected));
}

TEST_F(LanServerTest, MessageAtAnOddAddressIsServed)
{
    Bytes area(200, 0xEE);
    const Bytes message = native({.code = 3, .length = 60}, 60);
    std::memcpy(area.data() + 1, message.data(), message.size());
    const DgramReplyAddr from = sender(4001);

    const Reply reply(LAN_ProcessMessage(area.data() + 1, 60, server_, &from));

    ASSERT_TRUE(g_call);
    EXPECT_EQ(hex(g_call->request.data(), 60), hex(message));
}

}  // namespace

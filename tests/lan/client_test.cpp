// Exchanges with retries: attempts, matching by identifier, buffers, traces.
#include "lan/client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>

#include "tests/lan/message_bytes.hpp"
#include "tests/lan/peer.hpp"
#include "tests/lan/trace_capture.hpp"

namespace {

using lan_test::Bytes;
using lan_test::hex;
using lan_test::native;
using lan_test::Peer;
using lan_test::TraceCapture;
using testing::Contains;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

const Bytes kRequest = native({.identifier = 0x20, .length = 52}, 52);

// Answers request number 0, 1, ... with what `reply_to` gives, until the exchange is over.
class Server {
public:
    explicit Server(std::function<Bytes(int)> reply_to)
        : thread_([this, reply_to = std::move(reply_to)](const std::stop_token& stop) {
              while (!stop.stop_requested()) {
                  const auto request = peer_.receive(/*wait_ms=*/20);
                  if (!request) continue;
                  EXPECT_EQ(hex(*request), hex(kRequest));
                  const Bytes reply = reply_to(requests_++);
                  if (!reply.empty()) peer_.answer(reply);
              }
          })
    {
    }
    [[nodiscard]] std::uint16_t port() const { return peer_.port(); }
    [[nodiscard]] int requests()
    {
        thread_.request_stop();
        if (thread_.joinable()) thread_.join();
        return requests_;
    }

private:
    Peer peer_;
    int requests_ = 0;
    std::jthread thread_;
};

struct Exchange {
    std::uint32_t result = 0;
    std::uint32_t length_bytes = 0;
    Bytes reply;
};

Exchange exchange(std::int32_t port, std::int32_t attempts, std::int32_t timeout_s = 10,
                  std::uint32_t room_bytes = 100)
{
    Exchange done{.length_bytes = room_bytes, .reply = Bytes(room_bytes, 0xEE)};
    done.result =
        LAN_SendAndReceiveWithTimeout("127.0.0.1", port, kRequest.data(), done.reply.data(),
                                      &done.length_bytes, timeout_s, attempts);
    return done;
}

TEST(LanClient, InitTracesAndSucceeds)
{
    const TraceCapture trace;

    EXPECT_EQ(LAN_InitClient(), 0U);

    EXPECT_THAT(trace.lines(), testing::ElementsAre("FTX2012I LAN_InitClient\n"));
}

TEST(LanClient, GivesTheReplyOfTheFirstAttempt)
{
    const Bytes reply = native({.code = -1, .identifier = 0x20, .length = 60}, 60);
    Server server([&](int) { return reply; });
    const TraceCapture trace;

    const Exchange done = exchange(server.port(), 5);

    EXPECT_EQ(done.result, 0U);
    EXPECT_EQ(done.length_bytes, 60U);
    Bytes expected = reply;
    expected.resize(100);  // the rest was zeroed
    EXPECT_EQ(hex(done.reply), hex(expected));
    EXPECT_EQ(server.requests(), 1);
    EXPECT_EQ(trace.lines().front(), "FTX2011I LAN_SendAndReceive:   address:[127.0.0.1] port:" +
                                         std::to_string(server.port()) + " timeout:10\n");
    EXPECT_THAT(trace.lines(), Not(Contains(HasSubstr("retry"))));
}

TEST(LanClient, DefaultsAreTenSecondsAndFiveAttempts)
{
    Server server([](int) { return native({.identifier = 0x70}); });
    Bytes reply(100);
    std::uint32_t length_bytes = 100;
    const TraceCapture trace;

    EXPECT_EQ(LAN_SendAndReceive("127.0.0.1", server.port(), kRequest.data(), reply.data(),
                                 &length_bytes),
              16U);

    EXPECT_EQ(server.requests(), 5);
    EXPECT_THAT(trace.lines().front(), HasSubstr("timeout:10\n"));
}

TEST(LanClient, OnlyTheLowBitsOfThePortCount)
{
    Server server([](int) { return native({.identifier = 0x20}); });

    const Exchange done = exchange(0x7AB0000 | server.port(), 1);

    EXPECT_EQ(done.result, 0U);
}

// Another identifier is another request's reply: every attempt fails, and says so once.
TEST(LanClient, ForeignReplyFailsEveryAttempt)
{
    Server server([](int) { return native({.identifier = 0x21}); });
    const TraceCapture trace;

    const Exchange done = exchange(server.port(), 3);

    EXPECT_EQ(done.result, 16U);
    EXPECT_EQ(server.requests(), 3);
    EXPECT_EQ(trace.count("message id mismatch\n"), 3U);
    const std::string retry =
        " msg = 0x[0-9a-f]+ reply = 0x[0-9a-f]+ result=16 replylen=48 waittime.ms.=[0-9]+ "
        "origReplyLength=100\n";
    EXPECT_THAT(trace.lines(), Contains(MatchesRegex("retry 1" + retry)).Times(1));
    EXPECT_THAT(trace.lines(), Contains(MatchesRegex("retry 2" + retry)).Times(1));
    EXPECT_THAT(trace.lines(), Not(Contains(HasSubstr("retry 3"))));
}

TEST(LanClient, RetryRestoresTheRoomAndClearsTheBuffer)
{
    const Bytes wrong = native({.identifier = 0x21}, 90);
    const Bytes right = native({.identifier = 0x20}, 70);
    Server server([&](int number) { return number == 0 ? wrong : right; });

    const Exchange done = exchange(server.port(), 5);

    EXPECT_EQ(done.result, 0U);
    EXPECT_EQ(done.length_bytes, 70U);
    Bytes expected = right;
    expected.resize(100);
    EXPECT_EQ(hex(done.reply), hex(expected));
    EXPECT_EQ(server.requests(), 2);
}

TEST(LanClient, FailedLastAttemptLeavesNoEarlierReply)
{
    Server server(
        [](int number) { return number == 0 ? native({.identifier = 0x21}, 90) : Bytes{}; });

    const Exchange done = exchange(server.port(), 2, /*timeout_s=*/1);

    EXPECT_EQ(done.result, 1106U);
    EXPECT_EQ(done.length_bytes, 100U);
    EXPECT_EQ(done.reply, Bytes(100, 0));
}

class LanClientAttempts : public testing::TestWithParam<std::int32_t> {};

TEST_P(LanClientAttempts, AtLeastOneIsMade)
{
    Server server([](int) { return native({.identifier = 0x21}); });
    const TraceCapture trace;

    const Exchange done = exchange(server.port(), GetParam());

    EXPECT_EQ(done.result, 16U);
    EXPECT_EQ(server.requests(), 1);
    EXPECT_THAT(trace.lines(), Not(Contains(HasSubstr("retry"))));
}

INSTANTIATE_TEST_SUITE_P(OneOrLess, LanClientAttempts, testing::Values(1, 0, -5));

// Each attempt has a socket of its own, so a late answer cannot be taken for a later attempt's.
TEST(LanClient, EveryAttemptHasItsOwnSocket)
{
    Peer peer;
    std::vector<std::uint16_t> ports;
    std::jthread server([&] {
        for (int i = 0; i < 3; ++i) {
            if (!peer.receive()) return;
            ports.push_back(peer.last_port());
            peer.answer(native({.identifier = 0x21}));
        }
    });

    const Exchange done = exchange(peer.port(), 3);
    server.join();

    EXPECT_EQ(done.result, 16U);
    EXPECT_EQ(ports.size(), 3U);
}

// Bytes that were never received are zeros, and zeros are not this identifier.
TEST(LanClient, ReplyThatEndsInsideTheIdentifierIsForeign)
{
    Bytes cut = native({.identifier = 0x20});
    cut.resize(23);
    Server server([&](int) { return cut; });

    EXPECT_EQ(exchange(server.port(), 1).result, 16U);
}

TEST(LanClient, RoomTooSmallForTheIdentifierIsNeverReadBeyond)
{
    Bytes cut = native({.identifier = 0x20});
    cut.resize(20);
    Server server([&](int) { return cut; });

    EXPECT_EQ(exchange(server.port(), 1, 10, /*room_bytes=*/23).result, 16U);
}

TEST(LanClient, AnswerThatFillsTheRoomIsTooLong)
{
    Server server([](int) { return native({.identifier = 0x20}, 100); });

    const Exchange done = exchange(server.port(), 1, 10, /*room_bytes=*/100);

    EXPECT_EQ(done.result, 6U);
    EXPECT_EQ(done.length_bytes, 100U);
}

TEST(LanClient, WithoutRoomItOnlySends)
{
    Peer peer;
    std::uint32_t none = 0;
    auto negative = static_cast<std::uint32_t>(-1);
    Bytes reply(48, 0xEE);

    EXPECT_EQ(LAN_SendAndReceiveWithTimeout("127.0.0.1", peer.port(), kRequest.data(), nullptr,
                                            &none, 10, 1),
              0U);
    EXPECT_EQ(LAN_SendAndReceiveWithTimeout("127.0.0.1", peer.port(), kRequest.data(), reply.data(),
                                            &negative, 10, 1),
              0U);
    EXPECT_EQ(reply, Bytes(48, 0xEE));
    EXPECT_EQ(LAN_SendAndReceiveWithTimeout("127.0.0.1", peer.port(), kRequest.data(), nullptr,
                                            nullptr, 10, 1),
              0U);

    for (int sent = 0; sent < 3; ++sent) EXPECT_EQ(peer.receive(), kRequest);
}

TEST(LanClient, ValidationComparesIdentifiersAndLength)
{
    const Bytes same = native({.code = -3, .identifier = 0x20});
    Bytes late = same;
    late[23] ^= 1;
    Bytes early = same;
    early[8] ^= 0x80;

    EXPECT_EQ(LAN_ValidateMessageForDgram(kRequest.data(), same.data(), 48), 0U);
    EXPECT_EQ(LAN_ValidateMessageForDgram(kRequest.data(), same.data(), 47), 16U);
    EXPECT_EQ(LAN_ValidateMessageForDgram(kRequest.data(), same.data(), 0), 16U);
    EXPECT_EQ(LAN_ValidateMessageForDgram(kRequest.data(), late.data(), 48), 16U);
    EXPECT_EQ(LAN_ValidateMessageForDgram(kRequest.data(), early.data(), 48), 16U);
}

}  // namespace

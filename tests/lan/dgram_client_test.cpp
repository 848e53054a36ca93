// One exchange of a client: codes, traces, buffers, sockets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <string>
#include <thread>

#include "lan/dgram.h"
#include "tests/lan/message_bytes.hpp"
#include "tests/lan/peer.hpp"
#include "tests/lan/trace_capture.hpp"

namespace {

using lan_test::Bytes;
using lan_test::hex;
using lan_test::open_descriptors;
using lan_test::Peer;
using lan_test::TraceCapture;
using testing::Contains;
using testing::ElementsAre;

const Bytes kRequest{0x51, 0x52, 0x53};

struct Exchange {
    std::uint32_t result = 0;
    std::uint32_t length_bytes = 0;
    Bytes reply;
};

Exchange exchange(std::uint16_t port, std::uint32_t room_bytes, std::int32_t timeout_s = 10)
{
    Exchange done{.length_bytes = room_bytes, .reply = Bytes(room_bytes, 0xEE)};
    done.result = DGRAM_SendAndReceive("127.0.0.1", port, kRequest.data(),
                                       static_cast<std::uint32_t>(kRequest.size()),
                                       done.reply.data(), &done.length_bytes, timeout_s);
    return done;
}

// Answers one request with `answer`, as a thread of the test.
std::jthread answering(Peer& peer, const Bytes& answer)
{
    return std::jthread([&peer, answer] {
        EXPECT_EQ(peer.receive(), kRequest);
        peer.answer(answer);
    });
}

TEST(DgramClient, GivesTheAnswerAndItsLength)
{
    Peer peer;
    const auto before = open_descriptors();
    const TraceCapture trace;
    Exchange done;
    {
        const auto server = answering(peer, {1, 2, 3, 4});

        done = exchange(peer.port(), 6);
    }

    EXPECT_EQ(done.result, 0U);
    EXPECT_EQ(done.length_bytes, 4U);
    EXPECT_EQ(hex(done.reply), "01020304 eeee");
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_THAT(
        trace.lines(),
        ElementsAre("FTX2000I DGRAM: Client sending message on to 127.0.0.1 on port " +
                        std::to_string(peer.port()) + "\n",
                    "DGRAM: Client sent 3 bytes\n", "FTX2001I DGRAM:  client waiting for reply\n",
                    "FTX2002I DGRAM:  reply was 4 bytes long\n"));
}

struct RoomRow {
    std::uint32_t room_bytes;
    std::uint32_t result;
    std::uint32_t length_bytes;
};

class DgramClientRoom : public testing::TestWithParam<RoomRow> {};

// An answer of 8 bytes: it must leave at least one byte of the room free.
TEST_P(DgramClientRoom, DecidesWhetherTheAnswerIsTooLong)
{
    const RoomRow row = GetParam();
    Peer peer;
    const TraceCapture trace;
    Exchange done;
    {
        const auto server = answering(peer, {1, 2, 3, 4, 5, 6, 7, 8});

        done = exchange(peer.port(), row.room_bytes);
    }

    EXPECT_EQ(done.result, row.result);
    EXPECT_EQ(done.length_bytes, row.length_bytes);
    EXPECT_THAT(trace.lines(), Contains("FTX2002I DGRAM:  reply was " +
                                        std::to_string(row.length_bytes) + " bytes long\n"));
}

INSTANTIATE_TEST_SUITE_P(Rooms, DgramClientRoom,
                         testing::Values(RoomRow{1, 6, 1}, RoomRow{7, 6, 7}, RoomRow{8, 6, 8},
                                         RoomRow{9, 0, 8}),
                         [](const auto& row) {
                             return "room" + std::to_string(row.param.room_bytes);
                         });

TEST(DgramClient, EmptyAnswerIsAnAnswer)
{
    Peer peer;
    const auto server = answering(peer, {});

    const Exchange done = exchange(peer.port(), 6);

    EXPECT_EQ(done.result, 0U);
    EXPECT_EQ(done.length_bytes, 0U);
}

TEST(DgramClient, WithoutRoomItOnlySends)
{
    Peer peer;
    const auto before = open_descriptors();
    std::uint32_t length_bytes = 0;
    std::uint32_t some_bytes = 8;
    auto negative_bytes = static_cast<std::uint32_t>(-8);
    Bytes reply(8);
    const TraceCapture trace;

    EXPECT_EQ(DGRAM_SendAndReceive("127.0.0.1", peer.port(), kRequest.data(), 3, reply.data(),
                                   &negative_bytes, 10),
              0U);
    EXPECT_EQ(DGRAM_SendAndReceive("127.0.0.1", peer.port(), kRequest.data(), 3, reply.data(),
                                   &length_bytes, 10),
              0U);
    EXPECT_EQ(DGRAM_SendAndReceive("127.0.0.1", peer.port(), kRequest.data(), 2, nullptr,
                                   &some_bytes, 10),
              0U);
    EXPECT_EQ(DGRAM_SendAndReceive("127.0.0.1", peer.port(), kRequest.data(), 1, reply.data(),
                                   nullptr, 10),
              0U);

    EXPECT_EQ(hex(peer.receive().value()), "515253");
    EXPECT_EQ(hex(peer.receive().value()), "515253");
    EXPECT_EQ(hex(peer.receive().value()), "5152");
    EXPECT_EQ(hex(peer.receive().value()), "51");
    EXPECT_EQ(some_bytes, 8U);
    EXPECT_EQ(negative_bytes, static_cast<std::uint32_t>(-8));
    EXPECT_EQ(trace.count("FTX2001I DGRAM:  client waiting for reply\n"), 0U);
    EXPECT_EQ(open_descriptors(), before);
}

TEST(DgramClient, SilenceIsATimeout)
{
    const Peer peer;
    const auto before = open_descriptors();
    const TraceCapture trace;

    const Exchange done = exchange(peer.port(), 8, /*timeout_s=*/1);

    EXPECT_EQ(done.result, 1106U);
    EXPECT_EQ(done.length_bytes, 8U);
    EXPECT_THAT(trace.lines(), Contains("FTX2003I DGRAM: 'select' error timeout? 1\n"));
    EXPECT_EQ(open_descriptors(), before);
}

TEST(DgramClient, WaitThatFailsIsAReceiveError)
{
    const Peer peer;
    const auto before = open_descriptors();
    const TraceCapture trace;

    const Exchange done = exchange(peer.port(), 8, /*timeout_s=*/-1);

    EXPECT_EQ(done.result, 1103U);
    EXPECT_THAT(trace.lines(), Contains("FTX2004I DGRAM: 'select' error 22 Invalid argument\n"));
    EXPECT_EQ(open_descriptors(), before);
}

TEST(DgramClient, ReceiveThatFailsIsAReceiveError)
{
    Peer peer;
    void* const nowhere = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(nowhere, MAP_FAILED);
    std::uint32_t length_bytes = 64;
    const TraceCapture trace;
    {
        const auto server = answering(peer, {1, 2, 3, 4});

        EXPECT_EQ(DGRAM_SendAndReceive("127.0.0.1", peer.port(), kRequest.data(), 3, nowhere,
                                       &length_bytes, 10),
                  1103U);
    }

    EXPECT_EQ(length_bytes, 64U);
    EXPECT_THAT(trace.lines(), Contains("FTX2002I DGRAM:  reply was 64 bytes long\n"));
    munmap(nowhere, 4096);
}

TEST(DgramClient, RequestThatNoDatagramHoldsIsASendError)
{
    const Peer peer;
    const auto before = open_descriptors();
    const Bytes request(65'508);
    Bytes reply(8);
    std::uint32_t length_bytes = 8;
    const TraceCapture trace;

    EXPECT_EQ(DGRAM_SendAndReceive("127.0.0.1", peer.port(), request.data(), 65'508, reply.data(),
                                   &length_bytes, 10),
              1102U);

    EXPECT_THAT(trace.lines(), Contains("DGRAM: Client sent -1 bytes\n"));
    EXPECT_EQ(open_descriptors(), before);
}

TEST(DgramClient, UnknownHostIsReported)
{
    const auto before = open_descriptors();
    const std::string name(300, 'a');  // longer than any name: no resolver is asked
    std::uint32_t length_bytes = 8;
    Bytes reply(8);
    const TraceCapture trace;

    EXPECT_EQ(DGRAM_SendAndReceive(name.c_str(), 5501, kRequest.data(), 3, reply.data(),
                                   &length_bytes, 10),
              1101U);

    EXPECT_THAT(trace.lines(),
                testing::Each(testing::Not(testing::HasSubstr("Client sending message"))));
    EXPECT_EQ(open_descriptors(), before);
}

TEST(DgramClient, WithoutDescriptorsThereIsNoSocket)
{
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{.rlim_cur = 0, .rlim_max = before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);

    const Exchange done = exchange(5501, 8);
    std::int32_t socket = -7;
    const std::uint32_t listener = makeListenerSocket(0, &socket);

    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(done.result, 1100U);
    EXPECT_EQ(listener, 1100U);
    EXPECT_EQ(socket, -7);
}

// Interrupts this thread over and over, without restarting its calls, until told to stop.
class Interruptions {
public:
    explicit Interruptions(int most) : most_(most)
    {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, nullptr);
        thread_ = std::thread([this, target = pthread_self()] {
            while (!stop_ && sent_ < most_) {
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                pthread_kill(target, SIGUSR1);
                ++sent_;
            }
        });
    }
    ~Interruptions()
    {
        stop_ = true;
        thread_.join();
    }
    Interruptions(const Interruptions&) = delete;
    Interruptions& operator=(const Interruptions&) = delete;
    [[nodiscard]] int sent() const { return sent_; }

private:
    int most_;
    std::atomic<bool> stop_ = false;
    std::atomic<int> sent_ = 0;
    std::thread thread_;
};

// Interruptions that come faster than the limit would keep it from ending if each one started it
// anew.
TEST(DgramClient, InterruptedWaitGoesOnWithTheTimeThatIsLeft)
{
    constexpr int kMost = 300;
    const Peer peer;
    const TraceCapture trace;
    const Interruptions interruptions(kMost);

    const Exchange done = exchange(peer.port(), 8, /*timeout_s=*/1);

    EXPECT_EQ(done.result, 1106U);
    EXPECT_GE(trace.count("FTX2004I DGRAM: 'select' error 4 Interrupted system call\n"), 1U);
    EXPECT_LT(interruptions.sent(), kMost);
}

}  // namespace

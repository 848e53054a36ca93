// Listener threads: what reaches the handler, what is counted, and how answers leave.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "lan/dgram.h"
#include "osl/shared_word.hpp"
#include "tests/lan/message_bytes.hpp"
#include "tests/lan/peer.hpp"
#include "tests/lan/trace_capture.hpp"

namespace {

using corvane::load_shared;
using lan_test::Bytes;
using lan_test::hex;
using lan_test::open_descriptors;
using lan_test::Peer;
using lan_test::TraceCapture;
using testing::Contains;
using testing::IsSupersetOf;

// A datagram as the handler saw it, with 200 bytes of what lay behind it.
struct Seen {
    Bytes bytes;
    Bytes behind;
    DgramReplyAddr sender;
    std::thread::id thread;
};

// Collects datagrams on the listener's threads; never destroyed, since those never end.
struct Collector {
    std::mutex mutex;
    std::condition_variable arrived;
    std::deque<Seen> seen;
    bool echoes = false;

    static std::int32_t handle(void* message, std::int32_t length, DgramReplyAddr* sender,
                               void* self)
    {
        auto& collector = *static_cast<Collector*>(self);
        const auto* bytes = static_cast<unsigned char*>(message);
        const auto end = static_cast<std::size_t>(length);
        if (collector.echoes) {
            EXPECT_EQ(DGRAM_SendReply(sender, message, static_cast<std::uint32_t>(length)), 0U);
        }
        const std::lock_guard guard(collector.mutex);
        const std::size_t behind = std::min<std::size_t>(200, 65'536 - end);
        collector.seen.push_back({Bytes(bytes, bytes + end),
                                  Bytes(bytes + end, bytes + end + behind), *sender,
                                  std::this_thread::get_id()});
        collector.arrived.notify_all();
        return 77;  // ignored
    }

    Seen next()
    {
        std::unique_lock guard(mutex);
        EXPECT_TRUE(
            arrived.wait_for(guard, std::chrono::seconds(20), [this] { return !seen.empty(); }));
        if (seen.empty()) return {};
        Seen first = seen.front();
        seen.pop_front();
        return first;
    }
};

Collector* new_collector()
{
    static auto* const all = new std::vector<std::unique_ptr<Collector>>;
    return all->emplace_back(std::make_unique<Collector>()).get();
}

// Binds a port that is free at the moment. Returns it.
std::uint16_t bind_listener(DgramHandler handler, void* argument, std::int32_t threads)
{
    for (int attempt = 0; attempt < 50; ++attempt) {
        std::uint16_t port = 0;
        {
            const Peer probe;
            port = probe.port();
        }
        if (DGRAM_BindListener(port, handler, argument, threads) == 0) return port;
    }
    ADD_FAILURE() << "no port is free";
    return 0;
}

TEST(DgramListener, HandsOverDatagramAndSender)
{
    auto* const collector = new_collector();
    const std::uint16_t port = bind_listener(Collector::handle, collector, 1);
    const Peer client;
    const TraceCapture trace;

    client.send(port, {1, 2, 3, 4, 5});
    const Seen seen = collector->next();

    EXPECT_EQ(hex(seen.bytes), "01020304 05");
    EXPECT_EQ(seen.sender.sender.sin_family, AF_INET);
    EXPECT_EQ(ntohs(seen.sender.sender.sin_port), client.port());
    EXPECT_EQ(ntohl(seen.sender.sender.sin_addr.s_addr), INADDR_LOOPBACK);
    EXPECT_EQ(hex(seen.sender.sender.sin_zero, 8), "00000000 00000000");
    EXPECT_EQ(DGRAM_GetEphemeralPort(seen.sender.socket), port);
    EXPECT_THAT(trace.lines(),
                testing::ElementsAre("FTX2008I DGRAM: Server received message. size 5\n",
                                     "FTX2009I LANSERVER: received data\n"));
}

// What an earlier, longer datagram left must not be seen behind a shorter one.
TEST(DgramListener, BytesBehindADatagramReadAsZeros)
{
    auto* const collector = new_collector();
    const std::uint16_t port = bind_listener(Collector::handle, collector, 1);
    const Peer client;
    const std::size_t lengths[] = {300, 120, 250, 60, 61, 1};

    for (const std::size_t length : lengths) {
        client.send(port, Bytes(length, 0xAA));
        const Seen seen = collector->next();

        EXPECT_EQ(seen.bytes, Bytes(length, 0xAA));
        EXPECT_EQ(seen.behind, Bytes(200, 0)) << "behind " << length;
    }
}

// A handler that turns a header round in place writes behind a datagram that is shorter.
TEST(DgramListener, HeaderWrittenBehindAShortDatagramReadsAsZerosToo)
{
    const DgramHandler scribble = [](void* message, std::int32_t length, DgramReplyAddr* from,
                                     void* collector) {
        const std::int32_t result = Collector::handle(message, length, from, collector);
        std::memset(message, 0xEE, 48);
        return result;
    };
    auto* const collector = new_collector();
    const std::uint16_t port = bind_listener(scribble, collector, 1);
    const Peer client;

    for (const std::size_t length : {30, 29, 1}) {
        client.send(port, Bytes(length, 0xAA));

        EXPECT_EQ(collector->next().behind, Bytes(200, 0)) << "behind " << length;
    }
}

TEST(DgramListener, TakesTheLongestDatagram)
{
    auto* const collector = new_collector();
    const std::uint16_t port = bind_listener(Collector::handle, collector, 1);
    const Peer client;
    Bytes longest(65'507);
    for (std::size_t i = 0; i < longest.size(); ++i) longest[i] = static_cast<unsigned char>(i * 7);

    client.send(port, longest);

    EXPECT_EQ(collector->next().bytes, longest);
}

TEST(DgramListener, EmptyDatagramIsAReceiveError)
{
    auto* const collector = new_collector();
    const std::uint16_t port = bind_listener(Collector::handle, collector, 1);
    const Peer client;
    const std::int32_t before = load_shared(recvErrs);
    const TraceCapture trace;

    client.send(port, {});
    client.send(port, {9});
    const Seen first = collector->next();

    EXPECT_EQ(hex(first.bytes), "09");
    EXPECT_EQ(load_shared(recvErrs), before + 1);
    EXPECT_THAT(trace.lines(), Contains("FTX2006I DGRAM: failed recvfrom:0 (total recv errors " +
                                        std::to_string(before + 1) + ")\n"));
}

TEST(DgramListener, WithoutHandlerDatagramsAreDropped)
{
    const std::uint16_t port = bind_listener(nullptr, nullptr, 1);
    const Peer client;
    const std::int32_t before = load_shared(recvErrs);
    const TraceCapture trace;

    client.send(port, {1, 2});
    client.send(port, {});  // counted, so the one before it was read
    for (int i = 0; i < 2000 && load_shared(recvErrs) == before; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }

    EXPECT_EQ(load_shared(recvErrs), before + 1);
    EXPECT_EQ(trace.count("FTX2009I LANSERVER: received data\n"), 0U);
}

TEST(DgramListener, WithoutThreadsNothingIsReceived)
{
    auto* const collector = new_collector();
    const std::uint16_t port = bind_listener(Collector::handle, collector, 0);
    const std::uint16_t other = bind_listener(Collector::handle, collector, -3);
    const Peer client;

    client.send(port, {1});
    client.send(other, {1});
    std::this_thread::sleep_for(std::chrono::milliseconds(300));

    const std::lock_guard guard(collector->mutex);
    EXPECT_TRUE(collector->seen.empty());
}

// Each thread waits inside the handler until all of them are there: only then have all been served.
TEST(DgramListener, AsManyRequestsAtOnceAsThreads)
{
    struct Gate {
        std::mutex mutex;
        std::condition_variable all;
        int inside = 0;
    };
    auto* const gate = new Gate;
    const auto wait_inside = [](void*, std::int32_t, DgramReplyAddr* sender, void* argument) {
        auto& entered = *static_cast<Gate*>(argument);
        std::unique_lock guard(entered.mutex);
        ++entered.inside;
        entered.all.notify_all();
        const bool together = entered.all.wait_for(guard, std::chrono::seconds(20),
                                                   [&] { return entered.inside >= 3; });
        const unsigned char reply = together ? 1 : 0;
        return static_cast<std::int32_t>(DGRAM_SendReply(sender, &reply, 1));
    };
    const std::uint16_t port = bind_listener(wait_inside, gate, 3);
    Peer client;

    for (int i = 0; i < 3; ++i) client.send(port, {5});

    for (int i = 0; i < 3; ++i) EXPECT_EQ(client.receive(25'000), Bytes{1});
}

TEST(DgramListener, TakenPortLeavesNothingOpen)
{
    const Peer holder;
    const auto before = open_descriptors();
    std::int32_t socket = -7;
    const TraceCapture trace;

    EXPECT_EQ(makeListenerSocket(holder.port(), &socket), 1104U);
    EXPECT_EQ(DGRAM_BindListener(holder.port(), Collector::handle, nullptr, 1), 1104U);

    EXPECT_EQ(socket, -7);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(
        trace.count("FTX2005I creating a socket on port " + std::to_string(holder.port()) + "\n"),
        2U);
}

TEST(DgramListener, ListensOnEveryAddress)
{
    std::int32_t socket = -1;
    ASSERT_EQ(makeListenerSocket(0, &socket), 0U);
    sockaddr_in local{};
    socklen_t size = sizeof local;
    ASSERT_EQ(getsockname(socket, reinterpret_cast<sockaddr*>(&local), &size), 0);

    EXPECT_EQ(local.sin_addr.s_addr, htonl(INADDR_ANY));
    CloseSocket(socket);
}

TEST(DgramListener, AnswersFromTheListeningSocket)
{
    auto* const collector = new_collector();
    collector->echoes = true;
    const std::uint16_t port = bind_listener(Collector::handle, collector, 2);
    Peer client;
    const TraceCapture trace;

    client.send(port, {7, 8, 9});

    EXPECT_EQ(hex(client.receive().value()), "070809");
    EXPECT_EQ(client.last_port(), port);
    EXPECT_EQ(trace.count("FTX2010I DGRAM_sendReply sending 3 bytes\n"), 1U);
}

TEST(DgramListener, AnswerThatCannotBeSentIsReported)
{
    const Peer peer;
    const DgramReplyAddr nowhere{.socket = -1, .sender = Peer::loopback(peer.port())};
    const DgramReplyAddr somewhere{.socket = peer.descriptor(),
                                   .sender = Peer::loopback(peer.port())};
    const Bytes reply(65'508);
    const TraceCapture trace;

    EXPECT_EQ(DGRAM_SendReply(&nowhere, reply.data(), 4), 1105U);
    EXPECT_EQ(DGRAM_SendReply(&somewhere, reply.data(), 65'508), 1105U);
    EXPECT_EQ(DGRAM_SendReply(&somewhere, reply.data(), 65'507), 0U);

    EXPECT_THAT(trace.lines(),
                testing::ElementsAre(
                    "FTX2010I DGRAM_sendReply sending 4 bytes\n",
                    "FTX2011I DGRAM_sendReply sendto failed bytes returned:-1 replyLength: 4\n",
                    "FTX2010I DGRAM_sendReply sending 65508 bytes\n",
                    "FTX2011I DGRAM_sendReply sendto failed bytes returned:-1 replyLength: 65508\n",
                    "FTX2010I DGRAM_sendReply sending 65507 bytes\n"));
}

}  // namespace

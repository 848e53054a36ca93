// Many threads on one server: each tracked request is executed once, each copy gets the same reply.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <barrier>
#include <cstring>
#include <thread>
#include <vector>

#include "tests/lan/server_fixture.hpp"

namespace {

using lan_test::Bytes;
using lan_test::native;
using lan_test::Reply;
using lan_test::sender;

constexpr int kThreads = 4;
constexpr std::uint32_t kRequests = 400;
std::array<std::atomic<int>, kRequests> g_executed;

std::uint32_t number_of(const void* message)
{
    return lan_test::get_le32(message, lan_test::kIdentifier);
}

void* counting_handler(void* request, const DgramReplyAddr*)
{
    ++g_executed.at(number_of(request));
    Bytes reply(64);
    std::memcpy(reply.data(), request, 48);
    lan_test::put_le32(reply, lan_test::kLength, 64);
    lan_test::put_le32(reply, 60, ~number_of(request));
    void* const made = OSL_Malloc(reply.size(), 0);
    std::memcpy(made, reply.data(), reply.size());
    return made;
}

class Concurrency : public lan_test::ServerTest {
protected:
    void SetUp() override
    {
        ServerTest::SetUp();
        for (auto& count : g_executed) count = 0;
        LAN_RegisterMessageHandler(server_, 1, counting_handler);
    }
    // Every thread sends every request; returns how many replies came.
    std::uint32_t send_all_from_all_threads()
    {
        std::barrier start(kThreads);
        std::atomic<std::uint32_t> replies = 0;
        std::vector<std::jthread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&] {
                start.arrive_and_wait();
                for (std::uint32_t i = 0; i < kRequests; ++i) {
                    Bytes message = native({});
                    lan_test::put_le32(message, lan_test::kIdentifier, i);
                    const Reply reply = process(message);
                    if (!reply) continue;
                    EXPECT_EQ(lan_test::get_le32(reply.get(), 60), ~i);
                    ++replies;
                }
            });
        }
        threads.clear();
        return replies;
    }
};

TEST_F(Concurrency, EveryRequestIsExecutedOnce)
{
    MaxTrack = -1;

    const std::uint32_t replies = send_all_from_all_threads();

    for (const auto& count : g_executed) EXPECT_EQ(count, 1);
    EXPECT_EQ(replies, kRequests + static_cast<std::uint32_t>(numDupsRepliedTo));
    EXPECT_EQ(kThreads * kRequests, replies + static_cast<std::uint32_t>(numDupsDropped));
    EXPECT_EQ(complete_entries(), kRequests);
    EXPECT_EQ(server_->completed, kRequests);
}

// Purges in between: copies may be executed again, but the books stay right.
TEST_F(Concurrency, PurgesKeepTheCount)
{
    MaxTrack = 10;

    const std::uint32_t replies = send_all_from_all_threads();

    std::uint32_t executed = 0;
    for (const auto& count : g_executed) {
        EXPECT_GE(count, 1);
        executed += static_cast<std::uint32_t>(count);
    }
    EXPECT_EQ(replies, executed + static_cast<std::uint32_t>(numDupsRepliedTo));
    EXPECT_EQ(server_->completed, complete_entries());
    EXPECT_GE(complete_entries(), 9U);
    EXPECT_LE(complete_entries(), 10U);
}

}  // namespace

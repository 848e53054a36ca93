// What happens when memory is short: the OS layer's memory functions are this test's own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "lan/client.h"
#include "lan/server.h"
#include "osl/memory.h"
#include "tests/lan/server_fixture.hpp"
#include "tests/lan/trace_capture.hpp"

namespace {
int g_allocations_left = -1;  // negative: as many as you like

std::size_t g_largest_bytes = SIZE_MAX;

bool may_allocate(std::size_t size)
{
    if (size > g_largest_bytes) return false;
    if (g_allocations_left < 0) return true;
    if (g_allocations_left == 0) return false;
    --g_allocations_left;
    return true;
}
}  // namespace

void* OSL_Malloc(size_t size, uint32_t) noexcept
{
    return may_allocate(size) ? std::malloc(size) : nullptr;
}
void* OSL_MallocAlign(size_t, size_t size) noexcept
{
    return OSL_Malloc(size, 0);
}
void* OSL_Calloc(size_t size, uint32_t) noexcept
{
    return may_allocate(size) ? std::calloc(1, size) : nullptr;
}
void OSL_Free(void* block) noexcept
{
    std::free(block);
}
void OSL_MemCopy(void* destination, const void* source, size_t count) noexcept
{
    if (destination != nullptr && source != nullptr) std::memcpy(destination, source, count);
}
size_t OSL_MemSet(void* address, int byte, size_t count) noexcept
{
    std::memset(address, byte, count);
    return count;
}
int32_t OSL_MemCompare(const void* a, const void* b, size_t count) noexcept
{
    const int order = std::memcmp(a, b, count);
    return (order > 0) - (order < 0);
}
char* OSL_StrNCopy(char* destination, const char* source, size_t count) noexcept
{
    return std::strncpy(destination, source, count);
}

namespace {

using lan_test::Bytes;
using lan_test::native;
using lan_test::Reply;
using lan_test::sender;

int g_calls = 0;

void* fixed_handler(void* request, const DgramReplyAddr*)
{
    ++g_calls;
    void* const reply = std::malloc(48);
    std::memcpy(reply, request, 48);
    return reply;
}

class Shortage : public lan_test::ServerTest {
protected:
    void SetUp() override
    {
        g_allocations_left = -1;
        ServerTest::SetUp();
        g_calls = 0;
        LAN_RegisterMessageHandler(server_, 1, fixed_handler);
    }
    void TearDown() override
    {
        g_allocations_left = -1;
        g_largest_bytes = SIZE_MAX;
        ServerTest::TearDown();
    }
};

TEST_F(Shortage, RequestIsExecutedUntracked)
{
    for (const int left : {0, 1}) {  // no entry; no header copy
        g_allocations_left = left;
        EXPECT_NE(process(native({})), nullptr);
        EXPECT_TRUE(entries().empty());
    }
    EXPECT_EQ(g_calls, 2);
}

// Without its stored reply the entry would drop all later copies; it goes instead.
TEST_F(Shortage, ReplyThatCannotBeStoredLeavesTheRequestUntracked)
{
    g_allocations_left = 2;
    EXPECT_NE(process(native({})), nullptr);

    EXPECT_TRUE(entries().empty());
    EXPECT_EQ(server_->completed, 0U);
    g_allocations_left = -1;
    EXPECT_NE(process(native({})), nullptr);
    EXPECT_EQ(g_calls, 2);
}

TEST_F(Shortage, SecondReplyThatCannotBeStoredLeavesTheFirst)
{
    process(native({}));
    const DgramReplyAddr from = sender(4000);
    const Bytes second = native({.code = 9});
    g_allocations_left = 0;

    LAN_RegisterComplete(server_, &from, second.data(), second.data());

    ASSERT_EQ(complete_entries(), 1U);
    EXPECT_EQ(lan_test::get_le32(entries()[0]->reply, lan_test::kFunctionCode), 1U);
    EXPECT_EQ(server_->completed, 1U);
}

TEST_F(Shortage, AnsweredDuplicateBecomesADroppedOneAndCountsTwice)
{
    process(native({}));
    const lan_test::TraceCapture trace;
    g_allocations_left = 0;

    EXPECT_EQ(process(native({})), nullptr);

    EXPECT_EQ(numDupsRepliedTo, 1);
    EXPECT_EQ(numDupsDropped, 1);
    EXPECT_EQ(trace.count("Found duplicate message\n"), 2U);
    EXPECT_EQ(trace.count("Dropping duplicate message\n"), 1U);
}

TEST_F(Shortage, RefusalWithoutMemoryIsSilence)
{
    g_allocations_left = 0;

    EXPECT_EQ(process(native({.length = 47})), nullptr);
    EXPECT_EQ(process(native({.code = 50, .flags = 0})), nullptr);

    EXPECT_EQ(g_calls, 0);
}

TEST_F(Shortage, IndexThatCannotGrowStillFinds)
{
    MaxTrack = -1;
    g_largest_bytes = 2048;  // enough for all but more buckets
    for (int i = 0; i < 300; ++i) {
        Bytes message = native({});
        lan_test::put_le32(message, lan_test::kIdentifier, static_cast<std::uint32_t>(i));
        process(message);
    }

    EXPECT_EQ(complete_entries(), 300U);
    Bytes last = native({});
    lan_test::put_le32(last, lan_test::kIdentifier, 299);
    process(last);
    EXPECT_EQ(g_calls, 300);
    EXPECT_EQ(numDupsRepliedTo, 1);
}

TEST(ShortageAtStart, ServerWithoutIndexServesAll)
{
    for (const int left : {1, 2}) {  // no index; no buckets
        g_allocations_left = left;
        LanServer* server = nullptr;
        EXPECT_EQ(LAN_InitServer(&server), 0U);
        g_allocations_left = -1;
        ASSERT_NE(server, nullptr);
        EXPECT_EQ(server->index, nullptr);
        LAN_RegisterMessageHandler(server, 1, fixed_handler);
        g_calls = 0;
        numDupsRepliedTo = 0;
        const DgramReplyAddr from = sender(4000);
        for (int i = 0; i < 2; ++i) {
            Bytes message = native({});
            EXPECT_NE(Reply(LAN_ProcessMessage(message.data(), 48, server, &from)), nullptr);
        }

        EXPECT_EQ(g_calls, 1);
        EXPECT_EQ(numDupsRepliedTo, 1);
        lan_test::free_server(server);
    }
}

TEST(ShortageAtStart, ServerThatCannotBeMadeIsNull)
{
    g_allocations_left = 0;
    LanServer* server = reinterpret_cast<LanServer*>(&g_calls);

    EXPECT_NE(LAN_InitServer(&server), 0U);

    EXPECT_EQ(server, nullptr);
    g_allocations_left = -1;
}

TEST(ShortageAtStart, ListenerWithoutBufferEndsWith408)
{
    DgramListener listener{};
    listener.socket = -1;
    g_allocations_left = 0;

    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(PrimaryListener(&listener)), 408U);

    g_allocations_left = -1;
}

}  // namespace

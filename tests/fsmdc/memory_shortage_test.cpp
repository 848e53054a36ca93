// What the service answers when memory is short: the OS layer's memory functions are this test's
// own.
#include <cstdlib>
#include <cstring>
#include <thread>

#include "osl/memory.h"
#include "tests/fsmdc/fake_clock.hpp"
#include "tests/fsmdc/service_fixture.hpp"

namespace fsmdc_test {
namespace {
// Blocks of these sizes cannot be had.
std::size_t g_refused_from = SIZE_MAX;
std::size_t g_refused_to = SIZE_MAX;
}  // namespace
}  // namespace fsmdc_test

void* OSL_Malloc(size_t size, uint32_t) noexcept
{
    using namespace fsmdc_test;
    return size >= g_refused_from && size <= g_refused_to ? nullptr : std::malloc(size);
}
void* OSL_MallocAlign(size_t, size_t size) noexcept
{
    return OSL_Malloc(size, 0);
}
void* OSL_Calloc(size_t size, uint32_t tag) noexcept
{
    void* const block = OSL_Malloc(size, tag);
    if (block != nullptr) std::memset(block, 0, size);
    return block;
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

namespace fsmdc_test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::size_t kLeaseBytes = 200;

class Shortage : public ServiceTest {
protected:
    Shortage() { AddVolumeDispatcherToList(cookie(0x10).data(), &PluginA::library); }
    ~Shortage() override { refuse(SIZE_MAX, SIZE_MAX); }
    static void refuse(std::size_t from, std::size_t to)
    {
        g_refused_from = from;
        g_refused_to = to;
    }
    static Bytes initial_map()
    {
        Bytes message = request(2, 2160);
        put64(message, 48, -1);
        put64(message, 56, -1);
        put_text(message, 112, std::string("/v\0f", 4));
        return message;
    }
    // A thread of its own has no buffer yet.
    template <class Body>
    static void in_new_thread(Body body)
    {
        std::thread(body).join();
    }
};

TEST_F(Shortage, WithoutRoomForAFullReplyTheFixedOneSaysFive)
{
    collect_traces();
    in_new_thread([&] {
        refuse(60000, SIZE_MAX);
        Bytes volume = request(1, 2228);
        fill(volume, 84, 32, 0x10);
        const Reply volume_reply(SP_LanGetVolume(volume.data(), nullptr));
        EXPECT_EQ(get32(volume_reply.get(), 48), 5);
        EXPECT_EQ(get32(volume_reply.get(), 28), 272);
        EXPECT_EQ(get32(volume_reply.get(), 4), 5);

        Bytes map = initial_map();
        const Reply map_reply(SP_LanGetInitialMap(map.data(), sender()));
        EXPECT_EQ(get32(map_reply.get(), 48), 5);
        EXPECT_EQ(get32(map_reply.get(), 28), 256);
        EXPECT_EQ(MoreCookiesInList(cookie(0x50).data()), 0);
    });
    EXPECT_THAT(calls(), ElementsAre("0 GetCookies /v/f"));
    EXPECT_THAT(g_traces, Contains("FTX2026I SP_InitReply failed to calloc 64512 bytes\n"));
}

TEST_F(Shortage, AnExtendedMapWithoutRoomSaysFiveToo)
{
    std::uint32_t key = 0;
    (void)AddLeaseToList(cookie(0x10).data(), cookie(0x50).data(), cookie(1, 16).data(),
                         cookie(2, 16).data(), 1, 5000, &key, &PluginA::library);
    Bytes message = request(3, 92);
    put32(message, 84, key);
    in_new_thread([&] {
        refuse(60000, SIZE_MAX);
        const Reply reply(SP_LanGetExtendedMap(message.data(), nullptr));
        EXPECT_EQ(get32(reply.get(), 48), 5);
        EXPECT_EQ(get32(reply.get(), 28), 184);
        EXPECT_EQ(get32(reply.get(), 4), 77);
    });
}

TEST_F(Shortage, AMapWhoseReplyCannotBeMadeEndsItsLease)
{
    PluginA::script.maps = {{0, Bytes(30000)}};
    put32(PluginA::script.maps[0].record, 16, 30000);
    Bytes message = initial_map();
    {
        const Reply warm_up(SP_LanGetInitialMap(message.data(), sender()));
    }
    fill(message, 8, 16, 0x90);
    g_calls.clear();
    corvane::reset_leases();
    refuse(20000, 40000);

    const Reply reply(SP_LanGetInitialMap(message.data(), sender()));

    EXPECT_EQ(get32(reply.get(), 48), 5);
    EXPECT_EQ(get32(reply.get(), 28), 256);
    EXPECT_EQ(calls().back(), "0 UnlockMap 1011 5051");
}

TEST_F(Shortage, WithoutMemoryForTheLeaseNothingIsMapped)
{
    collect_traces();
    refuse(kLeaseBytes, kLeaseBytes);
    Bytes message = initial_map();

    const Reply reply(SP_LanGetInitialMap(message.data(), sender()));

    EXPECT_EQ(get32(reply.get(), 48), 5);
    EXPECT_THAT(calls(), ElementsAre("0 GetCookies /v/f"));
    EXPECT_THAT(g_traces, Contains("Out of memory in AddToLeaseList\n"));
}

TEST_F(Shortage, ALeaseWithoutMemoryIsMinusOne)
{
    refuse(kLeaseBytes, kLeaseBytes);
    std::uint32_t key = 77;

    EXPECT_EQ(AddLeaseToList(cookie(0x10).data(), cookie(0x50).data(), cookie(1, 16).data(),
                             cookie(2, 16).data(), 1, 5000, &key, nullptr),
              -1);
    EXPECT_EQ(key, 77u);
    EXPECT_EQ(leaseListHeadGlb.next, &leaseListHeadGlb);
}

TEST_F(Shortage, WithoutMemoryForTheFixedReplyThereIsNone)
{
    refuse(1, SIZE_MAX);
    Bytes close = request(5, 60);
    Bytes size = request(4, 64);
    Bytes volume = request(1, 2228);
    Bytes extended = request(3, 92);

    EXPECT_EQ(SP_LanClose(close.data(), nullptr), nullptr);
    EXPECT_EQ(SP_LanSetSize(size.data(), nullptr), nullptr);
    EXPECT_EQ(SP_LanGetVolume(volume.data(), nullptr), nullptr);
    EXPECT_EQ(SP_LanGetExtendedMap(extended.data(), nullptr), nullptr);
    EXPECT_EQ(SP_InitReply(close.data(), 88, nullptr), nullptr);
}

// A table that cannot grow keeps finding everything, only slower.
TEST_F(Shortage, TheIndexWorksWithoutMemoryToGrow)
{
    refuse(4096, SIZE_MAX);
    std::vector<std::uint32_t> keys(5000);
    for (std::uint32_t i = 0; i < keys.size(); ++i) {
        Bytes file(32);
        put32(file, 0, i);
        ASSERT_EQ(AddLeaseToList(cookie(0x10).data(), file.data(), cookie(1, 16).data(),
                                 cookie(2, 16).data(), 1, 5000, &keys[i], nullptr),
                  0);
    }
    for (std::uint32_t i = 0; i < keys.size(); ++i) {
        LeaseRecord copy;
        ASSERT_EQ(GetLeaseCopy(keys[i], &copy), 0u);
        ASSERT_EQ(get32(copy.fileCookie, 0), static_cast<std::int32_t>(i));
    }
}

TEST_F(Shortage, AVolumeThatCannotBeRememberedIsUnknown)
{
    refuse(1, 200);
    EXPECT_EQ(AddVolumeDispatcherToList(cookie(0x33).data(), &PluginB::library), 0u);
    EXPECT_EQ(GetLibrary(cookie(0x33).data()), nullptr);
    EXPECT_EQ(GetLibrary(cookie(0x10).data()), &PluginA::library);
}

}  // namespace
}  // namespace fsmdc_test

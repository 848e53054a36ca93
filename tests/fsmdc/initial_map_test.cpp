// GetInitialMap: which file, which lease, which plug-in calls, and what the reply says.
#include "tests/fsmdc/fake_clock.hpp"
#include "tests/fsmdc/service_fixture.hpp"

namespace fsmdc_test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr std::size_t kMap = 160;
const char kMapCall[] = "0 GetLockedMap 1011 5051 start 0 length -1 flag 0 room 64256";

// A map record: header and extents, its own length in msgLen.
MapAnswer map_of(std::uint32_t result, std::size_t bytes)
{
    MapAnswer answer{result, Bytes(bytes)};
    put64(answer.record, 0, 0x1122334455667788);
    put32(answer.record, 16, static_cast<std::uint32_t>(bytes));
    if (bytes > 64) fill(answer.record, 64, bytes - 64, 0x61);
    return answer;
}

class InitialMap : public ServiceTest {
protected:
    InitialMap()
    {
        g_clock_s = 1000;
        put64(request_, 48, -1);  // filesize
        put64(request_, 56, -1);  // allocsize
        put32(request_, 68, 1);   // read
        set_path("/vol/data", "dir\\file");
        PluginA::script.maps = {map_of(0, 96)};
    }
    void set_path(const std::string& share, const std::string& file)
    {
        std::fill(request_.begin() + 112, request_.begin() + 112 + 2048, 0);
        put_text(request_, 112, share);
        put_text(request_, 112 + 2 * (share.size() + 1), file);
    }
    Reply ask() { return Reply(SP_LanGetInitialMap(request_.data(), sender())); }

    Bytes request_ = request(2, 2160);
};

TEST_F(InitialMap, TheReplyCarriesHeaderLeaseCookiesAndMap)
{
    globalKey = 0x01020304;

    const Reply reply = ask();

    EXPECT_EQ(hex(reply.get(), 48),
              "01000000"                          // byte order
              "05000000"                          // revision: the plug-in's version
              "404142434445464748494a4b4c4d4e4f"  // messageID
              "feffffff"                          // code -2
              "02010000"                          // length 162 + 96
              "00000000"                          // flags
              "00000000"                          // header result
              "00002f0000000000");                // spares
    EXPECT_EQ(get32(reply.get(), 48), 0);
    EXPECT_EQ(get32(reply.get(), 52), 5000);  // the default read lease
    EXPECT_EQ(get32(reply.get(), 56), 0x01020304);
    EXPECT_EQ(hex(bytes_of(reply, 60), 36), std::string(72, '0'));
    EXPECT_EQ(hex(bytes_of(reply, 96), 32), hex(cookie(0x50)));
    EXPECT_EQ(hex(bytes_of(reply, 128), 32), hex(cookie(0x10)));
    EXPECT_EQ(hex(bytes_of(reply, kMap), 96), hex(PluginA::script.maps[0].record));
    EXPECT_EQ(hex(bytes_of(reply, kMap + 96), 2), "0000");
}

TEST_F(InitialMap, ThePathIsShareSeparatorAndFileWithSlashes)
{
    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 0);
    EXPECT_THAT(calls(), ElementsAre("0 GetCookies /vol/data/dir/file", kMapCall));
}

TEST_F(InitialMap, ABackslashSeparatorBecomesASlash)
{
    put<std::uint16_t>(request_, 42, '\\');
    set_path("\\vol", "\\file");

    const Reply reply = ask();

    EXPECT_EQ(calls().front(), "0 GetCookies /vol/file");
}

TEST_F(InitialMap, SeparatorZeroJoinsThePartsAsTheyAre)
{
    put<std::uint16_t>(request_, 42, 0);
    set_path("/vol/", "file");

    const Reply reply = ask();

    EXPECT_EQ(calls().front(), "0 GetCookies /vol/file");
}

TEST_F(InitialMap, OnlyAShareNameIsAnInvalidPath)
{
    std::fill(request_.begin() + 112, request_.begin() + 112 + 2048, 0);
    put_text(request_, 112, "/vol");

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 406);
    EXPECT_EQ(get32(reply.get(), 28), 256);
    EXPECT_EQ(get32(reply.get(), 4), 77);  // no plug-in helped
    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(InitialMap, AnAreaWithoutAnyZeroHasNoFilePart)
{
    for (std::size_t i = 0; i < 1024; ++i) put<std::uint16_t>(request_, 112 + 2 * i, '/');

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 406);
}

TEST_F(InitialMap, AFilePartWithoutAZeroEndsWithTheArea)
{
    put_text(request_, 112, "/v");
    for (std::size_t i = 3; i < 1024; ++i) put<std::uint16_t>(request_, 112 + 2 * i, 'f');
    put<std::uint16_t>(request_, 112 + 4, 0);
    put<std::uint16_t>(request_, 112 + 6, '/');

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 0);
    EXPECT_EQ(calls().front(), "0 GetCookies /v/" + std::string(1019, 'f'));
}

TEST_F(InitialMap, AnUnknownShareGivesTheShareCode)
{
    setenv("CORVANE_SMBPATH", "/nonexistent/smb.conf", 1);
    set_path("data", "file");

    const Reply reply = ask();

    unsetenv("CORVANE_SMBPATH");
    EXPECT_EQ(get32(reply.get(), 48), 3);
    EXPECT_EQ(get32(reply.get(), 28), 256);
}

TEST_F(InitialMap, ThePlugInsAreAskedInSlotOrderPastEmptySlots)
{
    collect_traces();
    PluginA::script.cookies_result = 2;
    PluginB::script.maps = {map_of(0, 64)};

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 0);
    EXPECT_EQ(get32(reply.get(), 4), 6);  // plug-in B's version
    EXPECT_EQ(calls()[0], "0 GetCookies /vol/data/dir/file");
    EXPECT_EQ(calls()[1], "1 GetCookies /vol/data/dir/file");
    EXPECT_EQ(calls()[2].substr(0, 14), "1 GetLockedMap");
    EXPECT_THAT(g_traces, Contains("FS_GetCookies returned 2\n"));
    EXPECT_EQ(GetLibrary(cookie(0x10).data()), &PluginB::library);
}

TEST_F(InitialMap, AFileThatNobodyOwnsHasNoLibrary)
{
    PluginA::script.cookies_result = PluginB::script.cookies_result = 101;

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 405);
    EXPECT_EQ(get32(reply.get(), 28), 256);
}

TEST_F(InitialMap, ThePlugInMapsUnderALeaseThatIsThirtySecondsLonger)
{
    std::uint32_t during = 0;
    PluginA::script.during_map = [&] {
        LeaseRecord lease{};
        EXPECT_EQ(GetLeaseCopy(globalKey - 1, &lease), 0u);
        during = lease.duration;
        EXPECT_EQ(hex(lease.messageCookie, 16), "404142434445464748494a4b4c4d4e4f");
        EXPECT_EQ(hex(lease.commCookie, 16), hex(sender_));
        EXPECT_EQ(lease.library, &PluginA::library);
        EXPECT_EQ(lease.intention, 1);
    };
    put32(request_, 64, 7000);

    const Reply reply = ask();

    LeaseRecord after{};
    EXPECT_EQ(GetLeaseCopy(globalKey - 1, &after), 0u);
    EXPECT_EQ(during, 37000u);
    EXPECT_EQ(after.duration, 7000u);
    EXPECT_EQ(get32(reply.get(), 52), 7000);
}

TEST_F(InitialMap, TheSecondRequestOfOneClientKeepsItsKey)
{
    const Reply first = ask();
    const Reply second = ask();

    EXPECT_EQ(get32(first.get(), 56), get32(second.get(), 56));
}

TEST_F(InitialMap, AFileSizeAloneTakesOneSizeCallAndOneMap)
{
    collect_traces();
    put64(request_, 48, 100);
    globalKey = 9;

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 0);
    EXPECT_THAT(calls(), ElementsAre("0 GetCookies /vol/data/dir/file", kMapCall,
                                     "0 SetFileSizes 1011 5051 0 size 100 allocation -1 -1"));
    EXPECT_THAT(g_traces, Contains("FTX2020I GetInitalMap calling FS_SetFileSize key 9\n"));
}

TEST_F(InitialMap, AnAllocationTakesASecondMapWithTheDaemonsFlag)
{
    put64(request_, 56, 8192);
    put32(request_, 72, 4);
    PluginA::script.maps = {map_of(0, 128), map_of(1, 96)};

    const Reply reply = ask();

    EXPECT_THAT(calls(),
                ElementsAre("0 GetCookies /vol/data/dir/file",
                            "0 GetLockedMap 1011 5051 start 0 length -1 flag 4 room 64256",
                            "0 SetFileSizes 1011 5051 0 size -1 allocation 8192 -1",
                            "0 GetLockedMap 1011 5051 start 0 length -1 flag 36 room 64256"));
    EXPECT_EQ(get32(reply.get(), 48), 1);  // the second map's
    EXPECT_EQ(get32(reply.get(), 28), 162 + 96);
}

TEST_F(InitialMap, APartialMapAndASizeChangeReportSuccess)
{
    put64(request_, 48, 100);
    PluginA::script.maps = {map_of(1, 96)};

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 0);
    EXPECT_EQ(MoreCookiesInList(cookie(0x50).data()), 1);
}

TEST_F(InitialMap, APartialMapKeepsItsLeaseAndItsResult)
{
    PluginA::script.maps = {map_of(1, 96)};

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 1);
    EXPECT_EQ(MoreCookiesInList(cookie(0x50).data()), 1);
}

TEST_F(InitialMap, AShortAllocationCountsAsSuccess)
{
    put64(request_, 48, 100);
    PluginA::script.size_results = {400};

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 0);
}

TEST_F(InitialMap, AFailedMapEndsTheLeaseAndUnlocksTheFile)
{
    collect_traces();
    globalKey = 0x2a;
    PluginA::script.maps = {map_of(103, 64)};

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 103);
    EXPECT_EQ(get32(reply.get(), 28), 162 + 64);
    EXPECT_EQ(get32(reply.get(), 52), 0);
    EXPECT_EQ(get32(reply.get(), 56), 0x2a);
    EXPECT_EQ(hex(bytes_of(reply, 96), 64), std::string(128, '0'));
    EXPECT_EQ(calls().back(), "0 UnlockMap 1011 5051");
    EXPECT_EQ(MoreCookiesInList(cookie(0x50).data()), 0);
    EXPECT_THAT(g_traces, Contains("Removing lease from list in GetInitialMap 0x2a\n"));
    EXPECT_THAT(g_traces, Contains("Removed from lease list key:42(0x2a) GetInitialMap\n"));
}

TEST_F(InitialMap, AFailedSizeChangeEndsTheLease)
{
    put64(request_, 48, 100);
    PluginA::script.size_results = {104};

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 104);
    EXPECT_EQ(calls().back(), "0 UnlockMap 1011 5051");
}

TEST_F(InitialMap, AFailedSecondMapEndsTheLease)
{
    put64(request_, 56, 100);
    PluginA::script.maps = {map_of(0, 64), map_of(201, 64)};

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 201);
    EXPECT_EQ(calls().back(), "0 UnlockMap 1011 5051");
}

TEST_F(InitialMap, AnUnlockedMapLeavesNoLeaseAndGrowsByTheTimeItTook)
{
    collect_traces();
    put32(request_, 72, 8);
    globalKey = 0x2b;
    PluginA::script.during_map = [] { g_clock_s = 1003; };

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 0);
    EXPECT_EQ(get32(reply.get(), 52), 8000);
    EXPECT_EQ(get32(reply.get(), 56), 0x2b);
    EXPECT_EQ(calls().back(), "0 UnlockMap 1011 5051");
    EXPECT_EQ(MoreCookiesInList(cookie(0x50).data()), 0);
    EXPECT_THAT(g_traces,
                Contains("FS_M_FLAG_UNLOCKED: Removing lease from list in GetInitialMap 0x2b\n"));
    EXPECT_THAT(g_traces, Contains("Removing lease from list in GetInitialMap 0x2b\n"));
}

TEST_F(InitialMap, ALockedMapGainsNoTime)
{
    PluginA::script.during_map = [] { g_clock_s = 1003; };

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 52), 5000);
}

TEST_F(InitialMap, AnErrorTextCountsOnlyWithAVendorStatus)
{
    MapAnswer answer = map_of(103, 64 + 8);
    put32(answer.record, 16, 64);
    put_text(answer.record, 64, "err");
    put<std::uint16_t>(answer.record, 70, 0);
    PluginA::script.maps = {answer};
    const Reply without = ask();
    put32(PluginA::script.maps[0].record, 20, 3);
    const Reply with = ask();

    EXPECT_EQ(get32(without.get(), 28), 162 + 64);
    EXPECT_EQ(get32(with.get(), 28), 162 + 64 + 6);
}

// What a plug-in may claim, and what comes of it.
struct Claim {
    const char* name;
    std::int32_t msg_len;
    std::int32_t result;
    std::int32_t length;
};
class InitialMapClaim : public InitialMap, public ::testing::WithParamInterface<Claim> {};

TEST_P(InitialMapClaim, IsBelievedOnlyWithinItsRoom)
{
    MapAnswer answer = map_of(0, 64);
    put32(answer.record, 16, static_cast<std::uint32_t>(GetParam().msg_len));
    PluginA::script.maps = {answer};

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), GetParam().result);
    EXPECT_EQ(get32(reply.get(), 28), GetParam().length);
    EXPECT_EQ(get32(reply.get(), 4), 5);
    EXPECT_EQ(MoreCookiesInList(cookie(0x50).data()), GetParam().result == 0 ? 1 : 0);
    EXPECT_EQ(log().find("FTX2027E") != std::string::npos, GetParam().result != 0);
}
INSTANTIATE_TEST_SUITE_P(Claims, InitialMapClaim,
                         ::testing::Values(Claim{"nothing", 0, 0, 162},
                                           Claim{"all", 64256, 0, 162 + 64256},
                                           Claim{"one_more", 64257, 408, 256},
                                           Claim{"huge", 0x7fffffff, 408, 256},
                                           Claim{"negative", -1, 408, 256}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(InitialMap, AnErrorTextWithoutAnEndIsAPlugInError)
{
    MapAnswer answer{103, Bytes(64256, 0x41)};
    put32(answer.record, 16, 64);
    put32(answer.record, 20, 3);
    PluginA::script.maps = {answer};

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 408);
    EXPECT_EQ(get32(reply.get(), 28), 256);
}

TEST_F(InitialMap, NothingThatAPlugInScribbledReachesTheNextReply)
{
    PluginA::script.scribble = [](void* record) { std::memset(record, 0xEE, 64256); };
    const Reply first = ask();
    PluginA::script.scribble = nullptr;
    MapAnswer answer = map_of(0, 64);
    put32(answer.record, 16, 64256);
    PluginA::script.maps = {answer};

    const Reply second = ask();

    ASSERT_EQ(get32(second.get(), 28), 162 + 64256);
    EXPECT_EQ(hex(bytes_of(second, kMap + 64), 64256 - 62), std::string(2 * (64256 - 62), '0'));
}

// Right behind the reported record, in the middle of the room, and at its very end.
TEST_F(InitialMap, AStrayWriteOfAPlugInDoesNotReachTheNextReply)
{
    for (const int stray_at : {64, 500, 30000, 64192}) {
        PluginA::script.maps = {map_of(0, 64)};
        PluginA::script.scribble = [stray_at](void* record) {
            std::memset(static_cast<char*>(record) + stray_at, 0xEE, stray_at == 30000 ? 8192 : 64);
        };
        const Reply first = ask();
        PluginA::script.scribble = nullptr;
        MapAnswer answer = map_of(0, 64);
        put32(answer.record, 16, 64256);
        PluginA::script.maps = {answer};

        const Reply second = ask();

        ASSERT_EQ(get32(second.get(), 28), 162 + 64256);
        EXPECT_EQ(hex(bytes_of(second, kMap + 64), 64256 - 62), std::string(2 * (64256 - 62), '0'))
            << stray_at;
    }
}

TEST_F(InitialMap, AForeignRequestIsTurnedRoundAndAnsweredInOurOrder)
{
    put32(request_, 0, 0x01000000);
    put64(request_, 48, 100);
    put64(request_, 56, 200);
    put32(request_, 64, 7000);
    put32(request_, 72, 4);
    for (const auto& [at, width] : {std::pair{48, 8}, {56, 8}, {64, 4}, {68, 4}, {72, 4}}) {
        reverse(request_, static_cast<std::size_t>(at), static_cast<std::size_t>(width));
    }
    for (std::size_t at = 112; at < 112 + 2048; at += 2) reverse(request_, at, 2);

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 0), 1);
    EXPECT_EQ(get32(reply.get(), 52), 7000);
    EXPECT_THAT(calls(), Contains("0 SetFileSizes 1011 5051 0 size 100 allocation 200 -1"));
    EXPECT_EQ(calls()[0], "0 GetCookies /vol/data/dir/file");
    EXPECT_THAT(calls()[1], HasSubstr("flag 4 "));
}

// Every line of the handler's own; the dumps between them have tests of their own.
TEST_F(InitialMap, TracesItsWayInOrder)
{
    collect_traces();
    globalKey = 0x2c;
    put64(request_, 48, 100);
    put32(request_, 72, 8);
    PluginA::script.cookies_result = 2;

    const Reply reply = ask();

    std::vector<std::string> own;
    for (const auto& line : g_traces) {
        for (const char* start : {"FTX", "---", "FS_", "We ", "Remov"}) {
            if (line.starts_with(start)) own.push_back(line);
        }
    }
    EXPECT_THAT(own,
                ElementsAre("FTX2019I SP_LanGetInitialMap handler called\n",
                            "--- GetInitialMap Message ---\n", "FS_GetCookies returned 2\n",
                            "We have a lib...\n", "FTX2017I Added to lease list  key:44\n",
                            "FTX2020I GetInitalMap calling FS_SetFileSize key 44\n",
                            "FS_M_FLAG_UNLOCKED: Removing lease from list in GetInitialMap 0x2c\n",
                            "Removing lease from list in GetInitialMap 0x2c\n",
                            "Removed from lease list key:44(0x2c) GetInitialMap\n",
                            "--- GetInitalMap Reply Message ---\n"));
}

}  // namespace
}  // namespace fsmdc_test

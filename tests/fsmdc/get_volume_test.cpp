// GetVolume: which volume, which plug-in, and what the reply says.
#include "tests/fsmdc/fake_clock.hpp"
#include "tests/fsmdc/service_fixture.hpp"

namespace fsmdc_test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::size_t kRecord = 88;
constexpr std::uint32_t kRoom = 64512 - 272;

// A volume record with `disks` disks of counting bytes.
MapAnswer volume_of(std::uint32_t result, std::uint32_t disks)
{
    MapAnswer answer{result, Bytes(104 + 80 * disks)};
    fill(answer.record, 0, answer.record.size(), 0x21);
    put32(answer.record, 4, 0);
    put32(answer.record, 20, disks);
    return answer;
}

class GetVolume : public ServiceTest {
protected:
    GetVolume()
    {
        fill(request_, 84, 32, 0x10);
        PluginA::script.volume = volume_of(0, 2);
        PluginB::script.volume = volume_of(0, 1);
    }
    void set_path(const std::string& share) { put_text(request_, 180, share); }
    Reply ask() { return Reply(SP_LanGetVolume(request_.data(), nullptr)); }

    Bytes request_ = request(1, 2228);
};

TEST_F(GetVolume, TheReplyCarriesHeaderResultAndRecord)
{
    AddVolumeDispatcherToList(cookie(0x10).data(), &PluginA::library);

    const Reply reply = ask();

    EXPECT_EQ(hex(reply.get(), 48),
              "0100000005000000404142434445464748494a4b4c4d4e4f"
              "ffffffff"  // code -1
              "60010000"  // 272 + 80
              "000000000000000000002f0000000000");
    EXPECT_EQ(get32(reply.get(), 48), 0);
    EXPECT_EQ(hex(bytes_of(reply, 52), 36), std::string(72, '0'));
    EXPECT_EQ(hex(bytes_of(reply, kRecord), 264), hex(PluginA::script.volume.record));
    EXPECT_THAT(g_calls, ElementsAre("0 GetVolByCookie 1011 room " + std::to_string(kRoom)));
}

TEST_F(GetVolume, AnUnknownCookieHasNoLibrary)
{
    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 405);
    EXPECT_EQ(get32(reply.get(), 28), 272);
    EXPECT_EQ(get32(reply.get(), 4), 77);
    EXPECT_THAT(g_calls, IsEmpty());
}

TEST_F(GetVolume, APathAsksThePlugInsInSlotOrderAndReplacesTheCookie)
{
    PluginA::script.vol_cookie_result = 2;
    PluginB::script.volume_cookie = cookie(0x90);
    set_path("\\vol\\data");

    const Reply reply = ask();

    EXPECT_THAT(g_calls, ElementsAre("0 GetVolCookie /vol/data", "1 GetVolCookie /vol/data",
                                     "1 GetVolByCookie 9091 room " + std::to_string(kRoom)));
    EXPECT_EQ(get32(reply.get(), 4), 6);
    EXPECT_EQ(get32(reply.get(), 28), 272);
    EXPECT_EQ(hex(request_.data() + 84, 32), hex(cookie(0x90)));
    EXPECT_EQ(GetLibrary(cookie(0x90).data()), &PluginB::library);
}

TEST_F(GetVolume, APathThatNobodyClaimsFallsBackOnTheRequestsCookie)
{
    AddVolumeDispatcherToList(cookie(0x10).data(), &PluginB::library);
    PluginA::script.vol_cookie_result = PluginB::script.vol_cookie_result = 2;
    set_path("/vol");

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 0);
    EXPECT_EQ(g_calls.back(), "1 GetVolByCookie 1011 room " + std::to_string(kRoom));
}

TEST_F(GetVolume, AnUnknownShareGivesTheShareCode)
{
    setenv("CORVANE_SMBPATH", "/nonexistent/smb.conf", 1);
    AddVolumeDispatcherToList(cookie(0x10).data(), &PluginA::library);
    set_path("data");

    const Reply reply = ask();

    unsetenv("CORVANE_SMBPATH");
    EXPECT_EQ(get32(reply.get(), 48), 3);
    EXPECT_EQ(get32(reply.get(), 28), 272);
    EXPECT_THAT(g_calls, IsEmpty());
}

TEST_F(GetVolume, ThePlugInsErrorKeepsItsRecord)
{
    AddVolumeDispatcherToList(cookie(0x10).data(), &PluginA::library);
    MapAnswer answer = volume_of(4, 0);
    put32(answer.record, 4, 3);
    answer.record.resize(104 + 12);
    put_text(answer.record, 104, "wrong");
    PluginA::script.volume = answer;

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 4);
    EXPECT_EQ(get32(reply.get(), 28), 274 + 10);
    EXPECT_EQ(hex(bytes_of(reply, kRecord), 116), hex(answer.record));
}

TEST_F(GetVolume, APlugInThatWritesNothingGivesTwoHundredSeventyFourBytes)
{
    AddVolumeDispatcherToList(cookie(0x10).data(), &PluginA::library);
    PluginA::script.volume = {4, Bytes()};

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 4);
    EXPECT_EQ(get32(reply.get(), 28), 274);
    EXPECT_EQ(hex(bytes_of(reply, kRecord), 274 - 88), std::string(2 * (274 - 88), '0'));
}

struct Claim {
    const char* name;
    std::uint32_t disks;
    std::int32_t result;
    std::int32_t length;
};
class GetVolumeClaim : public GetVolume, public ::testing::WithParamInterface<Claim> {};

TEST_P(GetVolumeClaim, IsBelievedOnlyWithinItsRoom)
{
    AddVolumeDispatcherToList(cookie(0x10).data(), &PluginA::library);
    put32(PluginA::script.volume.record, 20, GetParam().disks);

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), GetParam().result);
    EXPECT_EQ(get32(reply.get(), 28), GetParam().length);
    EXPECT_EQ(log().find("FTX2027E") != std::string::npos, GetParam().result != 0);
}
// (64512 - 272 - 104) / 80 = 801 disks fit.
INSTANTIATE_TEST_SUITE_P(Claims, GetVolumeClaim,
                         ::testing::Values(Claim{"one", 1, 0, 272},
                                           Claim{"most", 801, 0, 272 + 64000},
                                           Claim{"one_more", 802, 408, 272},
                                           Claim{"wraps", 0xFFFFFFFF, 408, 272},
                                           Claim{"wraps_to_one", 0x33333334, 408, 272}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(GetVolume, AnErrorTextWithoutAnEndIsAPlugInError)
{
    AddVolumeDispatcherToList(cookie(0x10).data(), &PluginA::library);
    PluginA::script.volume = {0, Bytes(kRoom, 0x41)};
    put32(PluginA::script.volume.record, 20, 0);

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 408);
    EXPECT_EQ(get32(reply.get(), 28), 272);
    EXPECT_EQ(get32(reply.get(), 4), 5);
}

TEST_F(GetVolume, AForeignPathIsTurnedRound)
{
    put32(request_, 0, 0x01000000);
    set_path("/vol");
    for (std::size_t at = 180; at < 180 + 2048; at += 2) reverse(request_, at, 2);

    const Reply reply = ask();

    EXPECT_EQ(g_calls.front(), "0 GetVolCookie /vol");
    EXPECT_EQ(get32(reply.get(), 0), 1);
}

TEST_F(GetVolume, APathWithoutAnEndIsCutAtItsArea)
{
    request_.resize(4096, 0x2F);  // more slashes behind the area
    for (std::size_t at = 180; at < 180 + 2048; at += 2) put<std::uint16_t>(request_, at, '/');

    const Reply reply = ask();

    EXPECT_EQ(g_calls.front(), "0 GetVolCookie " + std::string(255, '/'));
}

TEST_F(GetVolume, DumpsRequestAndReply)
{
    collect_traces();
    AddVolumeDispatcherToList(cookie(0x10).data(), &PluginA::library);

    const Reply reply = ask();

    EXPECT_EQ(g_traces[0], "FTX2018I SP_LanGetVolume handler called\n");
    EXPECT_EQ(g_traces[1], "--- GetVolume Message ---\n");
    EXPECT_THAT(g_traces, Contains("--- GetVolume Reply Message ---\n"));
    EXPECT_THAT(g_traces, Contains("nDisks              2\n"));
}

TEST_F(GetVolume, TheAnswersOfBothPlugInsGoToTheirOwnVolumes)
{
    FSMDCSP_AddVolumeSubCookie(cookie(0x30).data());
    FSMDCSP_AddVolumeSubCookie(nullptr);
    AddVolumeDispatcherToList(cookie(0x30).data(), &PluginB::library);
    FSMDCSP_AddVolumeSubCookie(cookie(0x31).data());

    EXPECT_EQ(GetLibrary(cookie(0x30).data()), &PluginB::library);
    EXPECT_EQ(GetLibrary(cookie(0x31).data()), &PluginA::library);
    EXPECT_EQ(GetLibrary(cookie(0x32).data()), nullptr);
    EXPECT_EQ(GetLibrary(nullptr), nullptr);
}

}  // namespace
}  // namespace fsmdc_test

// GetExtendedMap: the lease's file, sizes, map, renewal, and what the reply says.
#include "tests/fsmdc/fake_clock.hpp"
#include "tests/fsmdc/service_fixture.hpp"

namespace fsmdc_test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::size_t kRecord = 88;
constexpr std::uint32_t kRoom = 64512 - 184;

MapAnswer map_of(std::uint32_t result, std::uint32_t msg_len, std::size_t bytes = 96)
{
    MapAnswer answer{result, Bytes(bytes)};
    put64(answer.record, 0, 0x1122334455667788);
    put32(answer.record, 16, msg_len);
    fill(answer.record, 64, bytes - 64, 0x61);
    return answer;
}

class ExtendedMap : public ServiceTest {
protected:
    ExtendedMap()
    {
        g_clock_s = 1000;
        EXPECT_EQ(AddLeaseToList(cookie(0x10).data(), cookie(0x50).data(), cookie(1, 16).data(),
                                 cookie(2, 16).data(), 1, 99000, &key_, &PluginA::library),
                  0);
        AddVolumeDispatcherToList(cookie(0x10).data(), &PluginA::library);
        put64(request_, 48, -1);
        put64(request_, 56, -1);
        put64(request_, 64, 4096);    // start
        put64(request_, 72, 100000);  // length
        put32(request_, 80, 7000);    // lease
        put32(request_, 84, key_);
        put32(request_, 88, 2);  // flag
        PluginA::script.maps = {map_of(0, 96)};
        g_clock_s = 1010;
    }
    Reply ask() { return Reply(SP_LanGetExtendedMap(request_.data(), nullptr)); }
    LeaseRecord lease()
    {
        LeaseRecord copy{};
        EXPECT_EQ(GetLeaseCopy(key_, &copy), 0u);
        return copy;
    }

    std::uint32_t key_ = 0;
    Bytes request_ = request(3, 92);
};

TEST_F(ExtendedMap, TheReplyCarriesHeaderLeaseAndMapWithTheRequestsRevision)
{
    const Reply reply = ask();

    EXPECT_EQ(hex(reply.get(), 48),
              "010000004d000000404142434445464748494a4b4c4d4e4ffdffffff"
              "02010000"  // 162 + 96
              "000000000000000000002f0000000000");
    EXPECT_EQ(get32(reply.get(), 48), 0);
    EXPECT_EQ(get32(reply.get(), 52), 7000);
    EXPECT_EQ(hex(bytes_of(reply, 56), 32), std::string(64, '0'));
    EXPECT_EQ(hex(bytes_of(reply, kRecord), 96), hex(PluginA::script.maps[0].record));
    EXPECT_EQ(hex(bytes_of(reply, kRecord + 96), 162 - 88), std::string(2 * (162 - 88), '0'));
    EXPECT_THAT(calls(),
                ElementsAre("0 GetLockedMap 1011 5051 start 4096 length 100000 flag 2 room " +
                            std::to_string(kRoom)));
}

TEST_F(ExtendedMap, TheLeaseStartsAnew)
{
    const Reply reply = ask();

    EXPECT_EQ(lease().duration, 7000u);
    EXPECT_EQ(lease().creationTime, 1010000u);
}

TEST_F(ExtendedMap, TheLeaseGrowsByTheTimeTheMapTook)
{
    PluginA::script.during_map = [] { g_clock_s = 1013; };

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 52), 10000);
    EXPECT_EQ(lease().duration, 10000u);
}

TEST_F(ExtendedMap, AClockSetBackAddsNothing)
{
    PluginA::script.during_map = [] { g_clock_s = 1009; };

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 52), 7000);
}

TEST_F(ExtendedMap, LengthZeroAsksForTheWholeFile)
{
    put64(request_, 72, 0);

    const Reply reply = ask();

    EXPECT_THAT(calls(), ElementsAre("0 GetLockedMap 1011 5051 start 4096 length -1 flag 2 room " +
                                     std::to_string(kRoom)));
}

TEST_F(ExtendedMap, ALengthInTheWrongOrderIsMended)
{
    put64(request_, 72, 0x0010000000000000);  // 4096, reversed

    const Reply reply = ask();

    EXPECT_EQ(calls().front().substr(0, 49), "0 GetLockedMap 1011 5051 start 4096 length 4096 f");
}

TEST_F(ExtendedMap, AnUnknownKeyIsInvalid)
{
    put32(request_, 84, key_ + 1);

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 407);
    EXPECT_EQ(get32(reply.get(), 28), 184);
    EXPECT_EQ(get32(reply.get(), 4), 77);
    EXPECT_EQ(hex(bytes_of(reply, 52), 184 - 52), std::string(2 * (184 - 52), '0'));
    EXPECT_THAT(g_calls, IsEmpty());
}

TEST_F(ExtendedMap, WithoutALibraryTheReplyIsOneOfAnEmptyRecord)
{
    corvane::reset_dispatchers();

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 405);
    EXPECT_EQ(get32(reply.get(), 28), 162);
    EXPECT_EQ(hex(bytes_of(reply, 52), 162 - 52), std::string(2 * (162 - 52), '0'));
}

TEST_F(ExtendedMap, SizesAreSetBeforeTheMapAndMakeAWriteLease)
{
    collect_traces();
    put64(request_, 48, 100);
    put64(request_, 56, 200);
    put32(request_, 80, 0);
    PluginA::script.size_results = {400};
    PluginA::script.write_s = 9;

    const Reply reply = ask();

    EXPECT_THAT(g_calls,
                ElementsAre("0 SetFileSizes 1011 5051 0 size 100 allocation 200 -1",
                            "0 GetLockedMap 1011 5051 start 4096 length 100000 flag 2 room " +
                                std::to_string(kRoom),
                            "0 GetMaxLeases 1011 read 3600000 write 3600000"));
    EXPECT_EQ(get32(reply.get(), 48), 0);
    EXPECT_EQ(get32(reply.get(), 52), 9000);
    EXPECT_THAT(g_traces, Contains("FTX2022I GetExtendedMap calling FS_SetFileSize key " +
                                   std::to_string(key_) + "\n"));
}

TEST_F(ExtendedMap, WithoutSizesItIsAReadLease)
{
    put32(request_, 80, 0);
    PluginA::script.read_s = 3;

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 52), 3000);
    EXPECT_EQ(g_calls.back(), "0 GetMaxLeases 1011 read 5000 write 5000");
}

TEST_F(ExtendedMap, AFailedSizeChangeIsTheResultAndMapsNothing)
{
    put64(request_, 56, 200);
    PluginA::script.size_results = {1};

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 1);
    EXPECT_EQ(get32(reply.get(), 28), 162);
    EXPECT_THAT(calls(), ElementsAre("0 SetFileSizes 1011 5051 0 size -1 allocation 200 -1"));
    EXPECT_EQ(lease().duration, 99000u);
}

TEST_F(ExtendedMap, APartialMapIsSentButRenewsNothing)
{
    PluginA::script.maps = {map_of(1, 96)};

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 1);
    EXPECT_EQ(get32(reply.get(), 28), 162 + 96);
    EXPECT_EQ(get32(reply.get(), 52), 0);
    EXPECT_EQ(lease().duration, 99000u);
    EXPECT_EQ(lease().creationTime, 1000000u);
}

TEST_F(ExtendedMap, APartialMapThatIsTooLongIsReportedWithoutIt)
{
    PluginA::script.maps = {map_of(1, 64512 - 162 + 1)};

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 1);
    EXPECT_EQ(get32(reply.get(), 28), 184);
    EXPECT_EQ(get32(reply.get(), 4), 77);
    EXPECT_EQ(hex(bytes_of(reply, 52), 184 - 52), std::string(2 * (184 - 52), '0'));
}

TEST_F(ExtendedMap, AWholeMapThatClaimsMoreThanItsRoomIsAPlugInError)
{
    PluginA::script.maps = {map_of(0, kRoom + 1)};

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 408);
    EXPECT_EQ(get32(reply.get(), 28), 184);
    EXPECT_EQ(lease().duration, 99000u);
    EXPECT_NE(log().find("FTX2027E"), std::string::npos);
}

TEST_F(ExtendedMap, AWholeMapMayFillItsRoom)
{
    PluginA::script.maps = {map_of(0, kRoom)};

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 0);
    EXPECT_EQ(get32(reply.get(), 28), static_cast<std::int32_t>(162 + kRoom));
}

TEST_F(ExtendedMap, TheErrorOfThePlugInIsTheResult)
{
    PluginA::script.maps = {map_of(201, 64)};

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 201);
    EXPECT_EQ(get32(reply.get(), 52), 0);
    EXPECT_EQ(lease().duration, 99000u);
}

TEST_F(ExtendedMap, ALeaseThatWentMeanwhileCannotBeRenewed)
{
    PluginA::script.during_map = [&] {
        Bytes volume(32);
        Bytes file(32);
        EXPECT_EQ(RemoveLeaseFromList(key_, volume.data(), file.data(), nullptr, "test"), 0u);
    };

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 409);
    EXPECT_EQ(get32(reply.get(), 52), 0);
    EXPECT_EQ(get32(reply.get(), 28), 162 + 96);
}

TEST_F(ExtendedMap, AForeignRequestIsTurnedRound)
{
    put32(request_, 0, 0x01000000);
    for (const auto& [at, width] :
         {std::pair{48, 8}, {56, 8}, {64, 8}, {72, 8}, {80, 4}, {84, 4}, {88, 4}}) {
        reverse(request_, static_cast<std::size_t>(at), static_cast<std::size_t>(width));
    }

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 0), 1);
    EXPECT_EQ(get32(reply.get(), 52), 7000);
    EXPECT_THAT(calls(),
                ElementsAre("0 GetLockedMap 1011 5051 start 4096 length 100000 flag 2 room " +
                            std::to_string(kRoom)));
}

TEST_F(ExtendedMap, TracesAfterTheTranslation)
{
    collect_traces();
    put32(request_, 0, 0x01000000);
    put32(request_, 84, 0x01000000);

    const Reply reply = ask();

    EXPECT_EQ(g_traces[0], "FTX2021I SP_LanGetExtendedMap handler called key 1\n");
    EXPECT_EQ(g_traces[1], "--- GetExtendedMap Message ---\n");
    EXPECT_THAT(g_traces, Contains("--- GetExtendedMap Reply Message ---\n"));
}

}  // namespace
}  // namespace fsmdc_test

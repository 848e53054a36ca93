// Keys, lease arithmetic, and when a file is unlocked.
#include "tests/daemon/recorder_world.hpp"

namespace corvane::harness {
namespace {

class Leases : public RecorderWorld {
protected:
    std::size_t unlocks()
    {
        std::size_t count = 0;
        for (const auto& made : calls()) count += made == unlock_call() ? 1 : 0;
        return count;
    }
};

TEST_F(Leases, KeysCountUpFromZeroAndAreNeverUsedAgain)
{
    start_with({});
    UdpClient asker = client();

    EXPECT_EQ(open_key(asker, map_of()), 0U);
    EXPECT_EQ(open_key(asker, map_of()), 1U);
    EXPECT_EQ(asker.ask(codec::close_file(header(), 1)).i32(48), 0);
    EXPECT_EQ(open_key(asker, map_of()), 2U);
    EXPECT_EQ(open_key(asker, map_of("/vol", "other")), 3U);
}

TEST_F(Leases, SameMessageOfTheSameClientKeepsItsKey)
{
    start_with({});
    UdpClient asker = client();
    const codec::Bytes request = codec::get_initial_map(header(), map_of());

    const codec::Bytes first = asker.ask(request);
    const codec::Bytes second = asker.ask(request);

    EXPECT_EQ(first.u32(56), 0U);
    EXPECT_EQ(second.u32(56), 0U);
    EXPECT_EQ(open_key(asker, map_of()), 1U);
    EXPECT_EQ(asker.ask(codec::close_file(header(), 0)).i32(48), 0);
    EXPECT_EQ(asker.ask(codec::close_file(header(), 0)).i32(48), 407) << "there was one lease";
}

TEST_F(Leases, SameMessageOfAnotherClientGetsAKeyOfItsOwn)
{
    start_with({});
    const codec::Bytes request = codec::get_initial_map(header(), map_of());

    EXPECT_EQ(client().ask(request).u32(56), 0U);
    EXPECT_EQ(client().ask(request).u32(56), 1U);
}

TEST_F(Leases, FileIsUnlockedWithItsLastLease)
{
    start_with({});
    UdpClient asker = client();
    const std::uint32_t first = open_key(asker, map_of());
    const std::uint32_t second = open_key(asker, map_of());

    EXPECT_EQ(asker.ask(codec::close_file(header(), first)).i32(48), 0);
    EXPECT_EQ(unlocks(), 0U);
    EXPECT_EQ(asker.ask(codec::close_file(header(), second)).i32(48), 0);

    EXPECT_EQ(unlocks(), 1U);
}

TEST_F(Leases, UnlockedMapKeepsTheFileLockedForOthers)
{
    start_with({});
    UdpClient asker = client();
    const std::uint32_t held = open_key(asker, map_of());
    codec::InitialMap unlocked = map_of();
    unlocked.flag = 8;

    (void)open_key(asker, unlocked);

    EXPECT_EQ(unlocks(), 0U);
    EXPECT_EQ(asker.ask(codec::close_file(header(), held)).i32(48), 0);
    EXPECT_EQ(unlocks(), 1U);
}

struct Arithmetic {
    const char* name;
    std::int32_t requested;
    std::int32_t intention;
    const char* limits;  // the recorder's answer to FS_GetMaxLeases
    std::int32_t granted;
};

class LeaseArithmetic : public RecorderWorld, public ::testing::WithParamInterface<Arithmetic> {};

TEST_P(LeaseArithmetic, Grants)
{
    Script answers;
    answers.leases = GetParam().limits;
    start_with(answers);
    codec::InitialMap map = map_of();
    map.lease = GetParam().requested;
    map.intention = GetParam().intention;

    const codec::Bytes reply = client().ask(codec::get_initial_map(header(), map));

    EXPECT_EQ(reply.i32(48), 0);
    EXPECT_EQ(reply.i32(52), GetParam().granted);
}

INSTANTIATE_TEST_SUITE_P(
    Table, LeaseArithmetic,
    ::testing::Values(
        Arithmetic{"ReadDefault", 0, 1, "result=1", 5000},
        Arithmetic{"WriteDefault", 0, 2, "result=1", 3600000},
        Arithmetic{"AnyOtherIntentionWrites", 0, 0, "result=1", 3600000},
        Arithmetic{"AsRequested", 1234, 1, "result=1", 1234},
        Arithmetic{"LimitsOfAFailedQuestionDoNotCount", 60000, 1, "result=1 read=1 write=1", 60000},
        Arithmetic{"ReadLimit", 60000, 1, "result=0 read=20 write=1", 20000},
        Arithmetic{"WriteLimit", 60000, 2, "result=0 read=1 write=10", 10000},
        Arithmetic{"BelowTheLimit", 9999, 2, "result=0 read=1 write=10", 9999},
        Arithmetic{"AtTheLimit", 10000, 2, "result=0 read=1 write=10", 10000},
        // 0 stands for 5000 and 3600000, which then count as seconds.
        Arithmetic{"ReadZero", 6000000, 1, "result=0 read=0 write=1", 5000000},
        Arithmetic{"WriteZeroWrapsToADay", 100000000, 2, "result=0 read=1 write=0", 86400000},
        // 3000000 x 1000 is negative in 32 bits: a day.
        Arithmetic{"NegativeProductIsADay", 100000000, 1, "result=0 read=3000000 write=1",
                   86400000},
        Arithmetic{"NegativeLimitIsADay", 100000000, 1, "result=0 read=-1 write=1", 86400000},
        // 5000000 x 1000 wraps to 705032704.
        Arithmetic{"WrappedProduct", 800000000, 1, "result=0 read=5000000 write=1", 705032704},
        Arithmetic{"NegativeRequestStays", -30000, 1, "result=0 read=20 write=20", -30000}),
    [](const auto& row) { return row.param.name; });

TEST_F(Leases, PluginWithoutLimitsGrantsWhatIsAsked)
{
    std::filesystem::remove(world().path("/usr/Corvane/lib/recorder.so"));
    install_recorder("recorder.so", "corvane_recorder_without_leases");
    start_with({});
    codec::InitialMap map = map_of();
    map.lease = 2000000000;

    EXPECT_EQ(client().ask(codec::get_initial_map(header(), map)).i32(52), 2000000000);
}

// The intention of the lease decides in SetSize; in GetExtendedMap the request's sizes do.
TEST_F(Leases, SetSizeUsesTheLeasesIntention)
{
    Script answers;
    answers.leases = "result=0 read=20 write=10";
    start_with(answers);
    UdpClient asker = client();
    codec::InitialMap writer = map_of();
    writer.intention = 2;
    const std::uint32_t read_key = open_key(asker, map_of());
    const std::uint32_t write_key = open_key(asker, writer);

    EXPECT_EQ(asker.ask(codec::set_size(header(), read_key, 1, 60000)).i32(52), 20000);
    EXPECT_EQ(asker.ask(codec::set_size(header(), write_key, 1, 60000)).i32(52), 10000);
    codec::ExtendedMap extended;
    extended.key = write_key;
    extended.lease = 60000;
    const std::int32_t granted = asker.ask(codec::get_extended_map(header(), extended)).i32(52);
    EXPECT_TRUE(granted == 20000 || granted == 21000) << granted;
}

TEST_F(Leases, ManyLeasesOfManyClientsAllClose)
{
    start_with({});
    UdpClient one = client();
    UdpClient two = client();
    std::vector<std::uint32_t> keys;
    keys.reserve(500);
    for (int i = 0; i < 500; ++i) keys.push_back(open_key(i % 2 == 0 ? one : two, map_of()));

    for (const std::uint32_t key : keys) {
        ASSERT_EQ(one.ask(codec::close_file(header(), key)).i32(48), 0) << key;
    }

    EXPECT_EQ(unlocks(), 1U);
    EXPECT_EQ(one.ask(codec::close_file(header(), keys[0])).i32(48), 407);
}

}  // namespace
}  // namespace corvane::harness

// Leases that run out by themselves. A lease is purged 30 s after its duration; the purge thread
// looks every 5 s, so a negative duration shows quickly what a usual one shows in half a minute.
#include "tests/daemon/recorder_world.hpp"

namespace corvane::harness {
namespace {

constexpr milliseconds kPurgePatience{60000};

class LeaseExpiry : public RecorderWorld {
protected:
    bool unlocked(milliseconds limit)
    {
        return eventually([this] { return !calls().empty() && calls().back() == unlock_call(); },
                          limit);
    }
};

// -30000 and the grace of 30000 make an age of 0 enough.
TEST_F(LeaseExpiry, PurgeThreadUnlocksWithoutAnyRequest)
{
    start_with({});
    set_level(3);
    codec::InitialMap map = map_of();
    map.lease = -30000;
    UdpClient asker = client();
    const std::uint32_t key = open_key(asker, map);
    forget_calls();

    EXPECT_TRUE(unlocked(kPurgePatience));

    EXPECT_TRUE(
        logged("corvaned: Purged lease  key:0x0, intention:1  duration:4294937296 creation:"));
    EXPECT_TRUE(logged("corvaned: purging expired lease 0x0\n"));
    EXPECT_EQ(asker.ask(codec::close_file(header(), key)).i32(48), 407);
}

// More leases than count as a long list, all of one file: it is unlocked when the last one is gone.
TEST_F(LeaseExpiry, PurgeThreadEndsALongList)
{
    constexpr int kLeases = 9000;
    start_with({});
    codec::InitialMap map = map_of();
    map.lease = -15000;
    UdpClient asker = client();
    const std::uint32_t first = open_key(asker, map);
    std::uint32_t last = first;
    for (int i = 1; i < kLeases; ++i) last = open_key(asker, map);
    EXPECT_EQ(last, first + kLeases - 1);
    forget_calls();

    EXPECT_TRUE(unlocked(kPurgePatience));

    EXPECT_EQ(asker.ask(codec::close_file(header(), first)).i32(48), 407);
    EXPECT_EQ(asker.ask(codec::close_file(header(), last)).i32(48), 407);
}

TEST_F(LeaseExpiry, NewLeasePurgesExpiredOnes)
{
    start_with({});
    codec::InitialMap expired = map_of();
    expired.lease = -30000;
    UdpClient asker = client();
    const std::uint32_t key = open_key(asker, expired);

    (void)open_key(asker, map_of());

    EXPECT_EQ(asker.ask(codec::close_file(header(), key)).i32(48), 407);
    for (const auto& made : calls())
        EXPECT_NE(made, unlock_call()) << "the other lease holds the file";
}

TEST_F(LeaseExpiry, LeaseOutlivesItsDurationByThirtySeconds)
{
    start_with({});
    codec::InitialMap map = map_of();
    map.lease = 1;
    UdpClient asker = client();
    const auto opened = std::chrono::steady_clock::now();
    const std::uint32_t key = open_key(asker, map);
    forget_calls();

    ASSERT_TRUE(unlocked(kPurgePatience));

    // The daemon's clock moves in whole seconds, so that its 30001 ms may be a second shorter than
    // ours.
    EXPECT_GE(std::chrono::steady_clock::now() - opened, std::chrono::seconds(29));
    EXPECT_EQ(asker.ask(codec::close_file(header(), key)).i32(48), 407);
}

TEST_F(LeaseExpiry, RenewedLeaseLivesOn)
{
    start_with({});
    codec::InitialMap expired = map_of();
    expired.lease = -29000;
    UdpClient asker = client();
    const std::uint32_t key = open_key(asker, expired);
    EXPECT_EQ(asker.ask(codec::set_size(header(), key, 10, 60000)).i32(52), 60000);

    EXPECT_FALSE(unlocked(milliseconds(7500))) << "one round of the purge thread passed";

    EXPECT_EQ(asker.ask(codec::close_file(header(), key)).i32(48), 0);
}

}  // namespace
}  // namespace corvane::harness

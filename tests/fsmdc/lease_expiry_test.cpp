// When a lease has run out, to the millisecond, and the wheel against a plain look at every lease.
#include "fsmdc/lease_expiry.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <memory>
#include <random>
#include <set>
#include <vector>

namespace corvane {
namespace {

using ::testing::UnorderedElementsAre;

LeaseRecord lease_of_time(std::uint32_t creation, std::uint32_t duration)
{
    LeaseRecord record{};
    record.creationTime = creation;
    record.duration = duration;
    return record;
}

struct Moment {
    const char* name;
    std::uint32_t creation;
    std::uint32_t duration;
    std::uint32_t now;
    bool expired;
};
class LeaseExpired : public ::testing::TestWithParam<Moment> {};

TEST_P(LeaseExpired, IsDecidedByAgeAndDuration)
{
    const Moment& moment = GetParam();

    EXPECT_EQ(has_expired(lease_of_time(moment.creation, moment.duration), moment.now),
              moment.expired);
}
INSTANTIATE_TEST_SUITE_P(
    Moments, LeaseExpired,
    ::testing::Values(Moment{"a_millisecond_early", 1000, 5000, 35999, false},
                      Moment{"on_time", 1000, 5000, 36000, true},
                      Moment{"zero_duration_early", 1000, 0, 30999, false},
                      Moment{"zero_duration_on_time", 1000, 0, 31000, true},
                      // 39999 of 40000 have passed over the wrap by a rule that loses one
                      Moment{"wrapped_early", 0xFFFFFFFF - 9999, 10000, 30000, false},
                      Moment{"wrapped_on_time", 0xFFFFFFFF - 9999, 10000, 30001, true},
                      Moment{"clock_set_back", 10000, 5000, 9000, true},
                      Moment{"endless_duration_wraps", 0, 0xFFFFFFFF, 29998, false},
                      Moment{"endless_duration_has_wrapped", 0, 0xFFFFFFFF, 29999, true}),
    [](const auto& test) { return std::string(test.param.name); });

// Leases filed in the wheel, and the same leases in a set that is looked through one by one.
class Wheel : public ::testing::Test {
protected:
    Lease& add(std::uint32_t duration)
    {
        auto& lease = *leases_.emplace_back(std::make_unique<Lease>());
        lease.record.key = static_cast<std::uint32_t>(leases_.size());
        renew(lease, duration);
        live_.insert(&lease);
        return lease;
    }
    void renew(Lease& lease, std::uint32_t duration)
    {
        lease.record.creationTime = now_;
        lease.record.duration = duration;
        wheel_->file(lease, now_);
    }
    void forget(Lease& lease)
    {
        wheel_->forget(lease);
        live_.erase(&lease);
    }
    // All that the wheel gives out at `now`, `looks` at a time.
    std::set<Lease*> purge(std::size_t looks = 1000)
    {
        std::set<Lease*> taken;
        std::array<Lease*, 7> some;
        do {
            const std::size_t count = wheel_->take_expired(now_, looks, some);
            taken.insert(some.begin(), some.begin() + count);
        } while (wheel_->has_backlog());
        return taken;
    }
    std::set<Lease*> purge_one_by_one()
    {
        std::set<Lease*> taken;
        for (Lease* lease : live_) {
            if (has_expired(lease->record, now_)) taken.insert(lease);
        }
        for (Lease* lease : taken) live_.erase(lease);
        return taken;
    }

    std::uint32_t now_ = 5000000;
    std::unique_ptr<LeaseExpiry> wheel_ = std::make_unique<LeaseExpiry>();
    std::vector<std::unique_ptr<Lease>> leases_;
    std::set<Lease*> live_;
};

TEST_F(Wheel, GivesOutALeaseToTheMillisecond)
{
    Lease& lease = add(5000);
    now_ += 34999;
    EXPECT_TRUE(purge().empty());
    now_ += 1;
    EXPECT_THAT(purge(), UnorderedElementsAre(&lease));
}

TEST_F(Wheel, ReachesBeyondItsOwnTurn)
{
    Lease& lease = add(3 * 86400 * 1000);
    now_ += 3 * 86400 * 1000 + 29999;
    EXPECT_TRUE(purge().empty());
    now_ += 1;
    EXPECT_THAT(purge(), UnorderedElementsAre(&lease));
}

TEST_F(Wheel, HasNothingToDoUntilTheClockMoves)
{
    add(5000);
    (void)purge();
    EXPECT_FALSE(wheel_->wants_purge(now_));
    EXPECT_TRUE(wheel_->wants_purge(now_ + 1000));
}

TEST_F(Wheel, ALeaseThatWasHandedOutIsAlwaysLookedAt)
{
    Lease& lease = add(3600000);
    wheel_->hand_out(lease);
    renew(lease, 3600000);
    EXPECT_TRUE(purge().empty());
    lease.record.creationTime -= 3700000;

    EXPECT_TRUE(wheel_->wants_purge(now_));
    EXPECT_THAT(purge(), UnorderedElementsAre(&lease));
    EXPECT_FALSE(wheel_->wants_purge(now_));
}

TEST_F(Wheel, AForgottenLeaseIsNeverGivenOut)
{
    Lease& lease = add(0);
    forget(lease);
    forget(lease);
    now_ += 100000;

    EXPECT_TRUE(purge().empty());
}

// Thousands of random grants, renewals, ends, clock steps (back and over the wrap, too) and purges.
TEST_F(Wheel, AgreesWithALookAtEveryLease)
{
    std::mt19937 engine(20240229);
    const auto random = [&] { return static_cast<std::uint32_t>(engine()); };
    const auto any = [&](std::uint32_t below) { return random() % below; };
    now_ = 4294900000U;
    for (int step = 0; step < 6000; ++step) {
        const std::uint32_t what = any(100);
        if (what < 40) {
            add(any(10) == 0 ? random() : any(200) * 500);
        } else if (what < 55 && !live_.empty()) {
            auto lease = live_.begin();
            std::advance(lease, any(static_cast<std::uint32_t>(live_.size())));
            renew(**lease, any(100) * 500);
        } else if (what < 65 && !live_.empty()) {
            auto lease = live_.begin();
            std::advance(lease, any(static_cast<std::uint32_t>(live_.size())));
            forget(**lease);
        } else if (what < 90) {
            now_ += any(20) == 0 ? any(20000000) : any(3000);
        } else if (what < 91) {
            now_ -= any(5000);
        }
        ASSERT_EQ(purge(1 + any(50)), purge_one_by_one()) << "step " << step << ", clock " << now_;
    }
}

}  // namespace
}  // namespace corvane

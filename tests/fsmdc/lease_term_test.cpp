// How long a lease is granted for.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "fsmdc/lease.h"

namespace {

struct Limits {
    std::uint32_t result = 0;
    std::int32_t read_s = 0;
    std::int32_t write_s = 0;
};
Limits g_limits;
std::int32_t g_offered_read;
std::int32_t g_offered_write;

std::uint32_t get_max_leases(const void*, std::int32_t* read_s, std::int32_t* write_s)
{
    g_offered_read = *read_s;
    g_offered_write = *write_s;
    *read_s = g_limits.read_s;
    *write_s = g_limits.write_s;
    return g_limits.result;
}

struct Term {
    const char* name;
    std::int32_t requested_ms;
    std::int32_t intention;
    Limits limits;
    std::int32_t granted_ms;
};
class LeaseTerm : public ::testing::TestWithParam<Term> {};

TEST_P(LeaseTerm, IsTheWantedOneWithinTheLimits)
{
    const Term& term = GetParam();
    g_limits = term.limits;
    FsLibrary library{};
    library.FS_GetMaxLeases = get_max_leases;
    const unsigned char cookie[32] = {};

    EXPECT_EQ(CalcLease(term.requested_ms, term.intention, &library, cookie), term.granted_ms);
}
INSTANTIATE_TEST_SUITE_P(
    Terms, LeaseTerm,
    ::testing::Values(
        Term{"below_the_limit", 9999, 1, {0, 10, 5}, 9999},
        Term{"at_the_limit", 10000, 1, {0, 10, 5}, 10000},
        Term{"above_the_limit", 10001, 1, {0, 10, 5}, 10000},
        Term{"write_limit", 10001, 2, {0, 10, 5}, 5000},
        Term{"any_other_intention_writes", 10001, 0, {0, 10, 5}, 5000},
        Term{"write_limit_beside_no_read_limit", 60000, 2, {0, 0, 10}, 10000},
        Term{"limits_of_a_refusal_do_not_count", 60000, 2, {1, 1, 1}, 60000},
        // 5000 ms, taken for seconds
        Term{"no_read_limit", 5000001, 1, {0, 0, 1}, 5000000},
        // 3600000 s are negative as 32-bit milliseconds: a day
        Term{"no_write_limit", 86400001, 2, {0, 1, 0}, 86400000},
        Term{"limit_that_turns_negative", 2000000000, 1, {0, 2147484, 1}, 86400000},
        Term{"longest_limit_that_does_not", 2147483647, 1, {0, 2147483, 1}, 2147483000},
        Term{"limit_that_wraps_to_positive", 2000000000, 1, {0, 4294968, 1}, 704},
        Term{"negative_limit", 2000000000, 1, {0, -1, 1}, 86400000},
        Term{"negative_lease_stays", -5, 1, {0, 10, 10}, -5},
        Term{"default_read", 0, 1, {0, 1000, 1000}, 5000},
        Term{"default_write", 0, 2, {0, 9000, 9000}, 3600000}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(LeaseTermOffer, ThePlugInIsOfferedTheLeaseTwice)
{
    FsLibrary library{};
    library.FS_GetMaxLeases = get_max_leases;
    const unsigned char cookie[32] = {};

    (void)CalcLease(0, 2, &library, cookie);

    EXPECT_EQ(g_offered_read, 3600000);
    EXPECT_EQ(g_offered_write, 3600000);
}

TEST(LeaseTermOffer, WithoutLibraryEntryOrCookieNobodyIsAsked)
{
    g_limits = {0, 1, 1};
    FsLibrary library{};
    const unsigned char cookie[32] = {};

    EXPECT_EQ(CalcLease(60000, 1, nullptr, cookie), 60000);
    EXPECT_EQ(CalcLease(60000, 1, &library, cookie), 60000);
    library.FS_GetMaxLeases = get_max_leases;
    EXPECT_EQ(CalcLease(60000, 1, &library, nullptr), 60000);
}

TEST(LeaseTermOffer, TheDefaultsAreSettings)
{
    defaultReadLease = 7;
    defaultWriteLease = 8;

    EXPECT_EQ(CalcLease(0, 1, nullptr, nullptr), 7);
    EXPECT_EQ(CalcLease(0, 3, nullptr, nullptr), 8);

    defaultReadLease = 5000;
    defaultWriteLease = 3600000;
}

}  // namespace

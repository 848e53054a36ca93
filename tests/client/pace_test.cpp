// The length of one transfer follows what the disk has shown.
#include "client/pace.hpp"

#include <gtest/gtest.h>

namespace corvane {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::int64_t kMiB = 1 << 20;

TEST(Pace, UnknownDiskIsTakenForASlowOne)
{
    const Pace pace(4096);

    EXPECT_EQ(pace.step_bytes(milliseconds(1250)), 4 * kMiB);
    EXPECT_EQ(pace.step_bytes(milliseconds(150)), kMiB);
    EXPECT_EQ(pace.step_bytes(milliseconds(1)), 4096);
}

TEST(Pace, StepsAreWholeBlocksAndNeverNone)
{
    const Pace pace(65536);

    EXPECT_EQ(pace.step_bytes(milliseconds(0)), 65536);
    EXPECT_EQ(pace.step_bytes(milliseconds(-5)), 65536);
    EXPECT_EQ(pace.step_bytes(milliseconds(13)), 65536);
    EXPECT_EQ(pace.step_bytes(seconds(3600)), 4 * kMiB);
}

TEST(Pace, SlowDiskCountsAtOnceFastOneByAndBy)
{
    Pace pace(4096);
    pace.took(kMiB, seconds(1));
    EXPECT_EQ(pace.step_bytes(seconds(1)), kMiB);
    pace.took(kMiB / 16, seconds(1));
    EXPECT_EQ(pace.step_bytes(seconds(1)), kMiB / 16);
    pace.took(4 * kMiB, milliseconds(1));
    EXPECT_EQ(pace.step_bytes(seconds(1)), kMiB / 8);
    pace.took(4 * kMiB, milliseconds(1));
    EXPECT_EQ(pace.step_bytes(seconds(1)), kMiB / 4);
    pace.took(0, seconds(9));
    EXPECT_EQ(pace.step_bytes(seconds(1)), kMiB / 4);
}

}  // namespace
}  // namespace corvane

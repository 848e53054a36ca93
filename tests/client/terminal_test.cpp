// The progress line.
#include "client/terminal.hpp"

#include <gtest/gtest.h>

namespace corvane {
namespace {

constexpr std::int64_t kMi = 1 << 20;

TEST(Progress, LineHasShareRateAndTimeLeft)
{
    EXPECT_EQ(progress_line(256 * kMi, 1024 * kMi, 2.0),
              " 25%  256 MiB of 1 GiB  128 MiB/s  0:06 left");
    EXPECT_EQ(progress_line(1024 * kMi, 1024 * kMi, 8.0),
              "100%  1 GiB of 1 GiB  128 MiB/s  0:00 left");
    EXPECT_EQ(progress_line(kMi, 8192 * kMi, 1.0), "  0%  1 MiB of 8 GiB  1 MiB/s  2:16:31 left");
}

TEST(Progress, NothingIsDividedByNothing)
{
    EXPECT_EQ(progress_line(0, 1024, 0.0), "  0%  0 bytes of 1 KiB");
    EXPECT_EQ(progress_line(0, 0, 1.0), "100%  0 bytes of 0 bytes");
    EXPECT_EQ(progress_line(1, INT64_MAX, 1e9), "  0%  1 byte of 8 EiB  0 bytes/s  99:59:59 left");
}

}  // namespace
}  // namespace corvane

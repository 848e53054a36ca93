// Threads, sleep and the clock of the OS layer.
#include "osl/thread.h"

#include <gtest/gtest.h>
#include <sys/time.h>
#include <time.h>

#include <future>

// Threads of the OS layer are meant to be neither detached nor joined.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options()
{
    return "report_thread_leaks=0";
}

namespace {

using Seconds = std::uint32_t;

Seconds seconds_now()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<Seconds>(now.tv_sec);
}

std::int64_t monotonic_us()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

TEST(OslThread, RunsTheRoutineWithItsArgument)
{
    std::promise<int> answer;
    const auto start = [](void* argument) -> void* {
        static_cast<std::promise<int>*>(argument)->set_value(42);
        return nullptr;
    };

    ASSERT_EQ(OSL_CreateThread(start, &answer), 0);

    EXPECT_EQ(answer.get_future().get(), 42);
}

// The clock shows whole seconds of the time of day, in milliseconds, modulo 2^32.
TEST(OslClock, IsTheTimeOfDayInStepsOfAThousand)
{
    const Seconds before = seconds_now();
    const std::uint32_t clock = OSL_GetClock();
    const Seconds after = seconds_now();

    EXPECT_TRUE(clock == before * 1000U || clock == after * 1000U) << clock;
}

TEST(OslClock, ReadsTheSameTwiceWithinASecond)
{
    std::uint32_t first = 0;
    std::uint32_t second = 1;
    Seconds before = 0;
    do {  // again when a second ended meanwhile
        before = seconds_now();
        first = OSL_GetClock();
        second = OSL_GetClock();
    } while (seconds_now() != before);

    EXPECT_EQ(first, second);
}

// A sleep is never shorter than asked for: that much is certain on any machine.
TEST(OslSleep, SleepsWholeSecondsAndTheRest)
{
    for (const std::uint32_t ms : {0U, 1U, 999U, 1000U, 1001U}) {
        const std::int64_t before = monotonic_us();
        OSL_Sleep(ms);
        EXPECT_GE(monotonic_us() - before, std::int64_t{ms} * 1000) << ms;
    }
}

}  // namespace

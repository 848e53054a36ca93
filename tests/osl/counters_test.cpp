// The counters' page: slots, buckets, and what a reader sees of what threads counted.
#include "osl/counters.hpp"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <thread>
#include <vector>

namespace {

// A port that no daemon has: beyond 16 bits, and of this process alone.
std::uint32_t test_port()
{
    return 100000U + static_cast<std::uint32_t>(getpid());
}

class CountersOfOnePort : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(counters_publish(test_port()), 0); }
    void TearDown() override
    {
        char name[32];
        (void)std::snprintf(name, sizeof name, COUNTERS_NAME, test_port());
        EXPECT_EQ(shm_unlink(name), 0);
    }
    static CountersBlock sum()
    {
        const CountersPage* page = counters_map(test_port());
        EXPECT_NE(page, nullptr);
        auto total = std::make_unique<CountersBlock>();
        counters_sum(page, total.get());
        counters_unmap(page);
        return *total;
    }
};

TEST_F(CountersOfOnePort, HeaderNamesTheDaemon)
{
    const CountersPage* page = counters_map(test_port());

    ASSERT_NE(page, nullptr);
    EXPECT_EQ(page->pid, getpid());
    EXPECT_EQ(page->port, test_port());
    counters_unmap(page);
}

TEST_F(CountersOfOnePort, EveryThreadsCountsAreAddedUp)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 80; ++i) {  // more than there are blocks
        threads.emplace_back([] {
            for (int k = 0; k < 1000; ++k) corvane::count_event(COUNTERS_EVENT_LEASE_GRANTED);
        });
    }
    for (auto& thread : threads) thread.join();

    EXPECT_EQ(sum().events[COUNTERS_EVENT_LEASE_GRANTED], 80000U);
}

TEST_F(CountersOfOnePort, RequestsCountByFunctionResultAndTime)
{
    corvane::count_request(2, 405, 600);
    corvane::count_request(77, 8, 100);
    corvane::count_request(-5, 12345, std::numeric_limits<std::uint64_t>::max());

    const CountersBlock total = sum();
    EXPECT_EQ(total.requests[2][counters_result_slot(405)], 1U);
    EXPECT_EQ(total.latencies[2][1], 1U);
    EXPECT_EQ(total.requests[0][8], 1U);
    EXPECT_EQ(total.requests[0][COUNTERS_RESULTS - 1], 1U);
    EXPECT_EQ(total.latencies[0][0], 1U);
    EXPECT_EQ(total.latencies[0][COUNTERS_LATENCIES - 1], 1U);
}

TEST_F(CountersOfOnePort, PluginCallsOutsideTheTableCountNowhere)
{
    corvane::count_plugin_call(3, COUNTERS_CALL_GET_COOKIES, true);
    corvane::count_plugin_call(3, COUNTERS_CALL_GET_COOKIES, false);
    corvane::count_plugin_call(COUNTERS_PLUGINS, 0, true);
    corvane::count_plugin_call(0, COUNTERS_CALLS, true);

    const CountersBlock total = sum();
    EXPECT_EQ(total.plugin_calls[3][COUNTERS_CALL_GET_COOKIES], 2U);
    EXPECT_EQ(total.plugin_errors[3][COUNTERS_CALL_GET_COOKIES], 1U);
    EXPECT_EQ(total.plugin_calls[0][0], 0U);
}

TEST_F(CountersOfOnePort, ASecondPublishStartsAnew)
{
    corvane::count_event(COUNTERS_EVENT_SEND_ERROR);

    ASSERT_EQ(counters_publish(test_port()), 0);

    EXPECT_EQ(sum().events[COUNTERS_EVENT_SEND_ERROR], 0U);
}

// In a process of its own: only a process's first page takes counts over.
TEST(CountersDeathTest, TheFirstPageTakesOverWhatWasCountedBefore)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto count_then_publish = [] {
        corvane::count_event(COUNTERS_EVENT_LEASE_GRANTED, 3);
        corvane::count_request(5, 407, 1000);
        if (counters_publish(test_port()) != 0) std::_Exit(1);
        corvane::count_event(COUNTERS_EVENT_LEASE_GRANTED);
        const CountersPage* const page = counters_map(test_port());
        char name[32];
        (void)std::snprintf(name, sizeof name, COUNTERS_NAME, test_port());
        (void)shm_unlink(name);
        if (page == nullptr) std::_Exit(2);
        const auto total = std::make_unique<CountersBlock>();
        counters_sum(page, total.get());
        std::fprintf(stderr, "leases %d, requests %d\n",
                     static_cast<int>(total->events[COUNTERS_EVENT_LEASE_GRANTED]),
                     static_cast<int>(total->requests[5][counters_result_slot(407)]));
        std::_Exit(0);
    };

    EXPECT_EXIT(count_then_publish(), testing::ExitedWithCode(0), "leases 4, requests 1");
}

TEST(Counters, AMissingPageSaysSo)
{
    errno = 0;

    EXPECT_EQ(counters_map(test_port() + 1), nullptr);
    EXPECT_EQ(errno, ENOENT);
}

TEST(Counters, ResultSlotsAndResultsAreInverse)
{
    for (std::uint32_t slot = 0; slot < COUNTERS_RESULTS; ++slot) {
        const std::uint32_t result = counters_result_of_slot(slot);
        if (result == std::numeric_limits<std::uint32_t>::max()) continue;
        EXPECT_EQ(counters_result_slot(result), slot);
    }
    EXPECT_EQ(counters_result_slot(402), COUNTERS_RESULTS - 1);
}

TEST(Counters, EveryTimeFallsIntoTheBucketWhoseBoundsHoldIt)
{
    for (std::uint64_t time = 1; time < (std::uint64_t{1} << 45); time = time * 5 / 4 + 1) {
        const std::uint32_t bucket = counters_latency_bucket(time);
        EXPECT_LT(time, counters_latency_bound(bucket)) << time;
        if (bucket > 0) {
            EXPECT_GE(time, counters_latency_bound(bucket - 1)) << time;
        }
    }
}

}  // namespace

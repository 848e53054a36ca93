// Random histories of mounted volumes: local programs and two clients, one of which may be killed
// at any point, work on the same files. Every byte that anybody reads is compared with a model, and
// the file system's own check follows each history. The seed of each is printed when it fails:
// CORVANE_TEST_SEED=<seed> replays it, CORVANE_TEST_HISTORIES=<n> runs that many.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <random>

#include "tests/plugins/host_log.hpp"
#include "tests/plugins/mounted_history.hpp"
#include "tests/plugins/mounted_plugin.hpp"

namespace corvane::test {
namespace {

constexpr int kSteps = 40;
constexpr unsigned kHistories = 200;

unsigned number_from(const char* name, unsigned otherwise)
{
    const char* const given = std::getenv(name);
    return given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : otherwise;
}

void add(HistoryCounts& sum, const HistoryCounts& counts)
{
    sum.client_reads += counts.client_reads;
    sum.client_writes += counts.client_writes;
    sum.client_refusals += counts.client_refusals;
    sum.local_changes += counts.local_changes;
    sum.local_waits += counts.local_waits;
}

// One history on a volume of its own, so that it runs the same way again.
void run_one(const FsFormat& format, unsigned seed, HistoryCounts& sum)
{
    MountedVolume volume(format);
    const Plugin& plugin = serve_mounted(volume);
    History history(plugin, volume, seed);
    history.begin();
    for (int i = 0; i < kSteps && !testing::Test::HasFailure(); ++i) history.step();
    history.end();
    add(sum, history.counts());
    volume.unmount();
    volume.expect_clean("at the end");
    if (testing::Test::HasFailure()) {
        ADD_FAILURE() << "CORVANE_TEST_SEED=" << seed << " on " << format.name << "\n"
                      << history.trace() << take_log();
    }
    (void)take_log();
}

TEST(MountedHistories, EveryReaderSeesWhatItMay)
{
    const std::string why = enter_private_mounts();
    if (!why.empty()) GTEST_SKIP() << why;
    const bool is_replay = std::getenv("CORVANE_TEST_SEED") != nullptr;
    const unsigned first = number_from("CORVANE_TEST_SEED", std::random_device{}());
    const unsigned count = number_from("CORVANE_TEST_HISTORIES", is_replay ? 1 : kHistories);
    std::cout << "CORVANE_TEST_SEED=" << first << "\n";
    const auto formats = all_formats();

    HistoryCounts sum;
    for (unsigned i = 0; i < count && !HasFailure(); ++i) {
        run_one(formats[(first + i) % formats.size()], first + i, sum);
    }

    std::cout << sum.client_reads << " reads and " << sum.client_writes << " writes of clients, "
              << sum.client_refusals << " refusals; " << sum.local_changes << " local changes, "
              << sum.local_waits << " local waits\n";
    if (count < kHistories || HasFailure()) return;
    EXPECT_GT(sum.client_writes, static_cast<int>(count)) << "too little happened to show anything";
    EXPECT_GT(sum.local_changes, static_cast<int>(count));
    EXPECT_GT(sum.client_reads, static_cast<int>(count));
}

}  // namespace
}  // namespace corvane::test

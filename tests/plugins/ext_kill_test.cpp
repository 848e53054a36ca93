// A daemon killed at any moment: the volume stays one that e2fsck repairs by itself, that no lie
// hides in, and that a restarted daemon serves.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <random>

#include "tests/plugins/ext_image.hpp"
#include "tests/plugins/host_log.hpp"
#include "tests/plugins/random_seed.hpp"

namespace corvane::test {
namespace {

const Plugin& plugin()
{
    static const Plugin loaded(CORVANE_PLUGIN_FILE);
    return loaded;
}

[[noreturn]] void change_sizes_until_killed(const Scratch& scratch, const std::string& lines,
                                            unsigned random_seed)
{
    serve(plugin(), scratch, lines);
    std::mt19937 random(random_seed);
    const auto f = plugin().find("/mnt/v/f");
    const auto g = plugin().find("/mnt/v/g");
    for (;;) {
        for (const auto& file : {f, g}) {
            const auto size = static_cast<std::int64_t>(random() % 300000);
            (void)plugin().map(file);
            (void)plugin().set_sizes(file, size,
                                     size + static_cast<std::int64_t>(random() % 90000));
            (void)plugin().set_sizes(file, size, size);
            (void)plugin().unlock(file);
        }
    }
}

// Without extents a file may have blocks past its end while a client holds it; that is all a kill
// leaves there.
void return_loan(const ExtImage& image)
{
    const auto repair = run_command("e2fsck -fp " + image.path());
    ASSERT_LE(repair.status, 1) << repair.output;
    EXPECT_EQ(repair.status == 1, repair.output.find("i_size is") != std::string::npos)
        << repair.output;
    EXPECT_EQ(repair.output.find("differences"), std::string::npos) << repair.output;
}

class ExtKill : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(Formats, ExtKill,
                         testing::Values("-t ext2 -b 1024", "-t ext3 -b 4096", "-t ext4 -b 1024"));

TEST_P(ExtKill, VolumeIsCleanOrSaysThatItIsNot)
{
    const Scratch scratch;
    const ExtImage image(scratch, GetParam(), 8192);
    const std::string untouched = pattern(70000, 3);
    image.put("f", pattern(40000, 1));
    image.put("g", "");
    image.put("untouched", untouched);
    const std::string lines = "/mnt/v ext " + image.path() + " rw\n";
    // The moments of the kills differ from run to run all the same.
    std::cout << "CORVANE_TEST_SEED=" << seed() << "\n";
    std::mt19937 random(seed());
    int marked = 0;
    for (int round = 0; round < 25; ++round) {
        const pid_t child = fork();
        if (child == 0) {
            change_sizes_until_killed(scratch, lines, seed() + static_cast<unsigned>(round));
        }
        usleep(20000 + static_cast<useconds_t>(random() % 40000));
        kill(child, SIGKILL);
        ASSERT_EQ(waitpid(child, nullptr, 0), child);

        const std::string header = must_run("dumpe2fs -h " + image.path());
        if (header.find("not clean") != std::string::npos) {
            ++marked;
            serve(plugin(), scratch, lines);
            EXPECT_NE(plugin().find("/mnt/v/f").result, 0U) << "not before it is repaired";
            EXPECT_NE(take_log().find("run e2fsck -p"), std::string::npos);
            const auto repair = run_command("e2fsck -p " + image.path());
            ASSERT_LE(repair.status, 1) << "more than preening repairs\n" << repair.output;
        }
        if (!std::string(GetParam()).starts_with("-t ext4")) return_loan(image);
        image.expect_clean("round " + std::to_string(round));
        ASSERT_EQ(image.dump("untouched"), untouched);
        serve(plugin(), scratch, lines);
        ASSERT_EQ(plugin().map(plugin().find("/mnt/v/f")).result, 0U) << take_log();
        serve(plugin(), scratch, "");
    }
    std::cout << marked << " of 25 kills hit a change\n";
}

}  // namespace
}  // namespace corvane::test

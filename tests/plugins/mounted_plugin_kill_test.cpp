// A daemon that is killed while files are lent for writing, and the one that comes after it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "tests/plugins/host_log.hpp"
#include "tests/plugins/mounted_volume.hpp"
#include "tests/plugins/plugin.hpp"
#include "tests/plugins/scratch.hpp"

namespace corvane::test {
namespace {

using testing::HasSubstr;

constexpr int kNewFile = O_RDWR | O_CREAT | O_EXCL;

// Lends each file with an allocation of 8 blocks, as a daemon that is then killed.
void lend_and_die(const MountedVolume& volume)
{
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const Plugin plugin(CORVANE_PLUGIN_FILE);
        bool is_lent = plugin.init() == 0;
        for (const char* const name : {"closed", "ended", "changed"}) {
            const Cookies file = plugin.find(volume.path(name));
            is_lent = is_lent && plugin.map(file).result == 0 &&
                      plugin.set_sizes(file, -1, 8 * volume.block_bytes()) == 0;
        }
        if (is_lent) (void)raise(SIGKILL);
        _exit(1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the files could not be lent";
}

std::int64_t size_of(const std::string& path)
{
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    return status.st_size;
}

// The next daemon lends the files again until their leases are surely over; then they have the size
// that was named last. One that somebody changed meanwhile stays as it is.
TEST(MountedKill, NextDaemonGivesFilesTheirSizes)
{
    const std::string why = enter_private_mounts();
    if (!why.empty()) GTEST_SKIP() << why;
    MountedVolume volume(kExt4Of4K);
    std::ofstream("/mnt/volumes.conf") << volume.mount_point() << " mounted rw,maxwrite=1\n"
                                       << std::flush;
    setenv("CORVANE_VOLUMES_FILE", "/mnt/volumes.conf", 1);
    for (const char* const name : {"closed", "ended", "changed"}) {
        write_at(open_file(volume.path(name), kNewFile).get(), 0, "data");
    }
    lend_and_die(volume);
    EXPECT_EQ(size_of(volume.path("closed")), 8 * 4096) << "the file was not really that long";
    write_at(open_file(volume.path("changed"), O_RDWR).get(), 10, "local");

    const Plugin plugin(CORVANE_PLUGIN_FILE);
    ASSERT_EQ(plugin.init(), 0U);

    EXPECT_THAT(take_log(),
                HasSubstr("/closed: it was lent when the daemon was killed, and is so"));
    EXPECT_LT(open(volume.path("ended").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC), 0);
    EXPECT_EQ(errno, EWOULDBLOCK);
    const Cookies closed = plugin.find(volume.path("closed"));
    EXPECT_EQ(plugin.map(closed, 0, -1, FS_M_FLAG_REMAP).info.fileSize, 4);
    EXPECT_EQ(plugin.set_sizes(closed, 2, 2), 0U);
    EXPECT_EQ(plugin.unlock(closed), 0U);
    EXPECT_EQ(size_of(volume.path("closed")), 2);
    while (size_of(volume.path("ended")) != 4) {  // the test's own time limit bounds it
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(size_of(volume.path("changed")), 8 * 4096);
    EXPECT_EQ(read_at(open_file(volume.path("changed"), O_RDONLY).get(), 10, 5), "local");
    std::ofstream("/mnt/volumes.conf") << std::flush;
    ASSERT_EQ(plugin.init(), 0U);
    EXPECT_NE(access("/mnt/volumes.conf.lent", F_OK), 0)
        << read_whole_file("/mnt/volumes.conf.lent");
    volume.unmount();
    volume.expect_clean("at the end");
}

}  // namespace
}  // namespace corvane::test

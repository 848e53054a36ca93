// What the plug-in for mounted volumes answers call by call: lending, sizes, full volumes, local
// programs that come meanwhile.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <thread>

#include "tests/plugins/host_log.hpp"
#include "tests/plugins/mounted_volume.hpp"
#include "tests/plugins/plugin.hpp"
#include "tests/plugins/scratch.hpp"

namespace corvane::test {
namespace {

using testing::HasSubstr;

constexpr int kNewFile = O_RDWR | O_CREAT | O_EXCL;
constexpr std::int64_t kMiB = 1 << 20;

const Plugin& serve(const std::string& list)
{
    static const Plugin plugin(CORVANE_PLUGIN_FILE);
    std::ofstream("/mnt/volumes.conf") << list << std::flush;
    setenv("CORVANE_VOLUMES_FILE", "/mnt/volumes.conf", 1);
    EXPECT_EQ(plugin.init(), 0U);
    return plugin;
}

class MountedLending : public testing::TestWithParam<FsFormat> {
protected:
    void SetUp() override
    {
        const std::string why = enter_private_mounts();
        if (!why.empty()) GTEST_SKIP() << why;
        volume_ = std::make_unique<MountedVolume>(GetParam());
        plugin_ = &serve(volume_->mount_point() + " mounted rw\n");
        (void)take_log();
    }
    void TearDown() override
    {
        if (volume_ == nullptr) return;
        serve("");  // whatever a test left undone is done when this returns
        volume_->unmount();
        volume_->expect_clean("at the end");
    }

    MountedVolume& volume() { return *volume_; }
    const Plugin& plugin() { return *plugin_; }
    [[nodiscard]] std::int64_t block() const { return volume_->block_bytes(); }
    [[nodiscard]] Cookies put(const std::string& name, const std::string& content)
    {
        {
            const Descriptor file = open_file(volume().path(name), kNewFile);
            write_at(file.get(), 0, content);
        }
        return plugin().find(volume().path(name));
    }
    [[nodiscard]] Cookies make_sparse(const std::string& name, std::int64_t bytes)
    {
        {
            const Descriptor file = open_file(volume().path(name), kNewFile);
            EXPECT_EQ(ftruncate(file.get(), bytes), 0);
        }
        return plugin().find(volume().path(name));
    }
    // Gives the map back and waits until the plug-in is done with the file: the next call for it
    // comes after that.
    void give_back(const Cookies& cookies)
    {
        EXPECT_EQ(plugin().unlock(cookies), 0U);
        const Map after = plugin().map(cookies, 0, -1, FS_M_FLAG_UNLOCKED);
        EXPECT_EQ(after.result, 0U);
    }
    [[nodiscard]] struct stat status_of(const std::string& name)
    {
        struct stat status {};
        EXPECT_EQ(stat(volume().path(name).c_str(), &status), 0);
        return status;
    }
    [[nodiscard]] std::int64_t free_bytes()
    {
        const Descriptor root = open_file(volume().mount_point(), O_RDONLY | O_DIRECTORY);
        EXPECT_EQ(syncfs(root.get()), 0);
        struct statvfs space {};
        EXPECT_EQ(fstatvfs(root.get(), &space), 0);
        return static_cast<std::int64_t>(space.f_bfree * space.f_frsize);
    }

private:
    std::unique_ptr<MountedVolume> volume_;
    const Plugin* plugin_ = nullptr;
};

INSTANTIATE_TEST_SUITE_P(Formats, MountedLending, testing::ValuesIn(all_formats()),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(MountedLending, MapTellsSizesAndHoles)
{
    const std::string data = pattern(static_cast<std::size_t>(2 * block()), 1);
    const Cookies file = put("f", data);
    {
        const Descriptor local = open_file(volume().path("f"), O_RDWR);
        EXPECT_EQ(ftruncate(local.get(), 5 * block() + 7), 0);
    }

    const Map map = plugin().map(file);

    ASSERT_EQ(map.result, 0U) << take_log();
    EXPECT_EQ(map.info.fileSize, 5 * block() + 7);
    EXPECT_EQ(map.info.allocation, 2 * block());
    EXPECT_EQ(map.info.fileBytes, 6 * block());
    ASSERT_EQ(map.extents.size(), 2U) << to_text(map.extents);
    EXPECT_EQ(volume().client_read(map.extents[0].PhysicalByteAddr, 2 * block()), data);
    EXPECT_EQ(map.extents[1].validity, FS_VALIDITY_HOLE);
    EXPECT_EQ(plugin().unlock(file), 0U);
}

TEST_P(MountedLending, SmallRoomGivesTheMapInPieces)
{
    const Cookies file = make_sparse("f", 9 * block());
    {
        const Descriptor local = open_file(volume().path("f"), O_RDWR);
        for (const std::int64_t at : {1, 4, 7}) write_at(local.get(), at * block(), "data");
    }
    const Map whole = plugin().map(file);
    ASSERT_EQ(whole.extents.size(), 7U) << to_text(whole.extents);

    std::vector<VerboseExtent> pieces;
    for (std::int64_t at = 0; at < 9 * block();) {
        const Map piece = plugin().map(file, at, -1, FS_M_FLAG_REMAP, 64 + 2 * 32);
        ASSERT_LE(piece.result, FS_E_PARTIAL);
        ASSERT_GT(piece.end(), at);
        pieces.insert(pieces.end(), piece.extents.begin(), piece.extents.end());
        at = piece.end();
    }

    EXPECT_EQ(to_text(pieces), to_text(whole.extents));
    EXPECT_EQ(plugin().map(file, 0, -1, FS_M_FLAG_REMAP, 64).result, FS_E_OUT_OF_MEMORY);
    EXPECT_EQ(plugin().map(file, 100).result, FS_E_IVPARAM);
    EXPECT_EQ(plugin().unlock(file), 0U);
}

TEST_P(MountedLending, UnlockedMapLeavesNothingBehind)
{
    const Cookies file = put("f", "data");

    EXPECT_EQ(plugin().map(file, 0, -1, FS_M_FLAG_UNLOCKED).result, 0U);

    EXPECT_EQ(plugin().unlock(file), FS_E_NOT_LOCKED);
    EXPECT_TRUE(open_file(volume().path("f"), O_RDWR | O_NONBLOCK).is_open());
}

// The size that clients are told stays, while the kernel's is that of the allocation.
TEST_P(MountedLending, AllocationMakesTheFileReallyThatLong)
{
    const Cookies file = put("f", "data");
    ASSERT_EQ(plugin().map(file).result, 0U);

    EXPECT_EQ(plugin().set_sizes(file, -1, 3 * block() + 1), 0U);

    const Map map = plugin().map(file, 0, -1, FS_M_FLAG_REMAP);
    EXPECT_EQ(map.info.fileSize, 4);
    EXPECT_EQ(map.end(), 4 * block());
    for (const auto& extent : map.extents) EXPECT_EQ(extent.validity, FS_VALIDITY_DATA);
    EXPECT_EQ(status_of("f").st_size, 4 * block());
    give_back(file);
    EXPECT_EQ(status_of("f").st_size, 4);
}

TEST_P(MountedLending, CloseSetsTheSizeBeforeItReturns)
{
    const Cookies file = put("f", "data");
    ASSERT_EQ(plugin().map(file).result, 0U);
    ASSERT_EQ(plugin().set_sizes(file, -1, 8 * block()), 0U);
    const Map map = plugin().map(file, 0, -1, FS_M_FLAG_REMAP);
    ASSERT_FALSE(map.extents.empty());
    const VerboseExtent& last = map.extents.back();
    volume().client_write(last.PhysicalByteAddr + block() - last.LogicalByteAddr,
                          pattern(static_cast<std::size_t>(block()), 5));

    EXPECT_EQ(plugin().set_sizes(file, block() + 1, block() + 1), 0U);

    EXPECT_EQ(status_of("f").st_size, block() + 1);
    give_back(file);
    EXPECT_EQ(status_of("f").st_blocks * 512, 2 * block());
}

// A size named without an allocation: what the client wrote behind the old end stays.
TEST_P(MountedLending, NamingALargerSizeKeepsTheLastBlock)
{
    const Cookies file = put("f", "data");
    const Map map = plugin().map(file);
    ASSERT_EQ(map.extents.size(), 1U);
    const std::string whole = pattern(static_cast<std::size_t>(block()), 2);
    volume().client_write(map.extents[0].PhysicalByteAddr, whole);

    EXPECT_EQ(plugin().set_sizes(file, block(), block()), 0U);

    give_back(file);
    const Descriptor local = open_file(volume().path("f"), O_RDONLY);
    EXPECT_EQ(read_at(local.get(), 0, 2 * block()), whole);
}

TEST_P(MountedLending, ReadersCloseChangesNothing)
{
    const Cookies file = make_sparse("f", 4 * block());
    const auto before = status_of("f");
    ASSERT_EQ(plugin().map(file).result, 0U);

    EXPECT_EQ(plugin().set_sizes(file, 4 * block(), 4 * block()), 0U);

    give_back(file);
    EXPECT_EQ(status_of("f").st_blocks, before.st_blocks);
    EXPECT_EQ(status_of("f").st_mtim.tv_nsec, before.st_mtim.tv_nsec);
}

TEST_P(MountedLending, FullVolumeGivesWhatItHasAndGetsItBack)
{
    const Cookies file = put("f", "data");
    {
        const Descriptor other = open_file(volume().path("other"), kNewFile);
        ASSERT_EQ(fallocate(other.get(), 0, 0, free_bytes() - 4 * kMiB), 0);
    }
    const std::int64_t before = free_bytes();
    ASSERT_EQ(plugin().map(file).result, 0U);

    EXPECT_EQ(plugin().set_sizes(file, -1, 16 * kMiB), FS_E_SHORT_ALLOC);

    const Map map = plugin().map(file, 0, -1, FS_M_FLAG_REMAP);
    EXPECT_EQ(map.info.fileSize, 4);
    EXPECT_GT(map.end(), kMiB) << to_text(map.extents);
    EXPECT_LT(map.end(), 16 * kMiB);
    EXPECT_LT(free_bytes(), before - kMiB);
    give_back(file);
    EXPECT_EQ(status_of("f").st_size, 4);
    EXPECT_LE(status_of("f").st_blocks * 512, 2 * block()) << "ext4 may keep a block of its tree";
    EXPECT_GE(free_bytes(), before - 16 * block());
}

TEST_P(MountedLending, HolesThatWereFilledInVainAreHolesAgain)
{
    const Cookies idle = make_sparse("idle", kMiB);
    const Cookies used = make_sparse("used", kMiB);
    ASSERT_EQ(plugin().map(idle).result, 0U);
    ASSERT_EQ(plugin().map(used).result, 0U);
    ASSERT_EQ(plugin().set_sizes(idle, -1, kMiB), 0U);
    ASSERT_EQ(plugin().set_sizes(used, -1, kMiB), 0U);
    EXPECT_EQ(status_of("idle").st_blocks * 512, kMiB);
    const Map map = plugin().map(used, 0, -1, FS_M_FLAG_REMAP);
    ASSERT_FALSE(map.extents.empty());
    const std::string data = pattern(static_cast<std::size_t>(block()), 3);
    volume().client_write(map.extents[0].PhysicalByteAddr, data);

    give_back(idle);
    give_back(used);

    EXPECT_EQ(status_of("idle").st_blocks, 0);
    const Descriptor local = open_file(volume().path("used"), O_RDONLY);
    EXPECT_EQ(read_at(local.get(), 0, block()), data);
}

// A second client may name a smaller size; its blocks stay where the first one's map says.
TEST_P(MountedLending, SmallerSizeTakesNoBlocksFromAnotherClient)
{
    const Cookies file = put("f", pattern(static_cast<std::size_t>(4 * block()), 4));
    const Map first = plugin().map(file);
    ASSERT_EQ(plugin().map(file).result, 0U);

    EXPECT_EQ(plugin().set_sizes(file, block(), block()), 0U);

    EXPECT_EQ(status_of("f").st_size, 4 * block());
    EXPECT_EQ(plugin().map(file, 0, -1, FS_M_FLAG_REMAP).info.fileSize, block());
    EXPECT_EQ(volume().client_read(first.extents[0].PhysicalByteAddr, 4 * block()),
              pattern(static_cast<std::size_t>(4 * block()), 4));
    give_back(file);
    EXPECT_EQ(status_of("f").st_size, block());
}

TEST_P(MountedLending, ReadOnlyVolumeLendsForReadingAlone)
{
    const Cookies file = put("f", "data");
    serve(volume().mount_point() + " mounted maxread=7,maxwrite=9\n");
    ASSERT_EQ(plugin().map(file).result, 0U);

    EXPECT_EQ(plugin().set_sizes(file, -1, 4), FS_E_PRIVILEGE);
    EXPECT_EQ(plugin().set_sizes(file, 5, -1), FS_E_PRIVILEGE);
    EXPECT_EQ(plugin().set_sizes(file, 4, 4), 0U);

    std::int32_t read_s = 0;
    std::int32_t write_s = 0;
    EXPECT_EQ(plugin().max_leases(file.volume.data(), &read_s, &write_s), 0U);
    EXPECT_EQ(read_s, 7);
    EXPECT_EQ(write_s, 9);
    EXPECT_EQ(plugin().unlock(file), 0U);
}

TEST_P(MountedLending, JournalledFileIsRefused)
{
    if (volume().format().has_reflinks) GTEST_SKIP() << "XFS journals no data";
    const Cookies file = put("f", "data");
    {
        const Descriptor local = open_file(volume().path("f"), O_RDWR);
        unsigned flags = 0;
        ASSERT_EQ(ioctl(local.get(), FS_IOC_GETFLAGS, &flags), 0);
        flags |= FS_JOURNAL_DATA_FL;
        if (ioctl(local.get(), FS_IOC_SETFLAGS, &flags) != 0) {
            ASSERT_EQ(errno, EPERM);
            GTEST_SKIP() << "this needs CAP_SYS_RESOURCE";
        }
    }

    EXPECT_EQ(plugin().map(file).result, FS_E_NO_DIRECT);
    EXPECT_THAT(take_log(), HasSubstr("its data is journalled"));
}

TEST_P(MountedLending, OnlyRegularFilesAreLent)
{
    ASSERT_EQ(mkdir(volume().path("d").c_str(), 0755), 0);
    ASSERT_EQ(mkfifo(volume().path("p").c_str(), 0644), 0);
    for (const char* const name : {"d", "p"}) {
        const Cookies found = plugin().find(volume().path(name));
        EXPECT_EQ(found.result, 0U) << name;
        EXPECT_EQ(plugin().map(found).result, FS_E_NO_DIRECT) << name;
    }
}

// The log names the program that had to wait, what it wanted, and how long it waited.
TEST_P(MountedLending, WaitingProgramIsNamedInTheLog)
{
    const Cookies file = put("f", "data");
    ASSERT_EQ(plugin().map(file).result, 0U);
    ASSERT_EQ(plugin().set_sizes(file, -1, block()), 0U);
    std::string seen;
    std::thread local([&] { seen = run_command("head -c4 " + volume().path("f")).output; });

    std::string log;
    const auto read_log_until = [&log](const char* text) {
        while (log.find(text) == std::string::npos) {  // the test's own time limit bounds it
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            log += take_log();
        }
    };
    read_log_until("opens it");
    EXPECT_EQ(plugin().unlock(file), 0U);
    local.join();
    read_log_until("was held");  // written when the program goes on already

    EXPECT_EQ(seen, "data");
    EXPECT_THAT(log, HasSubstr("(head, user 0) opens it for reading while a map of it is out"));
    EXPECT_THAT(log, HasSubstr("(head, user 0) was held for "));
    EXPECT_THAT(log, HasSubstr("local opens of lent files so far: "));
    EXPECT_THAT(log, HasSubstr(volume().path("f")));
}

TEST_P(MountedLending, ProgramThatHasTheFileIsNamedInTheLog)
{
    const Cookies file = put("f", "data");
    const Descriptor local = open_file(volume().path("f"), O_RDWR);
    std::thread holder([&] { (void)run_command("exec sleep 30 <>" + volume().path("f")); });
    std::string log;
    while (log.find("(sleep") == std::string::npos) {  // the test's own time limit bounds it
        EXPECT_EQ(plugin().map(file).result, FS_E_NO_DIRECT);
        log = take_log();
    }
    EXPECT_THAT(log, HasSubstr("it is open for writing; in use by pid "));
    const std::size_t at = log.find("in use by pid ") + 14;
    (void)run_command("kill " + log.substr(at, log.find(' ', at) - at));
    holder.join();
}

// Maps of an earlier list come back with the new one, and cookies stay good.
TEST_P(MountedLending, NewListSettlesWhatWasLent)
{
    const Cookies file = put("f", "data");
    ASSERT_EQ(plugin().map(file).result, 0U);
    ASSERT_EQ(plugin().set_sizes(file, -1, 8 * block()), 0U);

    serve(volume().mount_point() + " mounted rw\n");

    EXPECT_EQ(status_of("f").st_size, 4);
    EXPECT_EQ(plugin().find(volume().path("f")).file, file.file);
    EXPECT_EQ(plugin().map(file).result, 0U);
    EXPECT_EQ(plugin().unlock(file), 0U);
}

TEST_P(MountedLending, BadCookiesAreToldApart)
{
    const Cookies file = put("f", "data");
    Cookies wrong = file;
    wrong.volume[9] ^= 1;
    EXPECT_EQ(plugin().map(wrong).result, FS_E_BAD_COOKIE);
    for (const std::size_t at : {0U, 2U, 3U, 5U, 15U, 20U}) {
        wrong = file;
        wrong.file[at] ^= 0x55;
        EXPECT_EQ(plugin().map(wrong).result, FS_E_BAD_FILE) << at;
        EXPECT_NE(plugin().set_sizes(wrong, 1, 1), 0U) << at;
    }
    EXPECT_EQ(plugin().unlock(file), FS_E_NOT_LOCKED);
}

TEST_P(MountedLending, LentFileIsToldByItsPath)
{
    const Cookies file = put("f", "data");
    EXPECT_EQ(plugin().path_of(file), "result " + std::to_string(FS_E_UNKNOWN_FILE));
    ASSERT_EQ(plugin().map(file).result, 0U);

    const std::string path = volume().path("f");
    EXPECT_EQ(plugin().path_of(file), path);
    EXPECT_EQ(plugin().path_of(file, static_cast<std::uint32_t>(path.size())),
              "result " + std::to_string(FS_E_OUT_OF_MEMORY));
    EXPECT_EQ(plugin().mount_point_of(file), volume().mount_point());
    EXPECT_EQ(plugin().unlock(file), 0U);
}

// Several clients and local programs at once: every call is answered, and at the end nothing is
// held.
TEST_P(MountedLending, ManyThreadsAtOnce)
{
    constexpr int kRounds = 12;
    std::array<Cookies, 3> files = {put("a", "a"), put("b", "b"), put("c", "c")};
    std::atomic<int> lent{0};
    const auto client = [&](std::size_t first) {
        for (int round = 0; round < kRounds; ++round) {
            const Cookies& file = files[(first + static_cast<std::size_t>(round)) % files.size()];
            if (plugin().map(file).result != 0) continue;
            ++lent;
            (void)plugin().set_sizes(file, -1, (round % 4 + 1) * block());
            (void)plugin().map(file, 0, block(), 0);
            (void)plugin().set_sizes(file, round + 1, round + 1);
            (void)plugin().unlock(file);
        }
    };
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < 4; ++i) threads.emplace_back(client, i);
    for (int round = 0; round < kRounds; ++round) {
        const int local = open(volume().path("a").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        if (local >= 0) close(local);
    }
    for (auto& thread : threads) thread.join();

    EXPECT_GT(lent, 0);
    for (const Cookies& file : files) (void)plugin().unlock(file);
    for (const char* const name : {"a", "b", "c"}) {
        EXPECT_TRUE(open_file(volume().path(name), O_RDWR).is_open());
        EXPECT_LE(status_of(name).st_size, kRounds);
    }
}

}  // namespace
}  // namespace corvane::test

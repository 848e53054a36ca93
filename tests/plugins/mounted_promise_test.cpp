// What the plug-in for mounted volumes prevents: the damages that mounted_kernel_test shows, with
// its maps between the kernel and the client.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <thread>

#include "tests/plugins/host_log.hpp"
#include "tests/plugins/mounted_plugin.hpp"
#include "tests/plugins/mounted_volume.hpp"

namespace corvane::test {
namespace {

constexpr int kNewFile = O_RDWR | O_CREAT | O_EXCL;

class MountedPromise : public testing::TestWithParam<FsFormat> {
protected:
    void SetUp() override
    {
        const std::string why = enter_private_mounts();
        if (!why.empty()) GTEST_SKIP() << why;
        volume_ = std::make_unique<MountedVolume>(GetParam());
        plugin_ = &serve_mounted(*volume_);
        (void)take_log();
    }
    void TearDown() override
    {
        if (volume_ == nullptr) return;
        volume_->unmount();  // nothing may be held any more
        volume_->expect_clean("at the end");
        if (HasFailure()) std::cout << take_log();
    }

    MountedVolume& volume() { return *volume_; }
    const Plugin& plugin() { return *plugin_; }
    [[nodiscard]] std::int64_t block() const { return volume_->block_bytes(); }
    [[nodiscard]] std::string blocks_of(std::int64_t count, char c) const
    {
        return std::string(static_cast<std::size_t>(count * block()), c);
    }
    void put(const std::string& name, const std::string& content)
    {
        const Descriptor file = open_file(volume().path(name), kNewFile);
        write_at(file.get(), 0, content);
    }
    // As a local program finds the file, once the plug-in has let go of it.
    [[nodiscard]] std::string content(const std::string& name)
    {
        const Descriptor file = open_file(volume().path(name), O_RDONLY);
        return read_at(file.get(), 0, std::int64_t{1} << 20);
    }
    // Takes a map for writing `bytes`.
    [[nodiscard]] Map lend_for_writing(const Cookies& cookies, std::int64_t bytes)
    {
        EXPECT_EQ(plugin().map(cookies).result, 0U);
        EXPECT_EQ(plugin().set_sizes(cookies, -1, bytes), 0U);
        return map_again(cookies, bytes);
    }
    // A client that asks again names a range: a map of all the file counts as another client's.
    [[nodiscard]] Map map_again(const Cookies& cookies, std::int64_t bytes)
    {
        return plugin().map(cookies, 0, bytes);
    }
    void close_with(const Cookies& cookies, std::int64_t size)
    {
        EXPECT_EQ(plugin().set_sizes(cookies, size, size), 0U);
        (void)plugin().unlock(cookies);
    }
    [[nodiscard]] Cookies find(const std::string& name)
    {
        return plugin().find(volume().path(name));
    }

private:
    std::unique_ptr<MountedVolume> volume_;
    const Plugin* plugin_ = nullptr;
};

INSTANTIATE_TEST_SUITE_P(Formats, MountedPromise, testing::ValuesIn(all_formats()),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(MountedPromise, UnwrittenBlocksAndHolesAreWrittenBeforeTheyAreLent)
{
    {
        const Descriptor file = open_file(volume().path("f"), kNewFile);
        ASSERT_EQ(fallocate(file.get(), 0, 0, 4 * block()), 0);
        ASSERT_EQ(ftruncate(file.get(), 8 * block()), 0);
    }
    const Cookies cookies = find("f");
    const Map map = lend_for_writing(cookies, 8 * block());
    EXPECT_EQ(difference(read_mapped(volume(), map, 0, 8 * block()), blocks_of(8, '\0')), "");
    write_mapped(volume(), map, block(), blocks_of(6, 'c'));
    (void)plugin().unlock(cookies);

    EXPECT_EQ(difference(content("f"), blocks_of(1, '\0') + blocks_of(6, 'c') + blocks_of(1, '\0')),
              "");
}

TEST_P(MountedPromise, BlocksBehindTheEndAreWrittenOnesWhileTheyAreLent)
{
    put("f", blocks_of(1, 'o'));
    const Cookies cookies = find("f");
    const Map map = lend_for_writing(cookies, 4 * block());
    write_mapped(volume(), map, block(), blocks_of(3, 'c'));
    close_with(cookies, 3 * block() + 5);

    EXPECT_EQ(difference(content("f"), blocks_of(1, 'o') + blocks_of(2, 'c') + "ccccc"), "");
}

TEST_P(MountedPromise, EndOfALeaseSetsTheSizeThatWasNamedLast)
{
    put("f", blocks_of(1, 'o') + "tail");
    const Cookies cookies = find("f");
    const Map map = lend_for_writing(cookies, 4 * block());
    write_mapped(volume(), map, 0, blocks_of(4, 'c'));
    (void)plugin().unlock(cookies);
    EXPECT_EQ(difference(content("f"), blocks_of(1, 'c') + "cccc"), "") << "none was named";

    const Map again = lend_for_writing(cookies, 4 * block());
    write_mapped(volume(), again, 0, blocks_of(4, 'd'));
    EXPECT_EQ(plugin().set_sizes(cookies, block() + 9, -1), 0U);
    EXPECT_EQ(plugin().set_sizes(cookies, block() + 2, -1), 0U);
    (void)plugin().unlock(cookies);
    EXPECT_EQ(difference(content("f"), blocks_of(1, 'd') + "dd"), "");
}

TEST_P(MountedPromise, RestOfTheOldLastBlockKeepsWhatAClientWrote)
{
    const std::string half(static_cast<std::size_t>(block() / 2), 'o');
    put("f", half);
    const Cookies cookies = find("f");
    const Map map = lend_for_writing(cookies, block());
    write_mapped(volume(), map, 0, blocks_of(1, 'c'));
    close_with(cookies, block());
    EXPECT_EQ(difference(content("f"), blocks_of(1, 'c')), "");

    const Map longer = lend_for_writing(cookies, 2 * block());
    write_mapped(volume(), longer, block(), blocks_of(1, 'd'));
    close_with(cookies, 2 * block());
    EXPECT_EQ(difference(content("f"), blocks_of(1, 'c') + blocks_of(1, 'd')), "");
}

TEST_P(MountedPromise, CachedPagesHideNothingBeforeOrAfter)
{
    put("f", blocks_of(4, 'o'));  // dirty pages, perhaps without places yet
    const Cookies cookies = find("f");
    const Map read = plugin().map(cookies);
    EXPECT_EQ(read_mapped(volume(), read, 0, 4 * block()), blocks_of(4, 'o'))
        << "the client sees what was cached";
    EXPECT_EQ(content("f"), blocks_of(4, 'o'))
        << "and a local program may read, which fills the cache";
    EXPECT_EQ(plugin().set_sizes(cookies, -1, 4 * block()), 0U);
    const Map write = map_again(cookies, 4 * block());
    write_mapped(volume(), write, 0, blocks_of(4, 'c'));
    (void)plugin().unlock(cookies);

    {
        const Descriptor file = open_file(volume().path("f"), O_RDWR);
        write_at(file.get(), 1, "L");  // would bring the stale page back over the client's bytes
    }
    std::string expected = blocks_of(4, 'c');
    expected[1] = 'L';
    EXPECT_EQ(difference(content("f"), expected), "");
}

TEST_P(MountedPromise, FileThatSomebodyMapsIsNotLentForWriting)
{
    put("f", blocks_of(4, 'o'));
    const Cookies cookies = find("f");
    const auto bytes = static_cast<std::size_t>(4 * block());
    void* mapped = nullptr;
    {
        const Descriptor file = open_file(volume().path("f"), O_RDONLY);
        mapped = mmap(nullptr, bytes, PROT_READ, MAP_SHARED, file.get(), 0);
        ASSERT_NE(mapped, MAP_FAILED);
        EXPECT_EQ(*static_cast<const volatile char*>(mapped), 'o');
    }
    // The mapping counts as an open file: either call may be the one that refuses.
    const std::uint32_t lent = plugin().map(cookies).result;
    const std::uint32_t changed = lent == 0 ? plugin().set_sizes(cookies, -1, 4 * block()) : lent;
    EXPECT_EQ(changed, FS_E_NO_DIRECT);
    (void)plugin().unlock(cookies);

    EXPECT_EQ(munmap(mapped, bytes), 0);
    const Map map = lend_for_writing(cookies, 4 * block());
    write_mapped(volume(), map, 0, blocks_of(4, 'c'));
    (void)plugin().unlock(cookies);
    EXPECT_EQ(difference(content("f"), blocks_of(4, 'c')), "");
}

TEST_P(MountedPromise, FileInUseIsNotLent)
{
    put("f", blocks_of(2, 'o'));
    const Cookies cookies = find("f");
    {
        const Descriptor writer = open_file(volume().path("f"), O_RDWR);
        EXPECT_EQ(plugin().map(cookies).result, FS_E_NO_DIRECT);
        (void)plugin().unlock(cookies);
    }
    const Descriptor reader = open_file(volume().path("f"), O_RDONLY);
    EXPECT_EQ(plugin().map(cookies).result, 0U);
    EXPECT_EQ(plugin().set_sizes(cookies, -1, 2 * block()), FS_E_NO_DIRECT);
    (void)plugin().unlock(cookies);
}

// A client that may not write still reads: what it was refused must not let local programs change
// the blocks that its map names.
TEST_P(MountedPromise, RefusedWriterKeepsWhatItMayRead)
{
    put("f", blocks_of(4, 'o'));
    const Cookies cookies = find("f");
    const Map map = plugin().map(cookies);
    const auto bytes = static_cast<std::size_t>(4 * block());
    void* mapped = nullptr;
    {
        const Descriptor reader = open_file(volume().path("f"), O_RDONLY);
        mapped = mmap(nullptr, bytes, PROT_READ, MAP_SHARED, reader.get(), 0);
        ASSERT_NE(mapped, MAP_FAILED);
        EXPECT_EQ(*static_cast<const volatile char*>(mapped), 'o');
    }
    EXPECT_EQ(plugin().set_sizes(cookies, -1, 4 * block()), FS_E_NO_DIRECT);

    const Descriptor writer(open(volume().path("f").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    EXPECT_FALSE(writer.is_open());
    EXPECT_EQ(errno, EWOULDBLOCK);
    EXPECT_EQ(difference(read_mapped(volume(), map, 0, 4 * block()), blocks_of(4, 'o')), "");
    (void)plugin().unlock(cookies);
    EXPECT_EQ(munmap(mapped, bytes), 0);
}

TEST_P(MountedPromise, ReflinkedFileIsLentForReadingAlone)
{
    if (!GetParam().has_reflinks) GTEST_SKIP() << "ext4 has no reflinks";
    put("f", blocks_of(4, 'o'));
    {
        const Descriptor file = open_file(volume().path("f"), O_RDONLY);
        const Descriptor copy = open_file(volume().path("copy"), kNewFile);
        ASSERT_EQ(ioctl(copy.get(), FICLONE, file.get()), 0);
    }
    const Cookies cookies = find("f");
    const Map map = plugin().map(cookies);
    EXPECT_EQ(difference(read_mapped(volume(), map, 0, 4 * block()), blocks_of(4, 'o')), "");
    EXPECT_EQ(plugin().set_sizes(cookies, -1, 4 * block()), FS_E_NO_DIRECT);
    (void)plugin().unlock(cookies);

    {
        const Descriptor file = open_file(volume().path("f"), O_RDWR);
        write_at(file.get(), 0, blocks_of(4, 'n'));  // gets blocks of its own
    }
    const Map own = lend_for_writing(cookies, 4 * block());
    write_mapped(volume(), own, 0, blocks_of(4, 'c'));
    (void)plugin().unlock(cookies);
    EXPECT_EQ(difference(content("f"), blocks_of(4, 'c')), "");
    EXPECT_EQ(difference(content("copy"), blocks_of(4, 'o')), "");
}

TEST_P(MountedPromise, BlocksOfAnUnlinkedFileStayItsOwnWhileTheyAreLent)
{
    const std::int64_t count = GetParam().image_bytes / 16 / block();
    put("f", blocks_of(count, 'o'));
    const Cookies cookies = find("f");
    const Map map = lend_for_writing(cookies, count * block());
    ASSERT_EQ(unlink(volume().path("f").c_str()), 0);
    {
        // Everything else that is free goes to another file.
        const Descriptor other = open_file(volume().path("other"), kNewFile);
        struct statvfs space {};
        ASSERT_EQ(fstatvfs(other.get(), &space), 0);
        ASSERT_EQ(fallocate(other.get(), 0, 0,
                            static_cast<off_t>(space.f_bavail * space.f_frsize) * 9 / 10),
                  0);
        write_at(other.get(), 0, blocks_of(16, 'x'));
        sync_file(other.get());
    }
    write_mapped(volume(), map, 0, blocks_of(count, 'c'));
    (void)plugin().unlock(cookies);
    EXPECT_NE(find("f").result, 0U);
    EXPECT_EQ(content("other").substr(0, static_cast<std::size_t>(16 * block())),
              blocks_of(16, 'x'));
}

TEST_P(MountedPromise, CookieFollowsTheFileAndNeverAnotherInItsInode)
{
    put("f", blocks_of(2, 'o'));
    const Cookies cookies = find("f");
    struct stat before {};
    ASSERT_EQ(stat(volume().path("f").c_str(), &before), 0);
    ASSERT_EQ(rename(volume().path("f").c_str(), volume().path("g").c_str()), 0);
    EXPECT_EQ(find("g").file, cookies.file);
    const Map map = lend_for_writing(cookies, 2 * block());
    write_mapped(volume(), map, 0, blocks_of(2, 'c'));
    (void)plugin().unlock(cookies);
    EXPECT_EQ(difference(content("g"), blocks_of(2, 'c')), "");

    ASSERT_EQ(unlink(volume().path("g").c_str()), 0);
    {
        const Descriptor root = open_file(volume().mount_point(), O_RDONLY | O_DIRECTORY);
        ASSERT_EQ(syncfs(root.get()), 0);
    }
    struct stat after {};
    for (int i = 0; after.st_ino != before.st_ino; ++i) {
        const std::string path = volume().path("n" + std::to_string(i));
        const Descriptor made = open_file(path, kNewFile);
        ASSERT_TRUE(made.is_open()) << "no file got the inode again";
        ASSERT_EQ(fstat(made.get(), &after), 0);
    }
    EXPECT_NE(plugin().map(cookies).result, 0U);
    EXPECT_NE(plugin().set_sizes(cookies, 100, 100), 0U);
    (void)plugin().unlock(cookies);
}

// A local program that opens a lent file waits until the map comes back, and then sees all of it.
TEST_P(MountedPromise, LocalProgramsWaitForTheMap)
{
    put("f", blocks_of(2, 'o'));
    put("g", blocks_of(2, 'o'));
    const Cookies f = find("f");
    const Cookies g = find("g");
    const Map of_f = lend_for_writing(f, 2 * block());
    const Map of_g = lend_for_writing(g, 2 * block());
    std::atomic<bool> is_through{false};
    std::string seen;
    std::thread reader([&] {
        seen = content("f");
        is_through = true;
    });
    std::thread cutter([&] { EXPECT_EQ(truncate(volume().path("g").c_str(), block()), 0); });
    std::this_thread::sleep_for(
        std::chrono::milliseconds(100));  // not needed for the result: it lets them begin
    EXPECT_FALSE(is_through);
    write_mapped(volume(), of_f, 0, blocks_of(2, 'c'));
    write_mapped(volume(), of_g, 0, blocks_of(2, 'd'));
    (void)plugin().unlock(f);
    (void)plugin().unlock(g);
    reader.join();
    cutter.join();

    EXPECT_EQ(difference(seen, blocks_of(2, 'c')), "");
    EXPECT_EQ(difference(content("g"), blocks_of(1, 'd')), "");
}

}  // namespace
}  // namespace corvane::test

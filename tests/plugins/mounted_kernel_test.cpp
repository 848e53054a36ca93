// What a mounted file system does to blocks that somebody writes behind it: each test shows one
// damage that befalls a client whose controller takes no care, on the kernel alone, with no
// plug-in.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "tests/plugins/mounted_volume.hpp"
#include "tests/plugins/scratch.hpp"

namespace corvane::test {
namespace {

constexpr int kNewFile = O_RDWR | O_CREAT | O_EXCL;

class MountedKernel : public testing::TestWithParam<FsFormat> {
protected:
    void SetUp() override
    {
        const std::string why = enter_private_mounts();
        if (!why.empty()) GTEST_SKIP() << why;
        volume_ = std::make_unique<MountedVolume>(GetParam());
    }
    void TearDown() override
    {
        if (volume_ == nullptr) return;
        volume_->unmount();
        volume_->expect_clean("at the end");
    }

    MountedVolume& volume() { return *volume_; }
    [[nodiscard]] std::int64_t block() const { return volume_->block_bytes(); }
    [[nodiscard]] std::string block_of(char c) const
    {
        return std::string(static_cast<std::size_t>(block()), c);
    }
    // A file of whole blocks of `c`, on the disk and out of the page cache.
    [[nodiscard]] Descriptor file_of(const std::string& name, std::int64_t blocks, char c)
    {
        Descriptor file = open_file(volume().path(name), kNewFile);
        write_at(file.get(), 0, std::string(static_cast<std::size_t>(blocks * block()), c));
        drop_pages(file.get());
        return file;
    }

private:
    std::unique_ptr<MountedVolume> volume_;
};

INSTANTIATE_TEST_SUITE_P(Formats, MountedKernel, testing::ValuesIn(all_formats()),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(MountedKernel, UnwrittenExtentHidesAClientsBytesForEver)
{
    const Descriptor file = open_file(volume().path("f"), kNewFile);
    ASSERT_EQ(fallocate(file.get(), 0, 0, 4 * block()), 0);
    sync_file(file.get());
    ASSERT_NE(runs_of(file.get(), true).at(0).flags & FIEMAP_EXTENT_UNWRITTEN, 0U);
    volume().client_write(place_of(file.get(), 0), block_of('c'));

    drop_pages(file.get());
    EXPECT_EQ(difference(read_at(file.get(), 0, block()), block_of('\0')), "");
    write_at(file.get(), block(), "neighbour");  // converting a part brings nothing back
    drop_pages(file.get());
    EXPECT_EQ(difference(read_at(file.get(), 0, block()), block_of('\0')), "");
}

TEST_P(MountedKernel, WrittenZerosShowAClientsBytes)
{
    const Descriptor file = file_of("f", 4, '\0');
    ASSERT_EQ(runs_of(file.get(), true).at(0).flags & FIEMAP_EXTENT_UNWRITTEN, 0U);
    volume().client_write(place_of(file.get(), 0), block_of('c'));

    EXPECT_EQ(difference(read_at(file.get(), 0, block()), block_of('c')), "");
}

TEST_P(MountedKernel, BlocksBehindTheEndAreNeverWrittenOnes)
{
    const Descriptor file = file_of("f", 1, 'o');
    ASSERT_EQ(fallocate(file.get(), FALLOC_FL_KEEP_SIZE, 0, 4 * block()), 0);
    sync_file(file.get());
    volume().client_write(place_of(file.get(), 2 * block()), block_of('c'));

    ASSERT_EQ(ftruncate(file.get(), 4 * block()), 0);
    drop_pages(file.get());
    EXPECT_EQ(difference(read_at(file.get(), 2 * block(), block()), block_of('\0')), "");
}

TEST_P(MountedKernel, GrowingAfterTheClientWroteZeroesTheRestOfTheOldLastBlock)
{
    const std::int64_t half = block() / 2;
    const Descriptor file = open_file(volume().path("f"), kNewFile);
    write_at(file.get(), 0, block_of('o').substr(0, static_cast<std::size_t>(half)));
    drop_pages(file.get());
    volume().client_write(place_of(file.get(), 0), block_of('c'));

    ASSERT_EQ(ftruncate(file.get(), block()), 0);
    drop_pages(file.get());
    EXPECT_EQ(difference(read_at(file.get(), half, half),
                         std::string(static_cast<std::size_t>(half), '\0')),
              "");
}

TEST_P(MountedKernel, GrowingBeforeTheClientWritesLosesNothing)
{
    const std::int64_t half = block() / 2;
    const Descriptor file = open_file(volume().path("f"), kNewFile);
    write_at(file.get(), 0, block_of('o').substr(0, static_cast<std::size_t>(half)));
    ASSERT_EQ(ftruncate(file.get(), block()), 0);
    drop_pages(file.get());
    volume().client_write(place_of(file.get(), 0), block_of('c'));

    EXPECT_EQ(difference(read_at(file.get(), 0, block()), block_of('c')), "");
    ASSERT_EQ(ftruncate(file.get(), half), 0);
    drop_pages(file.get());
    EXPECT_EQ(difference(read_at(file.get(), 0, block()),
                         block_of('c').substr(0, static_cast<std::size_t>(half))),
              "");
}

TEST_P(MountedKernel, CachedPageHidesWhatAClientWrote)
{
    const Descriptor file = file_of("f", 4, 'o');
    ASSERT_EQ(read_at(file.get(), 0, 4 * block()),
              std::string(static_cast<std::size_t>(4 * block()), 'o'));
    volume().client_write(place_of(file.get(), 0), block_of('c'));

    EXPECT_EQ(difference(read_at(file.get(), 0, block()), block_of('o')), "") << "hidden";
    drop_pages(file.get());
    EXPECT_EQ(difference(read_at(file.get(), 0, block()), block_of('c')), "")
        << "shown once dropped";
}

TEST_P(MountedKernel, DirtiedStalePageDestroysWhatAClientWrote)
{
    const Descriptor file = file_of("f", 4, 'o');
    (void)read_at(file.get(), 0, 4 * block());
    volume().client_write(place_of(file.get(), 0), block_of('c'));
    write_at(file.get(), 0, "L");
    drop_pages(file.get());

    std::string destroyed = block_of('o');
    destroyed[0] = 'L';
    EXPECT_EQ(difference(read_at(file.get(), 0, block()), destroyed), "");
    EXPECT_EQ(difference(volume().client_read(place_of(file.get(), 0), block()), destroyed), "");
}

TEST_P(MountedKernel, DirtyPageIsNotYetWhereAClientReads)
{
    const Descriptor file = file_of("f", 4, 'o');
    write_at(file.get(), 0, block_of('n'));

    EXPECT_EQ(difference(volume().client_read(place_of(file.get(), 0), block()), block_of('n')), "")
        << "asking for the places with a sync writes it back";
    write_at(file.get(), 0, block_of('m'));
    const auto unsynced = runs_of(file.get(), /*sync=*/false);
    EXPECT_EQ(difference(volume().client_read(unsynced.at(0).physical, block()), block_of('n')), "")
        << "asking without does not";
}

TEST_P(MountedKernel, DelayedBlocksHaveNoPlace)
{
    const Descriptor file = open_file(volume().path("f"), kNewFile);
    write_at(file.get(), 0, block_of('n'));

    EXPECT_NE(runs_of(file.get(), /*sync=*/false).at(0).flags & FIEMAP_EXTENT_DELALLOC, 0U);
    EXPECT_EQ(runs_of(file.get(), /*sync=*/true).at(0).flags & FIEMAP_EXTENT_DELALLOC, 0U);
}

TEST_P(MountedKernel, MappedPagesStayInTheCache)
{
    const Descriptor file = file_of("f", 4, 'o');
    const auto bytes = static_cast<std::size_t>(4 * block());
    auto* const mapped =
        static_cast<const char*>(mmap(nullptr, bytes, PROT_READ, MAP_SHARED, file.get(), 0));
    ASSERT_NE(mapped, MAP_FAILED);
    const volatile char touched = mapped[0];
    EXPECT_EQ(touched, 'o');

    drop_pages(file.get());
    volume().client_write(place_of(file.get(), 0), block_of('c'));
    EXPECT_EQ(difference(read_at(file.get(), 0, block()), block_of('o')), "")
        << "a page that somebody maps does not go";
    EXPECT_EQ(munmap(const_cast<char*>(mapped), bytes), 0);
    drop_pages(file.get());
    EXPECT_EQ(difference(read_at(file.get(), 0, block()), block_of('c')), "");
}

TEST_P(MountedKernel, ReflinkedBlocksBelongToTwoFiles)
{
    const Descriptor file = file_of("f", 4, 'o');
    const Descriptor copy = open_file(volume().path("copy"), kNewFile);
    const int status = ioctl(copy.get(), FICLONE, file.get());
    if (!GetParam().has_reflinks) {
        EXPECT_EQ(status, -1);
        EXPECT_EQ(errno, EOPNOTSUPP);
        return;
    }
    ASSERT_EQ(status, 0);
    sync_file(copy.get());
    ASSERT_NE(runs_of(file.get(), true).at(0).flags & FIEMAP_EXTENT_SHARED, 0U);
    volume().client_write(place_of(file.get(), 0), block_of('c'));

    drop_pages(copy.get());
    EXPECT_EQ(difference(read_at(copy.get(), 0, block()), block_of('c')), "")
        << "written for one file, changed in both";
}

// Takes every block that is free. What was given back before is among them.
void take_all_blocks(const MountedVolume& volume)
{
    const Descriptor root = open_file(volume.mount_point(), O_RDONLY | O_DIRECTORY);
    ASSERT_EQ(syncfs(root.get()), 0);  // freed blocks come back with the journal, or later
    const Descriptor all = open_file(volume.path("all"), kNewFile);
    struct statvfs space {};
    ASSERT_EQ(fstatvfs(root.get(), &space), 0);
    // Less and less at a time: the last blocks need others beside them for their own extents.
    std::int64_t end = 0;
    for (auto piece = static_cast<std::int64_t>(space.f_bavail * space.f_frsize);
         piece >= volume.block_bytes();) {
        if (fallocate(all.get(), 0, end, piece) == 0) {
            end += piece;
        } else {
            ASSERT_EQ(errno, ENOSPC);
            piece = piece / 2 / volume.block_bytes() * volume.block_bytes();
        }
    }
    sync_file(all.get());
}

bool meet(const std::vector<FileRun>& some, const std::vector<FileRun>& others)
{
    for (const FileRun& a : some) {
        for (const FileRun& b : others) {
            if (a.physical < b.physical + b.bytes && b.physical < a.physical + a.bytes) return true;
        }
    }
    return false;
}

// The part of `runs` that lies in [start, end) of the file.
std::vector<FileRun> part_of(const std::vector<FileRun>& runs, std::int64_t start, std::int64_t end)
{
    std::vector<FileRun> part;
    for (FileRun run : runs) {
        const std::int64_t from = std::max(start, run.logical);
        const std::int64_t to = std::min(end, run.logical + run.bytes);
        if (from < to)
            part.push_back({from, run.physical + from - run.logical, to - from, run.flags});
    }
    return part;
}

// More than a file system keeps back for itself, so that some of it has to be used again.
std::int64_t large_bytes(const FsFormat& format)
{
    return format.image_bytes / 16;
}

TEST_P(MountedKernel, BlocksOfAnUnlinkedFileGoToOthersUnlessItIsHeldOpen)
{
    for (const bool is_held : {true, false}) {
        std::vector<FileRun> runs;
        const Descriptor held = [&] {
            Descriptor file = file_of("f", large_bytes(GetParam()) / block(), 'o');
            // What lies behind the end is a guess of the file system's, and goes when there is
            // need.
            runs = part_of(runs_of(file.get(), true), 0, large_bytes(GetParam()));
            return is_held ? std::move(file) : Descriptor();
        }();
        ASSERT_EQ(unlink(volume().path("f").c_str()), 0);
        take_all_blocks(volume());
        const Descriptor all = open_file(volume().path("all"), O_RDWR);

        EXPECT_EQ(meet(runs, runs_of(all.get(), true)), !is_held) << to_text(runs);
        ASSERT_EQ(unlink(volume().path("all").c_str()), 0);
    }
}

TEST_P(MountedKernel, PunchedAndTruncatedBlocksGoToOthers)
{
    const std::int64_t piece = large_bytes(GetParam());
    const Descriptor file = file_of("f", 4 * piece / block(), 'o');
    const auto runs = runs_of(file.get(), true);
    ASSERT_EQ(fallocate(file.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, piece, piece), 0);
    ASSERT_EQ(ftruncate(file.get(), 3 * piece), 0);
    sync_file(file.get());
    take_all_blocks(volume());
    const Descriptor all = open_file(volume().path("all"), O_RDWR);
    const auto taken = runs_of(all.get(), true);

    EXPECT_TRUE(meet(part_of(runs, piece, 2 * piece), taken)) << "punched";
    EXPECT_TRUE(meet(part_of(runs, 3 * piece, 4 * piece), taken)) << "cut off";
    EXPECT_FALSE(meet(part_of(runs, 0, piece), taken));
    EXPECT_FALSE(meet(part_of(runs, 2 * piece, 3 * piece), taken));
}

// A file's handle as the kernel gives it.
struct Handle {
    alignas(file_handle) char bytes[sizeof(file_handle) + MAX_HANDLE_SZ]{};
    [[nodiscard]] file_handle* get() { return reinterpret_cast<file_handle*>(bytes); }
};

void take_handle(const std::string& path, Handle& handle)
{
    int mount_id = 0;
    handle.get()->handle_bytes = MAX_HANDLE_SZ;
    ASSERT_EQ(name_to_handle_at(AT_FDCWD, path.c_str(), handle.get(), &mount_id, 0), 0)
        << std::strerror(errno);
}

ino_t inode_of(const std::string& path)
{
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_ino;
}

TEST_P(MountedKernel, InodeNumberIsUsedAgainAHandleIsNot)
{
    const Descriptor root = open_file(volume().mount_point(), O_RDONLY | O_DIRECTORY);
    {
        const Descriptor file = file_of("f", 1, 'o');
    }
    const ino_t number = inode_of(volume().path("f"));
    Handle old;
    take_handle(volume().path("f"), old);
    ASSERT_EQ(unlink(volume().path("f").c_str()), 0);
    ASSERT_EQ(syncfs(root.get()), 0);
    std::string again;
    for (int i = 0; again.empty(); ++i) {
        const std::string path = volume().path("n" + std::to_string(i));
        const Descriptor made(open(path.c_str(), kNewFile | O_CLOEXEC, 0644));
        ASSERT_TRUE(made.is_open()) << i << " files: " << std::strerror(errno);
        if (inode_of(path) == number) again = path;
    }

    Handle fresh;
    take_handle(again, fresh);
    EXPECT_NE(std::memcmp(old.bytes, fresh.bytes, sizeof old.bytes), 0);
    const Descriptor found(open_by_handle_at(root.get(), fresh.get(), O_RDONLY | O_CLOEXEC));
    EXPECT_TRUE(found.is_open()) << std::strerror(errno);
    const Descriptor lost(open_by_handle_at(root.get(), old.get(), O_RDONLY | O_CLOEXEC));
    EXPECT_FALSE(lost.is_open());
    EXPECT_EQ(errno, ESTALE);
}

TEST_P(MountedKernel, HandleFollowsARenamedFile)
{
    const Descriptor root = open_file(volume().mount_point(), O_RDONLY | O_DIRECTORY);
    {
        const Descriptor file = file_of("f", 1, 'o');
    }
    Handle handle;
    take_handle(volume().path("f"), handle);
    ASSERT_EQ(rename(volume().path("f").c_str(), volume().path("g").c_str()), 0);

    const Descriptor found(open_by_handle_at(root.get(), handle.get(), O_RDONLY | O_CLOEXEC));
    ASSERT_TRUE(found.is_open()) << std::strerror(errno);
    EXPECT_EQ(difference(read_at(found.get(), 0, block()), block_of('o')), "");
}

// What a kernel lease says and what it does not.
TEST_P(MountedKernel, LeaseHoldsOpenersBackButNotUnlinkersNorThoseWhoHaveItOpen)
{
    {
        const Descriptor file = file_of("f", 4, 'o');
    }
    const Descriptor held = open_file(volume().path("f"), O_RDWR);
    {
        const Descriptor other = open_file(volume().path("f"), O_RDONLY);
        EXPECT_EQ(fcntl(held.get(), F_SETLEASE, F_WRLCK), -1) << "somebody else has it open";
        EXPECT_EQ(errno, EAGAIN);
    }
    ASSERT_EQ(fcntl(held.get(), F_SETSIG, SIGURG),
              0);  // what breaks it says so by a signal that kills nobody
    ASSERT_EQ(fcntl(held.get(), F_SETLEASE, F_WRLCK), 0) << std::strerror(errno);

    const Descriptor refused(open(volume().path("f").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    EXPECT_FALSE(refused.is_open());
    EXPECT_EQ(errno, EWOULDBLOCK);
    EXPECT_EQ(rename(volume().path("f").c_str(), volume().path("g").c_str()), 0);
    EXPECT_EQ(unlink(volume().path("g").c_str()), 0);
    EXPECT_EQ(ftruncate(held.get(), 0), 0) << "nor whoever has the descriptor";
}

}  // namespace
}  // namespace corvane::test

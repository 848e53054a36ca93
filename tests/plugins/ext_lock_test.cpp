// Locks: who may change what while maps are out, and that blocks given up are not given away too
// early.
#include <gtest/gtest.h>

#include <set>

#include "tests/plugins/ext_image.hpp"
#include "tests/plugins/host_log.hpp"

namespace corvane::test {
namespace {

const Plugin& plugin()
{
    static const Plugin loaded(CORVANE_PLUGIN_FILE);
    return loaded;
}

class ExtLock : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override
    {
        image_.put("f", pattern(kSize, 1));
        image_.put("g", "");
        serve(plugin(), scratch_, "/mnt/v ext " + image_.path() + " rw\n");
        f_ = plugin().find("/mnt/v/f");
        g_ = plugin().find("/mnt/v/g");
    }
    [[nodiscard]] std::set<std::uint64_t> blocks_of_file(const std::string& name) const
    {
        std::set<std::uint64_t> blocks;
        for (const DiskRun& run : image_.runs(name)) {
            for (std::uint64_t i = 0; i < run.count; ++i) blocks.insert(run.physical + i);
        }
        return blocks;
    }

    static constexpr std::int64_t kSize = 100000;
    Scratch scratch_;
    ExtImage image_{scratch_, GetParam(), 2048};
    Cookies f_;
    Cookies g_;
};

INSTANTIATE_TEST_SUITE_P(Formats, ExtLock,
                         testing::Values("-t ext2 -b 1024", "-t ext3 -b 1024", "-t ext4 -b 1024",
                                         "-t ext4 -b 4096"));

TEST_P(ExtLock, UnlockSaysWhetherThereWasALock)
{
    EXPECT_EQ(plugin().unlock(f_), FS_E_NOT_LOCKED);
    EXPECT_EQ(plugin().map(f_).result, 0U);
    EXPECT_EQ(plugin().map(f_, 0, 4096).result, 0U);
    EXPECT_EQ(plugin().unlock(f_), 0U);
    EXPECT_EQ(plugin().unlock(f_), FS_E_NOT_LOCKED);
    EXPECT_EQ(plugin().map(f_, 0, -1, FS_M_FLAG_UNLOCKED).result, 0U);
    EXPECT_EQ(plugin().unlock(f_), FS_E_NOT_LOCKED);
}

TEST_P(ExtLock, OneHolderChangesItsFileAsItLikes)
{
    plugin().map(f_);
    plugin().map(f_, 0, -1, FS_M_FLAG_REMAP);
    plugin().map(f_, 8192, -1);
    plugin().map(f_, 0, 8192);
    EXPECT_EQ(plugin().set_sizes(f_, 5000, 5000), 0U);
    EXPECT_EQ(plugin().set_sizes(f_, 200000, -1), 0U);
    EXPECT_EQ(plugin().set_sizes(f_, 0, 0), 0U);
    image_.expect_clean("afterwards");
}

TEST_P(ExtLock, SeveralHoldersMayGrowButNotShrink)
{
    const Map first = plugin().map(f_);
    plugin().map(f_);
    EXPECT_EQ(plugin().set_sizes(f_, kSize - 1, -1), FS_E_PRIVILEGE);
    EXPECT_EQ(plugin().set_sizes(f_, 0, 0), FS_E_PRIVILEGE);
    EXPECT_EQ(image_.dump("f"), pattern(kSize, 1));
    EXPECT_EQ(plugin().set_sizes(f_, 2 * kSize, 2 * kSize), 0U);
    EXPECT_EQ(image_.read_through(first), pattern(kSize, 1)) << "the first map still holds";
    EXPECT_EQ(plugin().set_sizes(f_, 2 * kSize, 2 * kSize), 0U) << "as Close does it";

    plugin().unlock(f_);
    plugin().map(f_);
    EXPECT_EQ(plugin().set_sizes(f_, 0, 0), 0U) << "alone again";
    image_.expect_clean("afterwards");
}

// Close asks for an allocation of just the file size; with others about, what lies past it stays.
TEST_P(ExtLock, TrimmingWaitsForTheLastHolder)
{
    plugin().map(f_);
    plugin().map(f_);
    ASSERT_EQ(plugin().set_sizes(f_, -1, 4 * kSize), 0U);
    EXPECT_EQ(plugin().set_sizes(f_, kSize, kSize), 0U);
    EXPECT_GE(plugin().map(f_, 0, -1, FS_M_FLAG_REMAP).info.allocation, 4 * kSize);
    plugin().unlock(f_);
    plugin().map(f_);
    EXPECT_EQ(plugin().set_sizes(f_, kSize, kSize), 0U);
    EXPECT_LT(plugin().map(f_, 0, -1, FS_M_FLAG_REMAP).info.allocation, kSize + 4096);
    image_.expect_clean("afterwards");
}

// An unlocked map beside a holder counts: its request may change sizes as well.
TEST_P(ExtLock, UnlockedMapBesideAHolderCounts)
{
    plugin().map(f_);
    plugin().map(f_, 0, -1, FS_M_FLAG_UNLOCKED);
    EXPECT_EQ(plugin().set_sizes(f_, 0, -1), FS_E_PRIVILEGE);
}

// The heart of it: what a holder gave up can still be reached through its map, so nobody else gets
// it before the file is unlocked.
TEST_P(ExtLock, FreedBlocksAreHeldBackUntilUnlocked)
{
    const auto old_blocks = blocks_of_file("f");
    plugin().map(f_);
    ASSERT_EQ(plugin().set_sizes(f_, 0, 0), 0U);
    image_.expect_clean("while blocks are held back");

    plugin().map(g_);
    EXPECT_EQ(plugin().set_sizes(g_, -1, 1 << 30), FS_E_SHORT_ALLOC);
    for (const std::uint64_t block : blocks_of_file("g")) EXPECT_EQ(old_blocks.count(block), 0U);
    plugin().set_sizes(g_, 0, 0);
    plugin().unlock(g_);
    image_.expect_clean("the second file is empty again");

    EXPECT_EQ(plugin().unlock(f_), 0U);
    plugin().map(g_);
    EXPECT_EQ(plugin().set_sizes(g_, 1 << 30, 1 << 30), FS_E_SHORT_ALLOC);
    std::size_t reused = 0;
    for (const std::uint64_t block : blocks_of_file("g")) reused += old_blocks.count(block);
    EXPECT_GT(reused, old_blocks.size() / 2);
    image_.expect_clean("at the end");
}

TEST_P(ExtLock, LocksOfTwoFilesAreApart)
{
    plugin().map(f_);
    plugin().map(f_);
    plugin().map(g_);
    EXPECT_EQ(plugin().set_sizes(g_, 5000, 5000), 0U);
    EXPECT_EQ(plugin().set_sizes(g_, 0, 0), 0U);
    EXPECT_EQ(plugin().unlock(g_), 0U);
    EXPECT_EQ(plugin().set_sizes(f_, 0, 0), FS_E_PRIVILEGE);
}

TEST_P(ExtLock, ReadOnlyVolumeAllowsWhatChangesNothing)
{
    serve(plugin(), scratch_, "/mnt/v ext " + image_.path() + " ro\n");
    const std::string before = read_whole_file(image_.path());
    plugin().map(f_);
    EXPECT_EQ(plugin().set_sizes(f_, kSize, kSize), 0U) << "a reader's Close";
    EXPECT_EQ(plugin().set_sizes(f_, -1, -1), 0U);
    EXPECT_EQ(plugin().set_sizes(f_, kSize + 1, -1), FS_E_PRIVILEGE);
    EXPECT_EQ(plugin().set_sizes(f_, 0, -1), FS_E_PRIVILEGE);
    EXPECT_EQ(plugin().set_sizes(f_, -1, 2 * kSize), FS_E_PRIVILEGE);
    EXPECT_EQ(plugin().set_sizes(f_, -1, kSize), FS_E_PRIVILEGE) << "a writer asks for its blocks";
    EXPECT_EQ(plugin().unlock(f_), 0U);
    EXPECT_TRUE(read_whole_file(image_.path()) == before) << "not a byte may change";
}

TEST_P(ExtLock, ImmutableFilesKeepTheirSize)
{
    serve(plugin(), scratch_, "");
    image_.debugfs(
        "set_inode_field f flags " +
        std::string(std::string(GetParam()).starts_with("-t ext4") ? "0x80010" : "0x10"));
    serve(plugin(), scratch_, "/mnt/v ext " + image_.path() + " rw\n");
    EXPECT_EQ(plugin().map(f_).result, 0U);
    EXPECT_EQ(plugin().set_sizes(f_, kSize, kSize), 0U);
    EXPECT_EQ(plugin().set_sizes(f_, 2 * kSize, -1), FS_E_PRIVILEGE);
    EXPECT_EQ(plugin().set_sizes(f_, -1, kSize), FS_E_PRIVILEGE);
}

}  // namespace
}  // namespace corvane::test

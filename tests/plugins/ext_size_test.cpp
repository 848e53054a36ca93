// Size and allocation changes: what the map says, what debugfs sees, and that e2fsck finds nothing
// to complain of.
#include <gtest/gtest.h>

#include "tests/plugins/ext_image.hpp"
#include "tests/plugins/host_log.hpp"

namespace corvane::test {
namespace {

const Plugin& plugin()
{
    static const Plugin loaded(CORVANE_PLUGIN_FILE);
    return loaded;
}

struct Format {
    const char* name;
    const char* options;
    bool has_extents;
};

constexpr Format kFormats[] = {
    {"Ext2Of1K", "-t ext2 -b 1024", false},
    {"Ext2Of4K", "-t ext2 -b 4096", false},
    {"Ext3Of1K", "-t ext3 -b 1024", false},
    {"Ext3Of4K", "-t ext3 -b 4096", false},
    {"Ext4Of1K", "-t ext4 -b 1024", true},
    {"Ext4Of4K", "-t ext4 -b 4096", true},
    {"Ext4Without64Bits", "-t ext4 -b 4096 -O ^64bit,^metadata_csum", true},
};

class ExtSize : public testing::TestWithParam<Format> {
protected:
    void SetUp() override
    {
        ASSERT_EQ(serve(plugin(), scratch_, "/mnt/v ext " + image_.path() + " rw\n"), 0U);
        ASSERT_NE(take_log().find("served"), std::string::npos);
    }
    void serve_with(const std::string& name, const std::string& content)
    {
        serve(plugin(), scratch_, "");  // lets go of the image
        image_.put(name, content);
        SetUp();
    }
    [[nodiscard]] std::int64_t blocks(std::int64_t count) const
    {
        return count * image_.block_bytes();
    }

    Scratch scratch_;
    ExtImage image_{scratch_, GetParam().options, 8192};
};

INSTANTIATE_TEST_SUITE_P(Formats, ExtSize, testing::ValuesIn(kFormats),
                         [](const auto& row) { return row.param.name; });

// A client's way to write a new file: size and allocation first, blocks, then Close.
TEST_P(ExtSize, PutWithKnownSize)
{
    serve_with("f", "");
    const auto file = plugin().find("/mnt/v/f");
    const std::string content = pattern(100001, 7);
    const auto size = static_cast<std::int64_t>(content.size());

    ASSERT_EQ(plugin().map(file).result, 0U);
    ASSERT_EQ(plugin().set_sizes(file, size, size), 0U);
    image_.expect_clean("after the allocation");
    const Map map = plugin().map(file, 0, -1, FS_M_FLAG_REMAP);
    EXPECT_EQ(image_.read_through(map), std::string(content.size(), '\0'));
    EXPECT_EQ(image_.write_through(map, 0, content), content.size());
    ASSERT_EQ(plugin().set_sizes(file, size, size), 0U);
    EXPECT_EQ(plugin().unlock(file), 0U);

    EXPECT_EQ(image_.dump("f"), content);
    image_.expect_clean("after the close");
}

// The same without a size in the first request: the file is empty until Close.
TEST_P(ExtSize, PutWithAllocationAlone)
{
    serve_with("f", "");
    const auto file = plugin().find("/mnt/v/f");
    const std::string content = pattern(50001, 8);

    ASSERT_EQ(plugin().map(file).result, 0U);
    ASSERT_EQ(plugin().set_sizes(file, -1, 100000), 0U);
    const Map map = plugin().map(file, 0, -1, FS_M_FLAG_REMAP);
    EXPECT_EQ(map.info.fileSize, 0);
    EXPECT_GE(map.info.allocation, 100000);
    EXPECT_GE(map.end(), 100000);
    EXPECT_EQ(image_.write_through(map, 0, content), content.size());
    if (GetParam().has_extents) image_.expect_clean("blocks past the end");
    const auto size = static_cast<std::int64_t>(content.size());
    ASSERT_EQ(plugin().set_sizes(file, size, size), 0U);
    image_.expect_clean("after the close");
    plugin().unlock(file);

    EXPECT_EQ(image_.dump("f"), content);
    EXPECT_LT(plugin().map(file).info.allocation, size + 4096);
}

// A client that died: its allocation past the end must neither show nor hurt.
TEST_P(ExtSize, AllocationPastTheEndOfALostClient)
{
    serve_with("f", pattern(3000, 1));
    const auto file = plugin().find("/mnt/v/f");
    plugin().map(file);
    ASSERT_EQ(plugin().set_sizes(file, -1, 100000), 0U);
    const Map map = plugin().map(file, 0, -1, FS_M_FLAG_REMAP);
    image_.write_through(map, 4096, pattern(50000, 9));
    plugin().unlock(file);
    EXPECT_EQ(plugin().map(file).result, 0U);
    image_.expect_clean("after the lease ran out");
    plugin().unlock(file);

    ASSERT_EQ(plugin().set_sizes(file, 60000, -1), 0U);
    std::string expected = pattern(3000, 1);
    expected.resize(60000, '\0');
    EXPECT_EQ(image_.dump("f"), expected);
    EXPECT_EQ(image_.read_through(plugin().map(file)), expected);
}

TEST_P(ExtSize, GrowingWithoutAllocationLeavesAHole)
{
    serve_with("f", pattern(1000, 1));
    const auto file = plugin().find("/mnt/v/f");
    ASSERT_EQ(plugin().set_sizes(file, 100000, -1), 0U);
    image_.expect_clean("after growing");
    EXPECT_EQ(image_.runs("f").size(), 1U);
    std::string expected = pattern(1000, 1);
    expected.resize(100000, '\0');
    EXPECT_EQ(image_.dump("f"), expected);
}

// What was cut off must not come back, neither in the last block nor in blocks allocated anew.
TEST_P(ExtSize, CutBytesReadAsZerosAfterwards)
{
    serve_with("f", pattern(20000, 1));
    const auto file = plugin().find("/mnt/v/f");
    ASSERT_EQ(plugin().set_sizes(file, 4500, -1), 0U);
    image_.expect_clean("after cutting");
    EXPECT_EQ(image_.dump("f"), pattern(20000, 1).substr(0, 4500));
    ASSERT_EQ(plugin().set_sizes(file, 20000, 20000), 0U);
    image_.expect_clean("after growing");
    std::string expected = pattern(20000, 1).substr(0, 4500);
    expected.resize(20000, '\0');
    EXPECT_EQ(image_.dump("f"), expected);
    EXPECT_EQ(image_.read_through(plugin().map(file)), expected);
}

TEST_P(ExtSize, AllocationFillsHolesWithZeros)
{
    serve(plugin(), scratch_, "");
    image_.put_fragmented("f", 20);
    SetUp();
    const auto file = plugin().find("/mnt/v/f");
    const std::string before = image_.dump("f");
    const auto size = static_cast<std::int64_t>(before.size());
    ASSERT_EQ(plugin().set_sizes(file, -1, size), 0U);
    image_.expect_clean("afterwards");
    EXPECT_EQ(image_.dump("f"), before);
    const Map map = plugin().map(file);
    for (const auto& extent : map.extents) EXPECT_EQ(extent.validity, FS_VALIDITY_DATA);
    EXPECT_EQ(image_.read_through(map), before);
}

TEST_P(ExtSize, FullVolumeGivesWhatItHas)
{
    serve_with("f", "");
    const auto file = plugin().find("/mnt/v/f");
    plugin().map(file);
    EXPECT_EQ(plugin().set_sizes(file, 1 << 30, 1 << 30), FS_E_SHORT_ALLOC);
    image_.expect_clean("full");
    const Map map = plugin().map(file, 0, -1, FS_M_FLAG_REMAP);
    EXPECT_EQ(map.info.fileSize, 1 << 30);
    EXPECT_GT(map.info.allocation, 3 << 20);
    EXPECT_EQ(plugin().set_sizes(file, 0, 0), 0U);
    EXPECT_EQ(plugin().unlock(file), 0U);
    EXPECT_EQ(plugin().set_sizes(file, 3 << 20, 3 << 20), 0U) << "all of it is free again";
    image_.expect_clean("at the end");
}

// Sizes that the format cannot hold.
TEST_P(ExtSize, AbsurdSizesAreRefused)
{
    serve_with("f", pattern(5000, 1));
    const auto file = plugin().find("/mnt/v/f");
    EXPECT_EQ(plugin().set_sizes(file, INT64_MAX, -1), FS_E_MISC_ERROR);
    EXPECT_EQ(plugin().set_sizes(file, -2, -1), FS_E_IVPARAM);
    EXPECT_EQ(plugin().set_sizes(file, -1, INT64_MIN), FS_E_IVPARAM);
    EXPECT_EQ(plugin().set_sizes(file, -1, -1), 0U);
    EXPECT_EQ(image_.dump("f"), pattern(5000, 1));
    image_.expect_clean("afterwards");
    // Past 2 GiB the superblock has to say so.
    EXPECT_EQ(plugin().set_sizes(file, std::int64_t{3} << 30, -1), 0U);
    image_.expect_clean("three gigabytes");
    EXPECT_EQ(plugin().map(file).info.fileSize, std::int64_t{3} << 30);
}

// Many small steps over blocks allocated once: the data shows as the size takes it in.
TEST_P(ExtSize, GrowsOverItsAllocationInSteps)
{
    serve_with("f", "");
    const auto file = plugin().find("/mnt/v/f");
    const std::string content = pattern(400000, 5);
    plugin().map(file);
    ASSERT_EQ(plugin().set_sizes(file, -1, 400000), 0U);
    const Map map = plugin().map(file, 0, -1, FS_M_FLAG_REMAP);
    ASSERT_EQ(image_.write_through(map, 0, content), content.size());
    for (std::int64_t size = 3333; size < 400000; size += 33333) {
        ASSERT_EQ(plugin().set_sizes(file, size, -1), 0U);
        EXPECT_EQ(image_.dump("f"), content.substr(0, static_cast<std::size_t>(size)));
        if (GetParam().has_extents) image_.expect_clean(std::to_string(size));
    }
    ASSERT_EQ(plugin().set_sizes(file, 400000, 400000), 0U);
    image_.expect_clean("at the end");
    EXPECT_EQ(image_.dump("f"), content);
    EXPECT_LE(image_.runs("f").size(), 12U) << "joined, not one extent a step";
}

TEST(ExtSizeOfExt4, UnwrittenBlocksBecomeZeroedDataForAWriter)
{
    const Scratch scratch;
    const ExtImage image(scratch, "-t ext4 -b 1024", 4096);
    // Old bytes in the blocks that fallocate is going to hand out.
    image.put("old", pattern(2000000, 1));
    image.debugfs("rm old");
    image.put("f", pattern(3000, 1));
    image.debugfs("fallocate f 5 500");
    image.debugfs("set_inode_field f size 100000");
    serve(plugin(), scratch, "/mnt/v ext " + image.path() + " rw\n");
    const auto file = plugin().find("/mnt/v/f");
    const std::string before = image.dump("f");
    plugin().map(file);

    ASSERT_EQ(plugin().set_sizes(file, -1, 200000), 0U);

    image.expect_clean("afterwards");
    EXPECT_EQ(image.dump("f"), before);
    const Map map = plugin().map(file, 0, -1, FS_M_FLAG_REMAP);
    for (const auto& extent : map.extents) EXPECT_EQ(extent.validity, FS_VALIDITY_DATA);
    EXPECT_GE(map.end(), 200000);
    EXPECT_EQ(image.read_through(map), before);
    ASSERT_EQ(plugin().set_sizes(file, 200000, -1), 0U);
    EXPECT_EQ(image.dump("f"), before + std::string(100000, '\0'));
    image.expect_clean("after growing");
}

}  // namespace
}  // namespace corvane::test

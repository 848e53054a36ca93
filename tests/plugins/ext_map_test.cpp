// Maps of existing files, compared block by block with what debugfs says and byte by byte with what
// it dumps.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "tests/plugins/ext_image.hpp"
#include "tests/plugins/host_log.hpp"

namespace corvane::test {
namespace {

const Plugin& plugin()
{
    static const Plugin loaded(CORVANE_PLUGIN_FILE);
    return loaded;
}

class ExtMap : public testing::TestWithParam<const char*> {
protected:
    void serve_read_only() { serve(plugin(), scratch_, "/mnt/v ext " + image_.path() + " ro\n"); }
    [[nodiscard]] std::int64_t block_bytes() const { return image_.block_bytes(); }
    void expect_same_as_debugfs(const std::string& name) const
    {
        const auto file = plugin().find("/mnt/v/" + name);
        ASSERT_EQ(file.result, FS_E_SUCCESS);
        const Map map = plugin().map(file);
        ASSERT_EQ(map.result, FS_E_SUCCESS);
        const std::string content = image_.dump(name);
        EXPECT_EQ(map.info.fileSize, static_cast<std::int64_t>(content.size()));
        EXPECT_EQ(map.info.fileOffset, 0);
        EXPECT_EQ(map.info.extentType, FS_EXTENT_VERBOSE);
        EXPECT_EQ(to_text(map.extents), to_text(image_.expected_extents(name, content.size())));
        EXPECT_EQ(image_.read_through(map), content);
        std::int64_t allocated = 0;
        for (const DiskRun& run : image_.runs(name)) {
            allocated += static_cast<std::int64_t>(run.count) * block_bytes();
        }
        EXPECT_EQ(map.info.allocation, allocated);
        plugin().unlock(file);
    }

    Scratch scratch_;
    ExtImage image_{scratch_, GetParam(), 16384};
};

INSTANTIATE_TEST_SUITE_P(Formats, ExtMap,
                         testing::Values("-t ext2 -b 1024", "-t ext2 -b 4096", "-t ext3 -b 1024",
                                         "-t ext3 -b 4096", "-t ext4 -b 1024", "-t ext4 -b 4096",
                                         "-t ext4 -b 4096 -O bigalloc -C 16384"));

TEST_P(ExtMap, IsWhatDebugfsSays)
{
    image_.put("empty", "");
    image_.put("tiny", "x");
    image_.put("block", pattern(image_.block_bytes(), 1));
    image_.put("large", pattern(3000001, 2));
    image_.put_fragmented("sparse", 300);
    serve_read_only();

    for (const char* const name : {"empty", "tiny", "block", "large", "sparse"}) {
        SCOPED_TRACE(name);
        expect_same_as_debugfs(name);
    }
}

// A hole at the end, and blocks behind triple indirection: sizes come from debugfs, bytes from
// nowhere.
TEST_P(ExtMap, HolesReachToTheEnd)
{
    image_.put("f", pattern(5000, 1));
    image_.debugfs("set_inode_field f size 700000");
    serve_read_only();

    const auto file = plugin().find("/mnt/v/f");
    const Map map = plugin().map(file);

    ASSERT_FALSE(map.extents.empty());
    EXPECT_EQ(map.extents.back().validity, FS_VALIDITY_HOLE);
    EXPECT_EQ(map.extents.back().PhysicalByteAddr, 0);
    EXPECT_EQ(map.end(), (700000 + block_bytes() - 1) / block_bytes() * block_bytes());
    expect_same_as_debugfs("f");
}

TEST_P(ExtMap, RangesAreCutToTheBlock)
{
    image_.put("f", pattern(100000, 1));
    serve_read_only();
    const auto file = plugin().find("/mnt/v/f");
    const std::string content = image_.dump("f");

    const Map part = plugin().map(file, 2 * block_bytes(), block_bytes() + 1);
    EXPECT_EQ(part.info.fileOffset, 2 * block_bytes());
    EXPECT_EQ(part.info.fileBytes, 2 * block_bytes());
    EXPECT_EQ(image_.read_through(part),
              content.substr(static_cast<std::size_t>(2 * block_bytes()),
                             static_cast<std::size_t>(2 * block_bytes())));

    const Map behind = plugin().map(file, 1 << 20, block_bytes());
    EXPECT_EQ(behind.result, FS_E_SUCCESS);
    EXPECT_TRUE(behind.extents.empty());
    EXPECT_EQ(behind.info.fileOffset, 1 << 20);
    EXPECT_EQ(behind.info.fileBytes, 0);

    EXPECT_EQ(plugin().map(file, 0, 0).info.fileBytes, 0);
    EXPECT_EQ(plugin().map(file, 0, INT64_MAX).end(), plugin().map(file).end());
    EXPECT_EQ(plugin().map(file, block_bytes(), INT64_MAX).end(), plugin().map(file).end());
    EXPECT_EQ(plugin().map(file, 0, INT64_MIN).end(), plugin().map(file).end());
    EXPECT_EQ(plugin().map(file, 1).result, FS_E_IVPARAM);
    EXPECT_EQ(plugin().map(file, block_bytes() - 1).result, FS_E_IVPARAM);
    EXPECT_EQ(plugin().map(file, -block_bytes()).result, FS_E_IVPARAM);
    plugin().unlock(file);
}

// A client that goes on where each partial map ends sees the whole file, however small the room.
TEST_P(ExtMap, PartialMapsAddUp)
{
    image_.put_fragmented("f", 100);
    serve_read_only();
    const auto file = plugin().find("/mnt/v/f");
    const Map whole = plugin().map(file);
    ASSERT_GT(whole.extents.size(), 150U);

    for (const std::uint32_t room : {96U, 127U, 128U, 1000U, 64U + 32U * 199U}) {
        std::vector<VerboseExtent> all;
        std::int64_t start = 0;
        std::uint32_t result = FS_E_PARTIAL;
        while (result == FS_E_PARTIAL) {
            const Map part = plugin().map(file, start, -1, 0, room);
            result = part.result;
            ASSERT_LE(result, FS_E_PARTIAL);
            ASSERT_GT(part.end(), start);
            start = part.end();
            all.insert(all.end(), part.extents.begin(), part.extents.end());
        }
        EXPECT_EQ(to_text(all), to_text(whole.extents)) << room;
    }
    plugin().unlock(file);
}

TEST_P(ExtMap, RoomForNoExtentIsAnError)
{
    image_.put("f", pattern(5000, 1));
    image_.put("empty", "");
    serve_read_only();
    const auto file = plugin().find("/mnt/v/f");
    for (const std::uint32_t room : {0U, 1U, 63U, 64U, 95U}) {
        const Map map = plugin().map(file, 0, -1, 0, room);
        EXPECT_EQ(map.result, FS_E_OUT_OF_MEMORY) << room;
        EXPECT_EQ(map.used_bytes, 0U);
    }
    EXPECT_EQ(plugin().unlock(file), FS_E_NOT_LOCKED) << "no map, no lock";
    EXPECT_EQ(plugin().map(plugin().find("/mnt/v/empty"), 0, -1, 0, 64).result, FS_E_SUCCESS);
}

TEST_P(ExtMap, VolumeRecordNamesTheDiskByItsUuid)
{
    must_run("tune2fs -f -U 00112233-4455-6677-8899-aabbccddeeff " + image_.path());
    serve_read_only();
    Cookie cookie{};
    const auto mount_point = widen("/mnt/v");
    ASSERT_EQ(
        plugin().volume_cookie(reinterpret_cast<const FSUNI*>(mount_point.c_str()), cookie.data()),
        FS_E_SUCCESS);
    std::array<char, 200> record{};
    std::uint32_t room = record.size();
    ASSERT_EQ(plugin().volume_by_cookie(cookie.data(), record.data(), &room), FS_E_SUCCESS);

    VolumeInfo info{};
    FSDisk disk{};
    std::memcpy(&info, record.data(), sizeof info);
    std::memcpy(&disk, record.data() + sizeof info, sizeof disk);
    EXPECT_EQ(room, 184U);
    EXPECT_EQ(info.msgLen, 184);
    EXPECT_EQ(info.vendorStatus, 0);
    EXPECT_EQ(info.FStype, 0xEF53);
    EXPECT_EQ(info.nDisks, 1U);
    EXPECT_EQ(info.BlockSize, block_bytes());
    EXPECT_EQ(disk.IDlength, 16);
    EXPECT_EQ(disk.BlockOffset, 0);
    EXPECT_EQ(disk.nBlocks, 16384 * 1024 / block_bytes());
    const std::string image = read_whole_file(image_.path());
    EXPECT_EQ(std::memcmp(disk.DiskID, image.data() + disk.IDoffset, 16), 0);
    EXPECT_EQ(disk.DiskID[1], 0x11);
    room = 183;
    EXPECT_EQ(plugin().volume_by_cookie(cookie.data(), record.data(), &room), FS_E_OUT_OF_MEMORY);
    EXPECT_EQ(room, 0U);
}

TEST_P(ExtMap, OnlyPlainFilesHaveMaps)
{
    image_.debugfs("mkdir d");
    image_.debugfs("mknod pipe p");
    image_.debugfs("mknod null c 1 3");
    for (const char* const name : {"encrypted", "compressed", "verity"}) image_.put(name, "x");
    image_.debugfs("set_inode_field encrypted flags 0x800");
    image_.debugfs("set_inode_field compressed flags 0x4");
    image_.debugfs("set_inode_field verity flags 0x100000");
    serve_read_only();

    for (const char* const name : {"d", "pipe", "null", "encrypted", "compressed", "verity", ""}) {
        const auto file = plugin().find(std::string("/mnt/v/") + name);
        ASSERT_EQ(file.result, FS_E_SUCCESS) << name;
        EXPECT_EQ(plugin().map(file).result, FS_E_NO_DIRECT) << name;
        EXPECT_EQ(plugin().set_sizes(file, 10, 10), FS_E_NO_DIRECT) << name;
    }
}

TEST(ExtMapOfExt4, InlineDataHasNoMap)
{
    const Scratch scratch;
    const ExtImage image(scratch, "-t ext4 -b 1024 -O inline_data -I 256", 8192);
    image.put("f", "a few bytes");
    ASSERT_THAT(image.stat("f"), testing::HasSubstr("0x10000000"));
    serve(plugin(), scratch, "/mnt/v ext " + image.path() + " rw\n");

    const auto file = plugin().find("/mnt/v/f");

    EXPECT_EQ(plugin().map(file).result, FS_E_NO_DIRECT);
    EXPECT_EQ(plugin().set_sizes(file, 5000, 5000), FS_E_NO_DIRECT);
    image.expect_clean("afterwards");
}

TEST(ExtMapOfExt4, UnwrittenBlocksAreTold)
{
    const Scratch scratch;
    const ExtImage image(scratch, "-t ext4 -b 1024", 8192);
    image.put("f", pattern(3000, 1));
    image.debugfs("fallocate f 5 9");
    image.debugfs("set_inode_field f size 12000");
    serve(plugin(), scratch, "/mnt/v ext " + image.path() + "\n");

    const Map map = plugin().map(plugin().find("/mnt/v/f"));

    ASSERT_EQ(map.extents.size(), 4U) << to_text(map.extents);
    EXPECT_EQ(map.extents[0].validity, FS_VALIDITY_DATA);
    EXPECT_EQ(map.extents[1].validity, FS_VALIDITY_HOLE);
    EXPECT_EQ(map.extents[2].validity, FS_VALIDITY_UNWRITTEN);
    EXPECT_EQ(map.extents[2].LogicalByteAddr, 5 * 1024);
    EXPECT_EQ(map.extents[2].nBytes, 5 * 1024);
    EXPECT_EQ(map.extents[3].validity, FS_VALIDITY_HOLE);
    EXPECT_EQ(to_text(map.extents), to_text(image.expected_extents("f", 12000)));
}

}  // namespace
}  // namespace corvane::test

// The example plug-in of the authors' guide, entry point by entry point.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>

#include "tests/plugins/plugin.hpp"
#include "tests/plugins/scratch.hpp"

namespace corvane::test {
namespace {

class Example : public testing::Test {
protected:
    void SetUp() override
    {
        const std::string disk = scratch_.write("disk", content_);
        const std::string list = scratch_.write(
            "volumes.conf", "/mnt/other ext /dev/none ro\n/mnt/flat example " + disk + "\n");
        setenv("CORVANE_VOLUMES_FILE", list.c_str(), 1);
        ASSERT_EQ(plugin_.init(), FS_E_SUCCESS);
    }

    Scratch scratch_;
    std::string content_ = pattern(10000, 3);
    Plugin plugin_{CORVANE_PLUGIN_FILE};
};

TEST_F(Example, DescribesItsDisk)
{
    Cookie cookie{};
    const auto mount_point = widen("/mnt/flat");
    ASSERT_EQ(
        plugin_.volume_cookie(reinterpret_cast<const FSUNI*>(mount_point.c_str()), cookie.data()),
        FS_E_SUCCESS);
    VolumeInfo info{};
    FSDisk disk{};
    std::array<char, sizeof info + sizeof disk> record{};
    std::uint32_t room = record.size();

    ASSERT_EQ(plugin_.volume_by_cookie(cookie.data(), record.data(), &room), FS_E_SUCCESS);

    std::memcpy(&info, record.data(), sizeof info);
    std::memcpy(&disk, record.data() + sizeof info, sizeof disk);
    EXPECT_EQ(room, record.size());
    EXPECT_EQ(info.msgLen, 184);
    EXPECT_EQ(info.BlockSize, 4096);
    EXPECT_EQ(info.nDisks, 1U);
    EXPECT_EQ(disk.nBlocks, 3);
    EXPECT_EQ(std::memcmp(disk.DiskID, content_.data(), 16), 0);
    room = record.size() - 1;
    EXPECT_EQ(plugin_.volume_by_cookie(cookie.data(), record.data(), &room), FS_E_OUT_OF_MEMORY);
}

TEST_F(Example, MapsItsOneFile)
{
    const auto file = plugin_.find("/mnt/flat/data");
    ASSERT_EQ(file.result, FS_E_SUCCESS);

    const Map map = plugin_.map(file);

    EXPECT_EQ(map.result, FS_E_SUCCESS);
    EXPECT_EQ(map.info.fileSize, 10000);
    EXPECT_EQ(to_text(map.extents), "0+12288@0/0");
    EXPECT_EQ(to_text(plugin_.map(file, 4096, 100).extents), "4096+4096@4096/0");
    EXPECT_EQ(to_text(plugin_.map(file, 12288).extents), "");
    EXPECT_EQ(plugin_.map(file, 100).result, FS_E_IVPARAM);
    EXPECT_EQ(plugin_.map(file, 0, -1, 0, 95).result, FS_E_OUT_OF_MEMORY);
}

TEST_F(Example, TellsItsPaths)
{
    auto file = plugin_.find("/mnt/flat/data");

    EXPECT_EQ(plugin_.path_of(file), "/mnt/flat/data");
    EXPECT_EQ(plugin_.mount_point_of(file), "/mnt/flat");
    EXPECT_EQ(plugin_.path_of(file, 15), "/mnt/flat/data");
    EXPECT_EQ(plugin_.path_of(file, 14), "result 5");
    EXPECT_EQ(plugin_.path_of(file, 0), "result 5");
    file.file[0] ^= 1;
    EXPECT_EQ(plugin_.path_of(file), "result 201");
    file.volume[0] ^= 1;
    EXPECT_EQ(plugin_.mount_point_of(file), "result 4");
}

TEST_F(Example, ClaimsNothingElse)
{
    EXPECT_EQ(plugin_.find("/mnt/flat/other").result, FS_E_WRONG_FS);
    EXPECT_EQ(plugin_.find("/mnt/flat").result, FS_E_WRONG_FS);
    EXPECT_EQ(plugin_.find("/mnt/flat/data/").result, FS_E_WRONG_FS);
    auto file = plugin_.find("/mnt/flat/data");
    file.file[0] ^= 1;
    EXPECT_EQ(plugin_.map(file).result, FS_E_BAD_FILE);
    file.volume[31] ^= 1;
    EXPECT_EQ(plugin_.map(file).result, FS_E_BAD_COOKIE);
}

TEST_F(Example, LocksAndRefusesChanges)
{
    const auto file = plugin_.find("/mnt/flat/data");
    EXPECT_EQ(plugin_.unlock(file), FS_E_NOT_LOCKED);
    EXPECT_EQ(plugin_.map(file, 0, -1, FS_M_FLAG_UNLOCKED).result, FS_E_SUCCESS);
    EXPECT_EQ(plugin_.unlock(file), FS_E_NOT_LOCKED);
    EXPECT_EQ(plugin_.map(file).result, FS_E_SUCCESS);
    EXPECT_EQ(plugin_.unlock(file), FS_E_SUCCESS);
    EXPECT_EQ(plugin_.set_sizes(file, 10000, 10000), FS_E_SUCCESS);
    EXPECT_EQ(plugin_.set_sizes(file, 9999, -1), FS_E_PRIVILEGE);
    EXPECT_EQ(plugin_.set_sizes(file, -1, 12289), FS_E_PRIVILEGE);
}

TEST_F(Example, IsRejectedWithoutAVolume)
{
    const std::string list = scratch_.write("volumes.conf", "# nothing\n");
    setenv("CORVANE_VOLUMES_FILE", list.c_str(), 1);

    EXPECT_NE(plugin_.init(), FS_E_SUCCESS);
    EXPECT_EQ(plugin_.find("/data").result, FS_E_WRONG_FS);
}

}  // namespace
}  // namespace corvane::test

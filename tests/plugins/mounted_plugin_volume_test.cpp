// Which mounted volumes the plug-in serves, how it describes their disks, and how it finds files.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/blkpg.h>
#include <linux/fs.h>
#include <linux/loop.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>

#include "tests/plugins/host_log.hpp"
#include "tests/plugins/mounted_volume.hpp"
#include "tests/plugins/plugin.hpp"
#include "tests/plugins/scratch.hpp"

namespace corvane::test {
namespace {

using testing::HasSubstr;

constexpr int kNewFile = O_RDWR | O_CREAT | O_EXCL;

const Plugin& serve(const std::string& list)
{
    static const Plugin plugin(CORVANE_PLUGIN_FILE);
    std::ofstream("/mnt/volumes.conf") << list << std::flush;
    setenv("CORVANE_VOLUMES_FILE", "/mnt/volumes.conf", 1);
    EXPECT_EQ(plugin.init(), 0U);
    return plugin;
}

struct VolumeRecord {
    std::uint32_t result = 0;
    VolumeInfo info{};
    FSDisk disk{};
};

VolumeRecord describe(const Plugin& plugin, const std::string& mount_point)
{
    VolumeRecord record;
    const FsuniText path = widen(mount_point);
    Cookie cookie{};
    record.result =
        plugin.volume_cookie(reinterpret_cast<const FSUNI*>(path.c_str()), cookie.data());
    if (record.result != 0) return record;
    std::array<char, 104 + 80> bytes{};
    std::uint32_t room = bytes.size();
    record.result = plugin.volume_by_cookie(cookie.data(), bytes.data(), &room);
    EXPECT_EQ(room, bytes.size());
    std::memcpy(&record.info, bytes.data(), sizeof record.info);
    std::memcpy(&record.disk, bytes.data() + sizeof record.info, sizeof record.disk);
    room = bytes.size() - 1;
    EXPECT_EQ(plugin.volume_by_cookie(cookie.data(), bytes.data(), &room), FS_E_OUT_OF_MEMORY);
    return record;
}

std::string read_device(const std::string& device, std::int64_t place, std::size_t bytes)
{
    std::string content(bytes, '\0');
    std::ifstream stream(device, std::ios::binary);
    stream.seekg(place);
    stream.read(content.data(), static_cast<std::streamsize>(bytes));
    return content;
}

std::string signature_of(const FSDisk& disk)
{
    return {reinterpret_cast<const char*>(disk.DiskID), static_cast<std::size_t>(disk.IDlength)};
}

class MountedVolumes : public testing::TestWithParam<FsFormat> {
protected:
    void SetUp() override
    {
        const std::string why = enter_private_mounts();
        if (!why.empty()) GTEST_SKIP() << why;
        (void)take_log();
    }
};

INSTANTIATE_TEST_SUITE_P(Formats, MountedVolumes, testing::ValuesIn(all_formats()),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(MountedVolumes, WholeDeviceIsDescribedByItsSuperblock)
{
    const MountedVolume volume(GetParam());
    const Plugin& plugin = serve(volume.mount_point() + " mounted rw\n");

    const VolumeRecord record = describe(plugin, volume.mount_point());

    const bool is_xfs = GetParam().has_reflinks;
    ASSERT_EQ(record.result, 0U) << take_log();
    EXPECT_EQ(record.info.msgLen, 104 + 80);
    EXPECT_EQ(record.info.FStype, is_xfs ? 0x58465342 : EXT4_SUPER_MAGIC);
    EXPECT_EQ(record.info.BlockSize, GetParam().block_bytes);
    EXPECT_EQ(record.info.nDisks, 1U);
    EXPECT_EQ(record.disk.IDoffset, is_xfs ? 32 : 1024 + 104);
    EXPECT_EQ(signature_of(record.disk), read_device(volume.device(), record.disk.IDoffset, 16));
    EXPECT_EQ(record.disk.BlockOffset, 0);
    EXPECT_EQ(record.disk.nBlocks * GetParam().block_bytes, GetParam().image_bytes);
}

TEST_P(MountedVolumes, CopyOfTheDiskIsRefusedBesideIt)
{
    const MountedVolume volume(GetParam());
    must_run("cp --sparse=always " + volume.device() + " /mnt/twin");
    {
        const LoopDevice twin("/mnt/twin");
        const Plugin& plugin = serve(volume.mount_point() + " mounted rw\n");
        EXPECT_EQ(describe(plugin, volume.mount_point()).result, FS_E_WRONG_FS);
        EXPECT_THAT(take_log(), HasSubstr("have the same signature"));
    }
    EXPECT_EQ(unlink("/mnt/twin"), 0);
}

TEST_P(MountedVolumes, PathsStayInsideTheVolume)
{
    const MountedVolume volume(GetParam());
    const Plugin& plugin = serve(volume.mount_point() + " mounted rw\n");
    ASSERT_EQ(mkdir(volume.path("d").c_str(), 0755), 0);
    const std::string name = "d/\xC3\xA4 b";
    ASSERT_TRUE(open_file(volume.path(name), kNewFile).is_open());
    const auto link = [&](const std::string& target, const char* from) {
        ASSERT_EQ(symlink(target.c_str(), volume.path(from).c_str()), 0);
    };
    link("d/\xC3\xA4 b", "inside");
    link("../d/../d/\xC3\xA4 b", "d/up");
    link(volume.path("d"), "absolute");
    link("/etc/passwd", "out");
    link("../../../etc/passwd", "above");
    link("loop", "loop");

    const Cookies direct = plugin.find(widen(volume.path("d/")) + u"\u00e4 b");
    ASSERT_EQ(direct.result, 0U);
    EXPECT_EQ(plugin.find(volume.path("inside")).file, direct.file);
    EXPECT_EQ(plugin.find(volume.path("d/up")).file, direct.file);
    EXPECT_EQ(plugin.find(widen(volume.path("absolute/")) + u"\u00e4 b").file, direct.file);
    EXPECT_EQ(plugin.find(widen_signed(volume.path(name))).file, direct.file);
    EXPECT_EQ(plugin.find(volume.path("out")).result, FS_E_BAD_PATH);
    EXPECT_EQ(plugin.find(volume.path("above")).result, FS_E_BAD_PATH);
    EXPECT_EQ(plugin.find(volume.path("loop")).result, FS_E_BAD_PATH);
    EXPECT_EQ(plugin.find(volume.path("d/../inside")).result, FS_E_BAD_PATH);
    EXPECT_EQ(plugin.find(volume.path("missing")).result, FS_E_UNKNOWN_FILE);
    EXPECT_EQ(plugin.find(volume.path("inside/x")).result, FS_E_UNKNOWN_FILE);
    EXPECT_EQ(plugin.find("/mnt/elsewhere").result, FS_E_WRONG_FS);
    EXPECT_EQ(describe(plugin, volume.path("d")).result, 0U);
    EXPECT_EQ(describe(plugin, volume.path("inside")).result, FS_E_BAD_PATH);
}

TEST_P(MountedVolumes, UnmountedVolumeIsNotServedAnyMore)
{
    MountedVolume volume(GetParam());
    const Plugin& plugin = serve(volume.mount_point() + " mounted rw\n");
    ASSERT_TRUE(open_file(volume.path("f"), kNewFile).is_open());
    const Cookies file = plugin.find(volume.path("f"));
    ASSERT_EQ(file.result, 0U);

    volume.unmount();

    EXPECT_NE(plugin.find(volume.path("f")).result, 0U);
    EXPECT_NE(plugin.map(file).result, 0U);
    EXPECT_THAT(take_log(), HasSubstr("is there no more"));
    volume.mount();
    EXPECT_EQ(plugin.map(file).result, 0U) << take_log();
    EXPECT_EQ(plugin.unlock(file), 0U);
    serve("");
    volume.unmount();
}

// Two partitions of one disk, the second one where no block of the file system begins.
class MountedPartitions : public testing::Test {
protected:
    static constexpr std::uint32_t kPartition_sectors = 32 << 11;

    void SetUp() override
    {
        const std::string why = enter_private_mounts();
        if (!why.empty()) GTEST_SKIP() << why;
        (void)take_log();
    }
    void TearDown() override
    {
        (void)umount2("/mnt/part", MNT_DETACH);
        (void)unlink("/mnt/disk");
    }

    // Makes a disk with one partition and mounts it; false when this host shows no partitions.
    bool make(std::uint32_t start_sector)
    {
        std::string table(512, '\0');
        table[446 + 4] = static_cast<char>(0x83);
        std::memcpy(table.data() + 446 + 8, &start_sector, 4);
        std::memcpy(table.data() + 446 + 12, &kPartition_sectors, 4);
        table[510] = 0x55;
        table[511] = static_cast<char>(0xAA);
        std::ofstream("/mnt/disk", std::ios::binary) << table << std::flush;
        EXPECT_EQ(truncate("/mnt/disk", 36 << 20), 0);
        loop_ = std::make_unique<LoopDevice>("/mnt/disk");
        const Descriptor device = open_file(loop_->path(), O_RDWR);
        loop_info64 info{};
        EXPECT_EQ(ioctl(device.get(), LOOP_GET_STATUS64, &info), 0);
        info.lo_flags |= LO_FLAGS_PARTSCAN;
        EXPECT_EQ(ioctl(device.get(), LOOP_SET_STATUS64, &info), 0);
        const std::string partition = loop_->path() + "p1";
        if (access(partition.c_str(), F_OK) != 0 && !add_by_hand(device.get(), start_sector)) {
            return false;
        }
        must_run("mke2fs -q -F -t ext4 -b 4096 " + partition);
        (void)mkdir("/mnt/part", 0755);
        return ::mount(partition.c_str(), "/mnt/part", "ext4", 0, nullptr) == 0;
    }
    [[nodiscard]] std::string disk() const { return loop_->path(); }

    // For kernels that read no partition tables of this kind.
    static bool add_by_hand(int device, std::uint32_t start_sector)
    {
        blkpg_partition partition{};
        partition.start = std::int64_t{start_sector} * 512;
        partition.length = std::int64_t{kPartition_sectors} * 512;
        partition.pno = 1;
        blkpg_ioctl_arg argument{};
        argument.op = BLKPG_ADD_PARTITION;
        argument.datalen = sizeof partition;
        argument.data = &partition;
        return ioctl(device, BLKPG, &argument) == 0;
    }

private:
    std::unique_ptr<LoopDevice> loop_;
};

TEST_F(MountedPartitions, WholeDiskIsNamedAndThePartitionsStartAdded)
{
    struct Row {
        std::uint32_t start;
        std::int32_t unit;
    };
    for (const auto& [start, unit] : {Row{2048, 4096}, Row{63, 512}}) {
        if (!make(start)) GTEST_SKIP() << "no partitions of loop devices here";
        const std::string data = pattern(8192, start);
        {
            const Descriptor file = open_file("/mnt/part/f", kNewFile);
            write_at(file.get(), 0, data);
        }
        const Plugin& plugin = serve("/mnt/part mounted rw\n");

        const VolumeRecord record = describe(plugin, "/mnt/part");
        ASSERT_EQ(record.result, 0U) << take_log();
        EXPECT_EQ(record.info.BlockSize, unit);
        EXPECT_EQ(record.disk.IDoffset, start * 512 + 1024 + 104);
        EXPECT_EQ(signature_of(record.disk), read_device(disk(), record.disk.IDoffset, 16));
        EXPECT_EQ(record.disk.BlockOffset * unit, start * 512);
        const Cookies file = plugin.find("/mnt/part/f");
        const Map map = plugin.map(file);
        ASSERT_EQ(map.extents.size(), 1U);
        EXPECT_EQ(
            read_device(disk(), record.disk.BlockOffset * unit + map.extents[0].PhysicalByteAddr,
                        data.size()),
            data);
        EXPECT_EQ(plugin.unlock(file), 0U);
        serve("");
        TearDown();
    }
}

TEST(MountedRefusals, LogNamesTheCause)
{
    const std::string why = enter_private_mounts();
    if (!why.empty()) GTEST_SKIP() << why;
    const auto log_of = [](const std::string& list) {
        (void)take_log();
        serve(list);
        return take_log();
    };
    ASSERT_EQ(mkdir("/mnt/plain", 0755), 0);
    EXPECT_THAT(log_of("/mnt/plain mounted rw\n"), HasSubstr("nothing is mounted there"));
    ASSERT_EQ(::mount("none", "/mnt/plain", "tmpfs", 0, nullptr), 0);
    EXPECT_THAT(log_of("/mnt/plain mounted rw\n"),
                HasSubstr("/mnt/plain is not served: it is tmpfs; only ext4 and xfs"));
    ASSERT_EQ(umount("/mnt/plain"), 0);
    EXPECT_THAT(log_of("/mnt/plain mounted rw maxread=3\n"), HasSubstr("more than three fields"));

    MountedVolume volume(kExt4Of4K);
    volume.unmount();
    ASSERT_EQ(::mount(volume.device().c_str(), "/mnt/plain", "ext4", 0, "data=journal"), 0);
    EXPECT_THAT(log_of("/mnt/plain mounted rw\n"), HasSubstr("data=journal"));
    ASSERT_EQ(umount("/mnt/plain"), 0);
}

}  // namespace
}  // namespace corvane::test

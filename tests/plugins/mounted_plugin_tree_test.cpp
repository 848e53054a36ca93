// How the plug-in for mounted volumes follows a device down to whole disks: partitions and tables
// of a made-up host.
#include <gtest/gtest.h>
#include <sys/sysmacros.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "plugins/mounted/block_tree.hpp"
#include "tests/plugins/scratch.hpp"

namespace corvane::mounted {
namespace {

namespace files = std::filesystem;

// The directories of a host's block devices, and its tables.
class Host {
public:
    void add_disk(const std::string& number, const std::string& name, std::uint64_t sectors)
    {
        make(number, name, sectors);
    }
    void add_partition(const std::string& number, const std::string& disk, const std::string& name,
                       std::uint64_t start, std::uint64_t sectors)
    {
        const std::string path = disk + "/" + name;
        make(number, path, sectors);
        put(path + "/partition", "1");
        put(path + "/start", std::to_string(start));
    }
    void add_mapped(const std::string& number, const std::string& name, std::uint64_t sectors,
                    std::vector<std::string> lines)
    {
        make(number, name, sectors);
        files::create_directory(scratch_.path(name + "/dm"));
        tables_[number] = std::move(lines);
    }
    void put(const std::string& path, const std::string& content) const
    {
        (void)scratch_.write(path, content + "\n");
    }
    void make_directory(const std::string& path) const
    {
        files::create_directories(scratch_.path(path));
    }

    // Loads the device and returns what is wrong with it.
    std::string load(BlockTree& tree, unsigned major_number, unsigned minor_number) const
    {
        BlockSystem system;
        system.dev_block = scratch_.path("numbers");
        system.read_table = [this](dev_t device, std::string&) {
            return tables_.at(std::to_string(major(device)) + ":" + std::to_string(minor(device)));
        };
        return tree.load(makedev(major_number, minor_number), system);
    }

private:
    void make(const std::string& number, const std::string& path, std::uint64_t sectors)
    {
        make_directory(path);
        make_directory("numbers");
        put(path + "/size", std::to_string(sectors));
        put(path + "/dev", number);
        files::create_symlink(scratch_.path(path), scratch_.path("numbers/" + number));
    }

    test::Scratch scratch_;
    std::map<std::string, std::vector<std::string>> tables_;
};

// "disk:byte+bytes" of each piece, a blank between; "outside" when the range leaves the device.
std::string split(const BlockTree& tree, std::uint64_t byte, std::uint64_t bytes)
{
    std::ostringstream text;
    const bool is_whole = tree.split(byte, bytes, [&](const Piece& piece) {
        if (text.tellp() > 0) text << ' ';
        text << tree.disks()[piece.disk_index].name << ':' << piece.byte << '+' << piece.bytes;
        return true;
    });
    return is_whole ? text.str() : "outside";
}

TEST(BlockTree, DiskIsItself)
{
    Host host;
    host.add_disk("8:0", "sda", 1000);
    BlockTree tree;

    ASSERT_EQ(host.load(tree, 8, 0), "");

    EXPECT_EQ(split(tree, 512, 1024), "sda:512+1024");
    EXPECT_EQ(split(tree, 0, 512000), "sda:0+512000");
    EXPECT_EQ(split(tree, 512, 512000), "outside");
    EXPECT_EQ(tree.grain_bytes(4096), 4096U);
}

TEST(BlockTree, PartitionAddsItsStart)
{
    Host host;
    host.add_disk("8:0", "sda", 100000);
    host.add_partition("8:1", "sda", "sda1", 63, 5000);
    BlockTree tree;

    ASSERT_EQ(host.load(tree, 8, 1), "");

    EXPECT_EQ(split(tree, 1024, 4096), "sda:33280+4096");
    EXPECT_EQ(tree.grain_bytes(4096), 512U);
    EXPECT_EQ(tree.disks()[0].first_byte, 63 * kSectorBytes);
    EXPECT_EQ(tree.disks()[0].end_byte, 5063 * kSectorBytes);
}

// A volume of LVM: an end of one disk's partition, then the beginning of another disk.
TEST(BlockTree, LinearTargetsFollowOneAnother)
{
    Host host;
    host.add_disk("8:0", "sda", 100000);
    host.add_partition("8:1", "sda", "sda1", 2048, 50000);
    host.add_disk("8:16", "sdb", 100000);
    host.add_mapped("253:0", "dm-0", 3000, {"0 1000 linear 8:1 64", "1000 2000 linear 8:16 384"});
    BlockTree tree;

    ASSERT_EQ(host.load(tree, 253, 0), "");

    EXPECT_EQ(split(tree, 999 * kSectorBytes, 1024), "sda:1592832+512 sdb:196608+512");
    EXPECT_EQ(split(tree, 2999 * kSectorBytes, 1024), "outside");
    EXPECT_EQ(tree.grain_bytes(4096), 4096U);
    ASSERT_EQ(tree.disks().size(), 2U);
    EXPECT_EQ(tree.disks()[1].first_byte, 384 * kSectorBytes);
    EXPECT_EQ(tree.disks()[1].end_byte, 2384 * kSectorBytes);
}

TEST(BlockTree, StripesTakeTurns)
{
    Host host;
    host.add_disk("8:0", "sda", 1000);
    host.add_disk("8:16", "sdb", 1000);
    host.add_mapped("253:0", "dm-0", 32, {"0 32 striped 2 8 8:0 0 8:16 16"});
    BlockTree tree;

    ASSERT_EQ(host.load(tree, 253, 0), "");

    EXPECT_EQ(split(tree, 0, 32 * kSectorBytes),
              "sda:0+4096 sdb:8192+4096 sda:4096+4096 sdb:12288+4096");
    EXPECT_EQ(split(tree, 9 * kSectorBytes, 8 * kSectorBytes), "sdb:8704+3584 sda:4096+512");
    EXPECT_EQ(tree.grain_bytes(65536), 4096U);
}

// One mapped device upon another, with a cut inside a block.
TEST(BlockTree, MappedDevicesMayBeStacked)
{
    Host host;
    host.add_disk("8:0", "sda", 10000);
    host.add_mapped("253:0", "dm-0", 5000, {"0 5000 linear 8:0 100"});
    host.add_mapped("253:1", "dm-1", 4000, {"0 4000 linear 253:0 10"});
    BlockTree tree;

    ASSERT_EQ(host.load(tree, 253, 1), "");

    EXPECT_EQ(split(tree, 512, 512), "sda:56832+512");
    EXPECT_EQ(tree.grain_bytes(4096), 1024U);
}

TEST(BlockTree, ChangedTableIsNoticed)
{
    Host host;
    host.add_disk("8:0", "sda", 10000);
    host.add_mapped("253:0", "dm-0", 100, {"0 100 linear 8:0 0"});
    BlockTree before;
    BlockTree same;
    BlockTree after;
    ASSERT_EQ(host.load(before, 253, 0), "");
    ASSERT_EQ(host.load(same, 253, 0), "");
    Host moved;
    moved.add_disk("8:0", "sda", 10000);
    moved.add_mapped("253:0", "dm-0", 100, {"0 100 linear 8:0 8"});
    ASSERT_EQ(moved.load(after, 253, 0), "");

    EXPECT_TRUE(before == same);
    EXPECT_FALSE(before == after);
}

TEST(BlockTree, OtherDevicesAreRefusedByName)
{
    struct Row {
        const char* line;
        const char* wrong;
    };
    for (const auto& [line, wrong] : {
             Row{"0 100 crypt aes 0 8:0 0",
                 "dm-0: its mapper target \"crypt\" is not linear or "
                 "striped"},
             Row{"0 100 multipath 0 0 1 1",
                 "dm-0: its mapper target \"multipath\" is not linear "
                 "or striped"},
             Row{"0 50 linear 8:0 0", "dm-0: its table does not cover it"},
             Row{"8 92 linear 8:0 0", "dm-0: its table line \"8 92 linear 8:0 0\" cannot be read"},
             Row{"0 100 linear 8:0", "dm-0: its table line \"0 100 linear 8:0\" cannot be read"},
             Row{"0 100 striped 3 8 8:0 0",
                 "dm-0: its table line \"0 100 striped 3 8 8:0 0\" "
                 "cannot be read"},
             Row{"0 100 linear 8:0 999", "dm-0: its table reaches beyond device 8:0"},
             Row{"0 100 linear 9:9 0", "dm-0: device 9:9 is no block device of this host"},
             Row{"0 100 linear 253:0 0", "dm-0: its devices are stacked too deep"},
         }) {
        Host host;
        host.add_disk("8:0", "sda", 1000);
        host.add_mapped("253:0", "dm-0", 100, {line});
        BlockTree tree;
        const std::string found = host.load(tree, 253, 0);
        EXPECT_TRUE(found.ends_with(wrong)) << line << ": " << found;
    }
    Host host;
    host.add_disk("9:0", "md0", 1000);
    host.make_directory("md0/md");
    BlockTree tree;
    EXPECT_EQ(host.load(tree, 9, 0), "md0 is no disk and no device-mapper volume, but md");
}

}  // namespace
}  // namespace corvane::mounted

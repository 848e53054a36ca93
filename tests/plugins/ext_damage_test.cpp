// Damaged volumes: nothing crashes, and no map ever reaches outside the volume or into its own
// records.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <random>

#include "tests/plugins/ext_image.hpp"
#include "tests/plugins/host_log.hpp"

namespace corvane::test {
namespace {

const Plugin& plugin()
{
    static const Plugin loaded(CORVANE_PLUGIN_FILE);
    return loaded;
}

class ExtDamage : public testing::Test {
protected:
    void TearDown() override { serve(plugin(), scratch_, ""); }
    std::uint32_t map_result(const ExtImage& image, const std::string& options = "ro")
    {
        take_log();
        serve(plugin(), scratch_, "/mnt/v ext " + image.path() + " " + options + "\n");
        const auto file = plugin().find("/mnt/v/f");
        EXPECT_EQ(file.result, FS_E_SUCCESS) << take_log();
        const auto result = plugin().map(file).result;
        if (result != 0) {
            EXPECT_EQ(plugin().set_sizes(file, 0, 0), result);
        }
        return result;
    }

    Scratch scratch_;
};

// debugfs writes the block numbers of an inode without indirect blocks as they are given.
TEST_F(ExtDamage, BlocksOutsideTheVolumeAreRefused)
{
    const ExtImage image(scratch_, "-t ext2 -b 1024", 1024);
    image.put("f", pattern(5000, 1));
    for (const char* const block : {"1024", "4294967295", "5000"}) {
        image.debugfs(std::string("set_inode_field f block[2] ") + block);
        EXPECT_EQ(map_result(image), FS_E_MISC_ERROR) << block;
        EXPECT_THAT(take_log(), testing::HasSubstr("outside the volume"));
        serve(plugin(), scratch_, "");
    }
    image.debugfs("set_inode_field f block[IND] 1024");
    image.debugfs("set_inode_field f block[2] 0");
    EXPECT_EQ(map_result(image), FS_E_MISC_ERROR);
}

TEST_F(ExtDamage, TheVolumesOwnRecordsAreRefused)
{
    const ExtImage image(scratch_, "-t ext3 -b 1024", 4096);
    image.put("f", pattern(5000, 1));
    const std::string groups = must_run("dumpe2fs " + image.path());
    const auto block_after = [&groups](const std::string& title) {
        return groups.substr(groups.find(title) + title.size(), 5);
    };
    const std::string journal = image.stat("<8>");
    const auto journal_block = image.runs("<8>").front().physical;
    for (const std::string& block :
         {std::string("1"), std::string("2"),
          std::to_string(std::atoi(block_after("Block bitmap at ").c_str())),
          std::to_string(std::atoi(block_after("Inode bitmap at ").c_str())),
          std::to_string(std::atoi(block_after("Inode table at ").c_str())),
          std::to_string(journal_block)}) {
        image.debugfs("set_inode_field f block[1] " + block);
        EXPECT_EQ(map_result(image), FS_E_MISC_ERROR) << block;
        EXPECT_THAT(take_log(), testing::HasSubstr("the volume's own records")) << block;
        serve(plugin(), scratch_, "");
    }
}

// A writer's map must not reach blocks that the allocator may give to another file.
TEST_F(ExtDamage, BlocksMarkedFreeAreRefusedForWriting)
{
    const ExtImage image(scratch_, "-t ext4 -b 1024", 4096);
    image.put("f", pattern(5000, 1));
    image.debugfs("freeb " + std::to_string(image.runs("f").front().physical + 1));
    EXPECT_EQ(map_result(image, "rw"), FS_E_MISC_ERROR);
    EXPECT_THAT(take_log(), testing::HasSubstr("marked free"));
}

TEST_F(ExtDamage, IndirectBlockThatPointsAtItself)
{
    const ExtImage image(scratch_, "-t ext2 -b 1024", 2048);
    image.put("f", pattern(900000, 1));
    // Fill an indirect block with its own number, and hang it in at every level.
    const std::string text = image.stat("f");
    const auto at = text.find("(IND):");
    ASSERT_NE(at, std::string::npos);
    const auto block = static_cast<std::uint32_t>(std::atoi(text.c_str() + at + 6));
    std::fstream file(image.path(), std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(static_cast<std::streamoff>(block) * 1024);
    for (int i = 0; i < 256; ++i) file.write(reinterpret_cast<const char*>(&block), sizeof block);
    file.close();
    image.debugfs("set_inode_field f block[TIND] " + std::to_string(block));
    EXPECT_EQ(map_result(image), FS_E_MISC_ERROR);
}

TEST_F(ExtDamage, AbsurdFileSizeIsRefused)
{
    const ExtImage image(scratch_, "-t ext4 -b 1024", 4096);
    image.put("f", pattern(5000, 1));
    image.debugfs("set_inode_field f size 0x7ffffffffffffff0");
    EXPECT_EQ(map_result(image), FS_E_MISC_ERROR);
}

// Asks everything about every file and holds what comes back against the volume's bounds.
void ask_everything(std::uint64_t image_bytes)
{
    for (const char* const name :
         {"/mnt/v/f", "/mnt/v/sparse", "/mnt/v/d/g", "/mnt/v/link", "/mnt/v"}) {
        const auto file = plugin().find(name);
        if (file.result != 0) continue;
        for (const std::int32_t flag : {0, FS_M_FLAG_UNLOCKED}) {
            const Map map = plugin().map(file, 0, -1, flag);
            std::int64_t at = 0;
            for (const auto& extent : map.extents) {
                EXPECT_EQ(extent.LogicalByteAddr, at);
                EXPECT_GT(extent.nBytes, 0);
                at += extent.nBytes;
                if (extent.validity == FS_VALIDITY_HOLE) continue;
                EXPECT_GE(extent.PhysicalByteAddr, 1024) << name;
                EXPECT_LE(extent.PhysicalByteAddr + extent.nBytes,
                          static_cast<std::int64_t>(image_bytes));
            }
        }
        (void)plugin().set_sizes(file, 12345, 20000);
        (void)plugin().set_sizes(file, 100, 100);
        (void)plugin().unlock(file);
        (void)plugin().set_sizes(file, -1, 50000);
    }
}

// Flips bytes of the superblock, the descriptors, the inodes, the trees and the directories. Each
// image runs in a child, so that a crash of the plug-in or of libext2fs names its seed.
void survive_damage(const std::string& options, int rounds)
{
    const Scratch scratch;
    const ExtImage sound(scratch, options, 1024);
    sound.put("f", pattern(200000, 1));
    sound.put_fragmented("sparse", 60);
    sound.debugfs("mkdir d");
    sound.put("d/g", "in a directory");
    sound.debugfs("symlink link d/g");
    const std::string bytes = read_whole_file(sound.path());
    const char* const given = std::getenv("CORVANE_TEST_SEED");
    const unsigned first = given != nullptr ? static_cast<unsigned>(std::atoi(given))
                                            : std::random_device{}() % 1000000;
    for (int round = 0; round < (given != nullptr ? 1 : rounds); ++round) {
        const unsigned seed = first + static_cast<unsigned>(round);
        const pid_t child = fork();
        if (child == 0) {
            alarm(60);  // a loop without end is a failure too
            std::mt19937 random(seed);
            std::string damaged = bytes;
            const auto flips = 1 + random() % 40;
            for (auto i = flips; i > 0; --i) {
                // Where the records are: the first 200 KiB, half of the time the very first blocks.
                const std::size_t place = 1024 + random() % (random() % 2 == 0 ? 4096U : 200000U);
                damaged[place] = static_cast<char>(random() % 3 == 0 ? 0xFF : random());
            }
            (void)scratch.write("image", damaged);
            const std::string options_of_line = random() % 2 == 0 ? "rw" : "ro";
            serve(plugin(), scratch, "/mnt/v ext " + sound.path() + " " + options_of_line + "\n");
            ask_everything(bytes.size());
            std::cout.flush();
            _exit(testing::Test::HasFailure() ? 1 : 0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_EQ(status, 0) << options << ": replay with CORVANE_TEST_SEED=" << seed;
    }
}

TEST(ExtDamageAtRandom, Ext2)
{
    survive_damage("-t ext2 -b 1024", 60);
}

TEST(ExtDamageAtRandom, Ext4WithoutChecksums)
{
    survive_damage("-t ext4 -b 1024 -O ^metadata_csum,^has_journal", 120);
}

}  // namespace
}  // namespace corvane::test

// Random size changes, maps, writes and unlocks on a few files, against a model of what their bytes
// must be and against e2fsck. The seed is printed; CORVANE_TEST_SEED replays it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <map>
#include <random>
#include <set>

#include "tests/plugins/ext_image.hpp"
#include "tests/plugins/host_log.hpp"
#include "tests/plugins/random_seed.hpp"

namespace corvane::test {
namespace {

constexpr int kSteps = 80;
constexpr int kFiles = 4;
constexpr std::int64_t kLargest_bytes = 3 << 20;

const Plugin& plugin()
{
    static const Plugin loaded(CORVANE_PLUGIN_FILE);
    return loaded;
}

// What one file must hold, and what its one client knows of it.
struct ModelFile {
    std::string name;
    Cookies cookies;
    std::string content;
    std::string past_end;  // written behind the end, to show when the file grows over it
    bool is_locked = false;
    bool may_be_shared = false;
};

class RandomChanges {
public:
    RandomChanges(const ExtImage& image, unsigned random_seed) : image_(image), random_(random_seed)
    {
    }

    void add(const std::string& name, const std::string& content)
    {
        files_.push_back({name, plugin().find("/mnt/v/" + name), content, {}, false, false});
        ASSERT_EQ(files_.back().cookies.result, 0U);
    }

    void step()
    {
        ModelFile& file = files_[pick(kFiles)];
        switch (pick(6)) {
            case 0:
                return lock(file);
            case 1:
                return unlock(file);
            case 2:
                return set_sizes(file, random_size(), -1);
            case 3:
                return set_sizes(file, -1, random_size());
            case 4: {
                const auto size = random_size();
                return set_sizes(file, size, size);
            }
            default:
                return write(file);
        }
    }

    void check_all()
    {
        check_no_block_is_shared();
        for (const ModelFile& file : files_) {
            ASSERT_EQ(image_.dump(file.name), file.content) << file.name;
            const Map map = plugin().map(file.cookies, 0, -1, FS_M_FLAG_UNLOCKED | FS_M_FLAG_REMAP);
            ASSERT_EQ(map.result, 0U);
            ASSERT_EQ(map.info.fileSize, static_cast<std::int64_t>(file.content.size()));
            ASSERT_EQ(image_.read_through(map), file.content) << file.name;
        }
    }

    void unlock_all()
    {
        for (ModelFile& file : files_) unlock(file);
        // Any call that may take its time settles what the unlocked files left.
        plugin().set_sizes(files_[0].cookies, -1, -1);
    }

    std::string trace;

private:
    unsigned pick(unsigned count) { return static_cast<unsigned>(random_() % count); }

    std::int64_t random_size()
    {
        const std::int64_t most = pick(3) == 0 ? kLargest_bytes : 40000;
        const auto bytes = static_cast<std::int64_t>(random_() % static_cast<unsigned>(most));
        return pick(2) == 0 ? bytes : bytes / image_.block_bytes() * image_.block_bytes();
    }

    void lock(ModelFile& file)
    {
        trace += "lock " + file.name + "\n";
        const Map map = plugin().map(file.cookies);
        ASSERT_EQ(map.result, 0U);
        file.may_be_shared = file.is_locked;
        file.is_locked = true;
    }

    void unlock(ModelFile& file)
    {
        trace += "unlock " + file.name + "\n";
        ASSERT_EQ(plugin().unlock(file.cookies), file.is_locked ? 0U : FS_E_NOT_LOCKED);
        file.is_locked = file.may_be_shared = false;
        // Of what was written behind the end, only the rest of the last block stays.
        const std::size_t rest = file.content.size() % image_.block_bytes();
        file.past_end.resize(
            std::min(file.past_end.size(), rest != 0 ? image_.block_bytes() - rest : 0));
    }

    void set_sizes(ModelFile& file, std::int64_t size, std::int64_t allocation)
    {
        trace += "sizes " + file.name + " " + std::to_string(size) + " " +
                 std::to_string(allocation) + (file.is_locked ? " locked\n" : "\n");
        const auto old_size = static_cast<std::int64_t>(file.content.size());
        const std::uint32_t result = plugin().set_sizes(file.cookies, size, allocation);
        if (size >= 0 && size < old_size && file.may_be_shared) {
            ASSERT_EQ(result, FS_E_PRIVILEGE);
            return;
        }
        ASSERT_TRUE(result == 0 || result == FS_E_SHORT_ALLOC) << result;
        const auto new_size = static_cast<std::size_t>(size < 0 ? old_size : size);
        if (!file.is_locked && size > old_size) file.past_end.clear();
        grow_or_cut(file, new_size);
        const Map map = plugin().map(file.cookies, 0, -1, FS_M_FLAG_UNLOCKED | FS_M_FLAG_REMAP);
        if (result == 0 && allocation >= 0) check_allocated(file, map, allocation);
        // What lies past the map's end now is gone.
        const auto covered = static_cast<std::size_t>(
            std::max<std::int64_t>(0, map.end() - static_cast<std::int64_t>(file.content.size())));
        file.past_end.resize(std::min(file.past_end.size(), covered));
    }

    static void grow_or_cut(ModelFile& file, std::size_t new_size)
    {
        const std::size_t old_size = file.content.size();
        if (new_size < old_size) {
            file.past_end.clear();
        } else {
            const std::size_t shown = std::min(file.past_end.size(), new_size - old_size);
            file.content += file.past_end.substr(0, shown);
            file.past_end.erase(0, shown);
        }
        file.content.resize(new_size, '\0');
    }

    void check_allocated(const ModelFile& file, const Map& map, std::int64_t allocation)
    {
        if (!file.is_locked) return;
        for (const auto& extent : map.extents) {
            if (extent.LogicalByteAddr >= allocation) break;
            ASSERT_EQ(extent.validity, FS_VALIDITY_DATA) << to_text(map.extents);
        }
        ASSERT_GE(map.end(), allocation);
        ASSERT_GE(map.info.allocation, allocation);
    }

    // Writes into every block that the map gives for data, behind the end as well.
    void write(ModelFile& file)
    {
        if (!file.is_locked) return;
        trace += "write " + file.name + "\n";
        const Map map = plugin().map(file.cookies, 0, -1, FS_M_FLAG_REMAP);
        ASSERT_EQ(map.result, 0U);
        std::string all = file.content + file.past_end;
        all.resize(std::max(all.size(), static_cast<std::size_t>(map.end())), '\0');
        for (const auto& extent : map.extents) {
            if (extent.validity != FS_VALIDITY_DATA || pick(2) == 0) continue;
            const auto at = static_cast<std::size_t>(extent.LogicalByteAddr);
            const std::string data =
                pattern(static_cast<std::size_t>(extent.nBytes), static_cast<unsigned>(random_()));
            ASSERT_EQ(image_.write_through(map, extent.LogicalByteAddr, data), data.size());
            all.replace(at, data.size(), data);
        }
        const std::size_t size = file.content.size();
        file.content = all.substr(0, size);
        file.past_end = all.substr(size);
    }

    // No block may be in the maps of two files.
    void check_no_block_is_shared()
    {
        std::set<std::uint64_t> seen;
        for (const ModelFile& file : files_) {
            for (const DiskRun& run : image_.runs(file.name)) {
                for (std::uint64_t i = 0; i < run.count; ++i) {
                    ASSERT_TRUE(seen.insert(run.physical + i).second) << run.physical + i;
                }
            }
        }
    }

    const ExtImage& image_;
    std::mt19937 random_;
    std::vector<ModelFile> files_;
};

struct Format {
    const char* name;
    const char* options;
    bool has_extents;
};

class ExtRandom : public testing::TestWithParam<Format> {};

INSTANTIATE_TEST_SUITE_P(Formats, ExtRandom,
                         testing::Values(Format{"Ext2Of1K", "-t ext2 -b 1024", false},
                                         Format{"Ext3Of4K", "-t ext3 -b 4096", false},
                                         Format{"Ext4Of1K", "-t ext4 -b 1024", true},
                                         Format{"Ext4Of4K", "-t ext4 -b 4096", true},
                                         Format{"Ext4Fragmented", "-t ext4 -b 1024 -N 512", true}),
                         [](const auto& row) { return row.param.name; });

void PrintTo(const Format& format, std::ostream* out)
{
    *out << format.options;
}

TEST_P(ExtRandom, ChangesKeepContentAndFileSystem)
{
    std::cout << "CORVANE_TEST_SEED=" << seed() << "\n";
    const Scratch scratch;
    const ExtImage image(scratch, GetParam().options, 12288);
    std::map<std::string, std::string> contents;
    for (int i = 0; i < kFiles; ++i) {
        const std::string name = "f" + std::to_string(i);
        contents[name] = pattern(static_cast<std::size_t>(i) * 30011, static_cast<unsigned>(i));
        image.put(name, contents[name]);
    }
    image.put_fragmented("f3x", 400);
    image.debugfs("rm f3");
    image.debugfs("ln f3x f3");
    image.debugfs("unlink f3x");
    contents["f3"] = image.dump("f3");
    serve(plugin(), scratch, "/mnt/v ext " + image.path() + " rw\n");
    RandomChanges changes(image, seed());
    for (const auto& [name, content] : contents) changes.add(name, content);

    for (int i = 0; i < kSteps && !HasFatalFailure(); ++i) {
        changes.step();
        if (HasFatalFailure()) break;
        if (GetParam().has_extents) {
            image.expect_clean("step " + std::to_string(i));
            ASSERT_FALSE(HasNonfatalFailure()) << changes.trace;
        }
        if (i % 4 == 0) changes.check_all();
    }
    if (!HasFatalFailure()) changes.unlock_all();
    if (!HasFatalFailure()) changes.check_all();
    image.expect_clean("at the end");
    EXPECT_FALSE(HasFailure()) << changes.trace << take_log();
}

}  // namespace
}  // namespace corvane::test

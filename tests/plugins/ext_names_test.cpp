// What the plug-in calls a file when an administrator asks: the path by which it was found.
#include <gtest/gtest.h>

#include "tests/plugins/ext_image.hpp"

namespace corvane::test {
namespace {

const Plugin& plugin()
{
    static const Plugin loaded(CORVANE_PLUGIN_FILE);
    return loaded;
}

class ExtNames : public testing::Test {
protected:
    void SetUp() override
    {
        image_.debugfs("mkdir d");
        image_.debugfs("mkdir d/e");
        image_.put("f", "root file");
        image_.put("d/e/g", "deep file");
        image_.debugfs("symlink s /mnt/v/d/e");
        image_.debugfs("ln d/e/g second");
        image_.debugfs("sif d/e/g links_count 2");
        restart();
    }
    void restart() { serve(plugin(), scratch_, "/mnt/v ext " + image_.path() + "\n"); }
    [[nodiscard]] static Cookies find(const std::string& path)
    {
        const Cookies found = plugin().find(path);
        EXPECT_EQ(found.result, FS_E_SUCCESS) << path;
        return found;
    }

    Scratch scratch_;
    ExtImage image_{scratch_, "-t ext4 -b 1024", 4096};
};

TEST_F(ExtNames, OfFilesAndOfTheVolume)
{
    EXPECT_EQ(plugin().path_of(find("/mnt/v/f")), "/mnt/v/f");
    EXPECT_EQ(plugin().path_of(find("//mnt/v/./d//e/g")), "/mnt/v/d/e/g");
    EXPECT_EQ(plugin().mount_point_of(find("/mnt/v/f")), "/mnt/v");
}

TEST_F(ExtNames, LinksAreResolved)
{
    EXPECT_EQ(plugin().path_of(find("/mnt/v/s/g")), "/mnt/v/d/e/g");
}

TEST_F(ExtNames, OfSeveralNamesTheLastOneFound)
{
    const Cookies first = find("/mnt/v/d/e/g");
    const Cookies second = find("/mnt/v/second");
    ASSERT_EQ(first.file, second.file);
    EXPECT_EQ(plugin().path_of(first), "/mnt/v/second");

    (void)find("/mnt/v/d/e/g");

    EXPECT_EQ(plugin().path_of(first), "/mnt/v/d/e/g");
}

TEST_F(ExtNames, NothingIsKnownBeforeALookUp)
{
    const Cookies file = find("/mnt/v/f");

    restart();

    EXPECT_EQ(plugin().path_of(file), "result 101");
    EXPECT_EQ(plugin().mount_point_of(file), "/mnt/v");
}

TEST_F(ExtNames, RoomAndCookiesAreChecked)
{
    Cookies file = find("/mnt/v/d/e/g");
    EXPECT_EQ(plugin().path_of(file, 13), "/mnt/v/d/e/g");
    EXPECT_EQ(plugin().path_of(file, 12), "result 5");
    EXPECT_EQ(plugin().path_of(file, 0), "result 5");
    file.file[0] ^= 1;
    EXPECT_EQ(plugin().path_of(file), "result 201");
    file.volume[0] ^= 1;
    EXPECT_EQ(plugin().path_of(file), "result 4");
}

}  // namespace
}  // namespace corvane::test

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

}  // namespace
}  // namespace corvane::test

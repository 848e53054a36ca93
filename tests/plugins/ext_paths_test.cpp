// Which paths the plug-in takes for its own, where links may lead, and what cookies are good for.
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

class ExtPaths : public testing::Test {
protected:
    void SetUp() override
    {
        image_.debugfs("mkdir d");
        image_.debugfs("mkdir d/e");
        image_.put("f", "root file");
        image_.put("d/e/g", "deep file");
        serve_image();
    }
    void serve_image()
    {
        serve(plugin(), scratch_,
              "/mnt/v ext " + image_.path() + "\n/mnt/v/inner ext " + inner_.path() + "\n");
    }
    void link(const std::string& name, const std::string& target)
    {
        image_.debugfs("symlink " + name + " " + target);
    }
    [[nodiscard]] std::uint32_t found(const std::string& path) const
    {
        return plugin().find(path).result;
    }
    // The volume's answer to a path as the file that lies at `plain`.
    void expect_same_file(const std::string& path, const std::string& plain) const
    {
        const auto file = plugin().find(path);
        EXPECT_EQ(file.result, FS_E_SUCCESS) << path;
        EXPECT_EQ(file.file, plugin().find(plain).file) << path;
    }
    [[nodiscard]] std::uint32_t volume_result(const std::string& mount_point) const
    {
        Cookie cookie{};
        const auto text = widen(mount_point);
        return plugin().volume_cookie(reinterpret_cast<const FSUNI*>(text.c_str()), cookie.data());
    }

    Scratch scratch_;
    ExtImage image_{scratch_, "-t ext4 -b 1024", 4096};
    ExtImage inner_{scratch_, "-t ext2 -b 1024", 1024, "inner"};
};

TEST_F(ExtPaths, OnlyBelowTheMountPoint)
{
    EXPECT_EQ(found("/mnt/v/f"), FS_E_SUCCESS);
    EXPECT_EQ(found("/mnt/v/d/e/g"), FS_E_SUCCESS);
    EXPECT_EQ(found("//mnt/./v///f"), FS_E_SUCCESS);
    EXPECT_EQ(found("/mnt/v/nothing"), FS_E_UNKNOWN_FILE);
    EXPECT_EQ(found("/mnt/v/f/below"), FS_E_UNKNOWN_FILE);
    EXPECT_EQ(found("/mnt/v2/f"), FS_E_WRONG_FS);
    EXPECT_EQ(found("/mnt/vf"), FS_E_WRONG_FS);
    EXPECT_EQ(found("/mnt"), FS_E_WRONG_FS);
    EXPECT_EQ(found("/mnt/V/f"), FS_E_WRONG_FS);
    EXPECT_EQ(found(""), FS_E_BAD_PATH);
    EXPECT_EQ(found("mnt/v/f"), FS_E_BAD_PATH);
    EXPECT_EQ(found("/mnt/v/" + std::string(256, 'n')), FS_E_UNKNOWN_FILE);
    EXPECT_EQ(found("/mnt/v/" + std::string(5000, 'n')), FS_E_BAD_PATH);
}

TEST_F(ExtPaths, DotDotInARequestIsRefused)
{
    EXPECT_EQ(found("/mnt/v/d/../f"), FS_E_BAD_PATH);
    EXPECT_EQ(found("/mnt/v/../v/f"), FS_E_BAD_PATH);
    EXPECT_EQ(found("/mnt/v/.."), FS_E_BAD_PATH);
    EXPECT_EQ(found("/mnt/x/../v/f"), FS_E_WRONG_FS);
    EXPECT_EQ(volume_result("/mnt/v/d/.."), FS_E_BAD_PATH);
}

TEST_F(ExtPaths, TheLongestMountPointOwnsThePath)
{
    serve(plugin(), scratch_, "");
    inner_.put("h", "inner file");
    serve_image();
    EXPECT_EQ(found("/mnt/v/inner/h"), FS_E_SUCCESS);
    EXPECT_EQ(found("/mnt/v/inner/f"), FS_E_UNKNOWN_FILE);
    EXPECT_NE(plugin().find("/mnt/v/inner/h").volume, plugin().find("/mnt/v/f").volume);
}

TEST_F(ExtPaths, VolumeCookieForMountPointAndItsDirectories)
{
    EXPECT_EQ(volume_result("/mnt/v"), FS_E_SUCCESS);
    EXPECT_EQ(volume_result("/mnt/v/"), FS_E_SUCCESS);
    EXPECT_EQ(volume_result("/mnt/v/d/e"), FS_E_SUCCESS);
    EXPECT_EQ(volume_result("/mnt/v/f"), FS_E_BAD_PATH);
    EXPECT_EQ(volume_result("/mnt/v/none"), FS_E_UNKNOWN_FILE);
    EXPECT_EQ(volume_result("/mnt"), FS_E_WRONG_FS);
    EXPECT_EQ(volume_result("/"), FS_E_WRONG_FS);
}

TEST_F(ExtPaths, LinksInsideTheVolume)
{
    serve(plugin(), scratch_, "");
    link("short", "f");
    link("d/up", "../f");
    link("directory", "d/e");
    link("absolute", "/mnt/v/d/e/g");
    link("root", "/mnt/v");
    link("long", "./" + std::string(200, '/') + "d/e/g");
    link("chain", "d/up");
    serve_image();
    expect_same_file("/mnt/v/short", "/mnt/v/f");
    expect_same_file("/mnt/v/d/up", "/mnt/v/f");
    expect_same_file("/mnt/v/directory/g", "/mnt/v/d/e/g");
    expect_same_file("/mnt/v/absolute", "/mnt/v/d/e/g");
    expect_same_file("/mnt/v/root/f", "/mnt/v/f");
    expect_same_file("/mnt/v/long", "/mnt/v/d/e/g");
    expect_same_file("/mnt/v/chain", "/mnt/v/f");
}

TEST_F(ExtPaths, LinksNeverLeaveTheVolume)
{
    serve(plugin(), scratch_, "");
    link("up", "../f");
    link("d/up", "../../f");
    link("etc", "/etc/passwd");
    link("near", "/mnt/v2/f");
    link("climb", "/mnt/v/../f");
    link("loop", "loop");
    link("a", "b");
    link("b", "a");
    link("lost", "nowhere");
    serve_image();
    for (const char* const name : {"up", "d/up", "etc", "near", "climb", "loop", "a"}) {
        EXPECT_EQ(found(std::string("/mnt/v/") + name), FS_E_BAD_PATH) << name;
    }
    EXPECT_EQ(found("/mnt/v/lost"), FS_E_UNKNOWN_FILE);
}

// Each name asked for twice: found anew and remembered.
TEST_F(ExtPaths, ManyNamesKeepTheirFiles)
{
    constexpr int kNames = 300;
    serve(plugin(), scratch_, "");
    std::string requests = "cd d\n";
    for (int i = 0; i < kNames; ++i) {
        requests += "mknod n" + std::to_string(i) + " p\n";
    }
    must_run("debugfs -w -f " + scratch_.write("requests", requests) + " " + image_.path());
    serve_image();
    std::set<Cookie> seen;
    for (int i = 0; i < kNames; ++i) {
        const std::string path = "/mnt/v/d/n" + std::to_string(i);
        const auto file = plugin().find(path);
        ASSERT_EQ(file.result, FS_E_SUCCESS) << path;
        EXPECT_TRUE(seen.insert(file.file).second) << path;
        EXPECT_EQ(plugin().find(path).file, file.file);
    }
    EXPECT_EQ(found("/mnt/v/e/n1"), FS_E_UNKNOWN_FILE);
    EXPECT_EQ(found("/mnt/v/n1"), FS_E_UNKNOWN_FILE);
}

// The path is UTF-16; the mount point's bytes come widened with their sign.
TEST_F(ExtPaths, NamesBeyondAscii)
{
    serve(plugin(), scratch_, "");
    image_.put("gr\xC3\xBC\xC3\x9F", "two bytes each");
    image_.put("\xE6\x97\xA5", "three bytes");
    image_.put("\xF0\x9F\x98\x80", "a surrogate pair");
    image_.put("\xFF\xFE", "no UTF-8 at all");
    serve(plugin(), scratch_, "/mnt/\xC3\xBC ext " + image_.path() + "\n");
    const FsuniText signed_prefix = widen_signed("/mnt/\xC3\xBC/");
    ASSERT_EQ(signed_prefix[5], 0xFFC3);

    for (const FsuniText& prefix : {signed_prefix, FsuniText(u"/mnt/\u00FC/")}) {
        EXPECT_EQ(plugin().find(prefix + u"gr\u00FC\u00DF").result, FS_E_SUCCESS);
        EXPECT_EQ(plugin().find(prefix + u"\u65E5").result, FS_E_SUCCESS);
        EXPECT_EQ(plugin().find(prefix + u"\U0001F600").result, FS_E_SUCCESS);
        EXPECT_EQ(plugin().find(prefix + widen_signed("\xFF\xFE")).result, FS_E_SUCCESS);
        EXPECT_EQ(plugin().find(prefix + FsuniText(1, char16_t{0xD83D})).result, FS_E_BAD_PATH);
        EXPECT_EQ(plugin().find(prefix + FsuniText(1, char16_t{0xDE00})).result, FS_E_BAD_PATH);
        EXPECT_EQ(plugin().find(prefix + FsuniText{0xD83D, u'x'}).result, FS_E_BAD_PATH);
    }
    EXPECT_EQ(plugin().find(FsuniText(u"/mnt/\u00FD/f")).result, FS_E_WRONG_FS);
}

TEST_F(ExtPaths, CookiesOutliveARestart)
{
    const auto before = plugin().find("/mnt/v/d/e/g");
    serve_image();
    const auto after = plugin().find("/mnt/v/d/e/g");
    EXPECT_EQ(before.volume, after.volume);
    EXPECT_EQ(before.file, after.file);
    EXPECT_EQ(plugin().map(before).result, FS_E_SUCCESS);
    EXPECT_NE(before.file, plugin().find("/mnt/v/f").file);
}

// The daemon compares file cookies alone: the same inode of two volumes must not look the same.
TEST_F(ExtPaths, CookiesOfTwoVolumesDiffer)
{
    const auto outer = plugin().find("/mnt/v/lost+found");
    const auto inner = plugin().find("/mnt/v/inner/lost+found");
    ASSERT_EQ(outer.result, FS_E_SUCCESS);
    ASSERT_EQ(inner.result, FS_E_SUCCESS);
    EXPECT_NE(outer.file, inner.file);
}

TEST_F(ExtPaths, EveryChangedByteOfACookieIsNoticed)
{
    const auto file = plugin().find("/mnt/v/f");
    for (std::size_t i = 0; i < FS_COOKIE_BYTES; ++i) {
        auto wrong = file;
        wrong.volume[i] ^= 0x40;
        EXPECT_EQ(plugin().map(wrong).result, FS_E_BAD_COOKIE) << i;
        EXPECT_EQ(plugin().set_sizes(wrong, -1, -1), FS_E_BAD_COOKIE) << i;
        EXPECT_EQ(plugin().unlock(wrong), FS_E_BAD_COOKIE) << i;
        std::int32_t seconds = 0;
        EXPECT_EQ(plugin().max_leases(wrong.volume.data(), &seconds, &seconds), FS_E_BAD_COOKIE);
        wrong = file;
        wrong.file[i] ^= 0x40;
        EXPECT_EQ(plugin().map(wrong).result, FS_E_BAD_FILE) << i;
        EXPECT_EQ(plugin().set_sizes(wrong, -1, -1), FS_E_BAD_FILE) << i;
    }
}

TEST_F(ExtPaths, CookieOfARemovedFileIsBad)
{
    const auto file = plugin().find("/mnt/v/f");
    serve(plugin(), scratch_, "");
    image_.debugfs("rm f");
    serve_image();
    EXPECT_EQ(plugin().map(file).result, FS_E_BAD_FILE);
}

TEST_F(ExtPaths, NullArgumentsAreErrors)
{
    const auto file = plugin().find("/mnt/v/f");
    Cookie cookie{};
    std::uint32_t room = 0;
    EXPECT_EQ(plugin().cookies(nullptr, cookie.data(), cookie.data()), FS_E_BAD_PATH);
    EXPECT_EQ(plugin().volume_cookie(nullptr, cookie.data()), FS_E_BAD_PATH);
    EXPECT_EQ(plugin().unlock_map(nullptr, nullptr), FS_E_BAD_COOKIE);
    EXPECT_EQ(plugin().unlock_map(file.volume.data(), nullptr), FS_E_BAD_FILE);
    EXPECT_EQ(plugin().volume_by_cookie(file.volume.data(), nullptr, &room), FS_E_MISC_ERROR);
}

}  // namespace
}  // namespace corvane::test

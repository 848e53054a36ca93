// The list of volumes, and the sources that are refused: each costs only itself and says why in the
// log.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/plugins/ext_image.hpp"
#include "tests/plugins/host_log.hpp"

namespace corvane::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const Plugin& plugin()
{
    static const Plugin loaded(CORVANE_PLUGIN_FILE);
    return loaded;
}

class ExtSource : public testing::Test {
protected:
    void SetUp() override
    {
        image_.put("f", "content");
        sound_.put("f", "content");
        take_log();
    }
    void TearDown() override { serve(plugin(), scratch_, ""); }

    // Serves the image beside a sound one, which must stay served. Returns the log.
    std::string serve_beside(const std::string& options)
    {
        return serve_lines("/mnt/v ext " + image_.path() + " " + options + "\n");
    }
    std::string serve_lines(const std::string& lines)
    {
        EXPECT_EQ(serve(plugin(), scratch_, lines + "/mnt/sound ext " + sound_.path() + "\n"), 0U);
        EXPECT_EQ(plugin().find("/mnt/sound/f").result, FS_E_SUCCESS);
        return take_log();
    }
    [[nodiscard]] static bool is_served() { return plugin().find("/mnt/v/f").result == 0; }
    void set_super(const std::string& field_and_value)
    {
        image_.debugfs("set_super_value " + field_and_value);
    }
    void expect_refused(const std::string& options, const std::string& why)
    {
        EXPECT_THAT(serve_beside(options), HasSubstr(why));
        EXPECT_FALSE(is_served());
    }

    Scratch scratch_;
    ExtImage image_{scratch_, "-t ext4 -b 1024", 4096};
    ExtImage sound_{scratch_, "-t ext2 -b 1024", 1024, "sound"};
};

TEST_F(ExtSource, OptionsAndComments)
{
    const std::string log = serve_lines(
        "# a comment\n\n   \t\n/mnt/v\text   " + image_.path() +
        " rw,maxread=7,maxwrite=9 # trailing\n/mnt/w mounted whatever this is for\n/x other\n");
    EXPECT_TRUE(is_served()) << log;
    EXPECT_THAT(log, HasSubstr("/mnt/v is served from " + image_.path() + ", read and write"));
    EXPECT_THAT(log, Not(HasSubstr("volumes.conf:")));
    const auto file = plugin().find("/mnt/v/f");
    std::int32_t read_s = -1;
    std::int32_t write_s = -1;
    EXPECT_EQ(plugin().max_leases(file.volume.data(), &read_s, &write_s), 0U);
    EXPECT_EQ(read_s, 7);
    EXPECT_EQ(write_s, 9);
    EXPECT_EQ(plugin().max_leases(plugin().find("/mnt/sound/f").volume.data(), &read_s, &write_s),
              0U);
    EXPECT_EQ(read_s, 0);
    EXPECT_EQ(write_s, 0);
    EXPECT_EQ(plugin().version(), 1);
}

TEST_F(ExtSource, BadLinesCostOnlyThemselves)
{
    const std::string source = " ext " + image_.path() + " ";
    for (const std::string& line :
         {"mnt/v" + source, "/mnt/../v" + source, "/" + source, std::string("/mnt/v ext"),
          std::string("/mnt/v ext relative"), "/mnt/v" + source + "rw,ro",
          "/mnt/v" + source + "fast", "/mnt/v" + source + "maxread=",
          "/mnt/v" + source + "maxread=-1", "/mnt/v" + source + "maxwrite=2147484",
          "/mnt/v" + source + "maxwrite=1x", "/mnt/v" + source + "ro extra", std::string("/mnt/v"),
          "/mnt/v" + source + std::string(9000, ',')}) {
        EXPECT_THAT(serve_lines("# first\n" + line + "\n"), HasSubstr("volumes.conf:2: ")) << line;
        EXPECT_FALSE(is_served()) << line;
    }
}

TEST_F(ExtSource, SecondLineOfAMountPointIsLeftOut)
{
    const std::string line = "/mnt/v ext " + image_.path() + "\n";
    EXPECT_THAT(serve_lines(line + line), HasSubstr("volumes.conf:2: /mnt/v is listed"));
    EXPECT_TRUE(is_served());
}

TEST_F(ExtSource, BlanksInPathsAreEscaped)
{
    must_run("mv " + image_.path() + " '" + scratch_.path("an image?x") + "'");
    const std::string log =
        serve_lines("/mnt/a\\040b ext " + scratch_.path("an\\040image?x") + "\n");
    EXPECT_EQ(plugin().find("/mnt/a b/f").result, FS_E_SUCCESS) << log;
}

TEST_F(ExtSource, MissingListServesNothing)
{
    setenv("CORVANE_VOLUMES_FILE", scratch_.path("none").c_str(), 1);
    EXPECT_EQ(plugin().init(), 0U);
    EXPECT_THAT(take_log(), HasSubstr("cannot be read"));
    EXPECT_EQ(plugin().find("/mnt/v/f").result, FS_E_WRONG_FS);
}

TEST_F(ExtSource, RefusesWhatIsNoVolume)
{
    EXPECT_THAT(serve_lines("/mnt/v ext " + scratch_.path("none") + "\n"),
                HasSubstr("No such file or directory"));
    EXPECT_THAT(serve_lines("/mnt/v ext " + scratch_.path("") + "\n"),
                HasSubstr("neither an image file nor a block device"));
    ASSERT_EQ(mkfifo(scratch_.path("pipe").c_str(), 0600), 0);
    EXPECT_THAT(serve_lines("/mnt/v ext " + scratch_.path("pipe") + "\n"),
                HasSubstr("neither an image file nor a block device"));
    EXPECT_THAT(serve_lines("/mnt/v ext " + scratch_.write("text", pattern(9000, 1)) + "\n"),
                HasSubstr("no ext2, ext3 or ext4 file system"));
    EXPECT_THAT(serve_lines("/mnt/v ext " + scratch_.write("short", "x") + "\n"),
                HasSubstr("is not served"));
}

TEST_F(ExtSource, RefusesWhatIsNotClean)
{
    set_super("state 0");
    expect_refused("ro", "not unmounted cleanly; run e2fsck -p " + image_.path());
    expect_refused("rw", "not unmounted cleanly");
    set_super("state 3");
    expect_refused("ro", "marked as damaged; run e2fsck");
    set_super("state 1");
    EXPECT_THAT(serve_beside("rw"), HasSubstr("is served"));
    serve(plugin(), scratch_, "");
    set_super("last_orphan 12");
    expect_refused("ro", "deletion was not finished");
    set_super("last_orphan 0");
    image_.debugfs("feature needs_recovery");
    expect_refused("ro", "journal was not replayed; run e2fsck");
}

TEST_F(ExtSource, RefusesUnknownFeatures)
{
    set_super("feature_incompat 0x80000000");
    expect_refused("ro", "features that libext2fs does not know");
}

TEST_F(ExtSource, RefusesAVolumeWithoutUuidAndATwin)
{
    const std::string twin = scratch_.path("twin");
    must_run("cp " + image_.path() + " " + twin);
    EXPECT_THAT(serve_lines("/mnt/v ext " + image_.path() + "\n/mnt/twin ext " + twin + "\n"),
                HasSubstr("/mnt/twin is not served: " + twin + ": it has the UUID of"));
    EXPECT_TRUE(is_served());
    serve(plugin(), scratch_, "");
    must_run("tune2fs -f -U clear " + image_.path());
    expect_refused("ro", "it has no UUID");
}

TEST_F(ExtSource, RefusesAnImageThatIsCutShort)
{
    ASSERT_EQ(truncate(image_.path().c_str(), 4096 * 1024 - 1), 0);
    expect_refused("ro", "cut short");
}

TEST_F(ExtSource, WritingNeedsPlainFeatures)
{
    const ExtImage quota(scratch_, "-t ext4 -b 1024 -O quota", 8192, "quota");
    EXPECT_THAT(serve_lines("/mnt/v ext " + quota.path() + " rw\n"),
                HasSubstr("its feature \"quota\" allows no changes from here"));
    EXPECT_THAT(serve_lines("/mnt/v ext " + quota.path() + " ro\n"), HasSubstr("/mnt/v is served"));
    const ExtImage bigalloc(scratch_, "-t ext4 -b 1024 -O bigalloc", 8192, "bigalloc");
    EXPECT_THAT(serve_lines("/mnt/v ext " + bigalloc.path() + " rw\n"), HasSubstr("bigalloc"));
}

TEST_F(ExtSource, ReadOnlySourceCannotBeWritten)
{
    if (geteuid() == 0) {
        // Root may write anyway: a device that is read-only stands in for permissions.
        const auto loop = run_command("losetup -f --show -r " + image_.path());
        if (loop.status != 0) GTEST_SKIP() << "no loop device to be had: " << loop.output;
        const std::string device = loop.output.substr(0, loop.output.find('\n'));
        EXPECT_THAT(serve_lines("/mnt/v ext " + device + " rw\n"),
                    HasSubstr("list it with \"ro\""));
        EXPECT_THAT(serve_lines("/mnt/v ext " + device + " ro\n"), HasSubstr("/mnt/v is served"));
        serve(plugin(), scratch_, "");
        must_run("losetup -d " + device);
        return;
    }
    chmod(image_.path().c_str(), 0400);
    expect_refused("rw", "list it with \"ro\"");
}

TEST_F(ExtSource, LockedSourceIsRefused)
{
    const int other = open(image_.path().c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(other, LOCK_SH), 0);
    expect_refused("rw", "another program has locked it");
    EXPECT_THAT(serve_beside("ro"), HasSubstr("/mnt/v is served"));
    serve(plugin(), scratch_, "");
    ASSERT_EQ(flock(other, LOCK_EX), 0);
    expect_refused("ro", "another program has locked it");
    close(other);
    EXPECT_THAT(serve_beside("rw"), HasSubstr("/mnt/v is served"));
    EXPECT_THAT(
        serve_lines("/mnt/v ext " + image_.path() + " rw\n/mnt/w ext " + image_.path() + " ro\n"),
        HasSubstr("/mnt/w is not served"));
}

// In a mount namespace of its own, so that nothing stays mounted whatever happens.
TEST_F(ExtSource, MountedSourceIsRefused)
{
    serve(plugin(), scratch_, "");
    const pid_t child = fork();
    if (child == 0) {
        if (unshare(CLONE_NEWNS) != 0) _exit(77);
        const std::string point = scratch_.path("point");
        mkdir(point.c_str(), 0700);
        const auto mounted = run_command("mount --make-rprivate / && mount -o loop,ro " +
                                         image_.path() + " " + point);
        if (mounted.status != 0) _exit(77);
        const std::string log = serve_beside("ro");
        const bool is_refused = log.find("it is mounted; unmount it") != std::string::npos;
        run_command("umount " + point);
        _exit(is_refused && !is_served() ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "no right to mount a loop device here";
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

// The same through a block device: claimed while it is served, so that nobody can mount it.
TEST_F(ExtSource, BlockDeviceIsServedAndClaimed)
{
    const auto loop = run_command("losetup -f --show " + image_.path());
    if (loop.status != 0) GTEST_SKIP() << "no loop device to be had: " << loop.output;
    const std::string device = loop.output.substr(0, loop.output.find('\n'));
    const std::string log = serve_lines("/mnt/v ext " + device + " rw\n");
    EXPECT_THAT(log, HasSubstr("/mnt/v is served"));
    const auto file = plugin().find("/mnt/v/f");
    EXPECT_EQ(plugin().set_sizes(file, 100000, 100000), 0U);
    EXPECT_EQ(plugin().set_sizes(file, 5, 5), 0U);
    EXPECT_LT(open(device.c_str(), O_RDONLY | O_EXCL | O_CLOEXEC), 0);
    serve(plugin(), scratch_, "");
    must_run("losetup -d " + device);
    image_.expect_clean("after changes through the device");
    EXPECT_EQ(image_.dump("f"), "conte");
}

}  // namespace
}  // namespace corvane::test

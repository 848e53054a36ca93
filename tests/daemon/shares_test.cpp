// Share names: the Samba configuration, its home directories, and what the log says of them.
#include "tests/harness/daemon.hpp"

namespace corvane::harness {
namespace {

class Shares : public DaemonTest {
protected:
    void SetUp() override
    {
        DaemonTest::SetUp();
        if (IsSkipped()) return;
        install_recorder();
        script("FS_GetVolCookie result=0 volume=aa\nFS_GetVolByCookie result=201\n");
    }

    // Asks for the volume of `share`; the path that the plug-in was asked about, or the result
    // code.
    std::string resolve(const std::string& share)
    {
        forget_calls();
        const codec::Bytes reply = client().ask(codec::get_volume({}, share));
        const auto made = calls();
        const std::string call = "recorder.so FS_GetVolCookie path=";
        if (!made.empty() && made[0].rfind(call, 0) == 0) return made[0].substr(call.size());
        return std::to_string(reply.i32(48)) + " in " + std::to_string(reply.size()) + " bytes";
    }

    static constexpr const char* kConfiguration =
        "# comment\n[global]\n  workgroup = X\n[data]\n  comment = none\n  path = /vol/data rest\n"
        "[tight]\n  path=/vol/tight\n[last]\n  path = /vol/last\n[nothing]\n  comment = no path "
        "line\n";
};

TEST_F(Shares, AbsolutePathIsTakenAsItIs)
{
    environment_.emplace_back("CORVANE_SMBPATH=/no/such/file");
    start();

    EXPECT_EQ(resolve("/some/path"), "/some/path");
    EXPECT_EQ(log().find("FTX2104E"), std::string::npos);
}

TEST_F(Shares, BackslashesAreSlashes)
{
    start();

    EXPECT_EQ(resolve("\\some\\path"), "/some/path");
}

TEST_F(Shares, SectionGivesItsPathUpToTheFirstBlank)
{
    world().write_file("/etc/samba/smb.conf", kConfiguration);
    start();

    EXPECT_EQ(resolve("data"), "/vol/data");
    EXPECT_EQ(resolve("last"), "/vol/last");
}

TEST_F(Shares, NamesAreCaseSensitiveAndWhole)
{
    world().write_file("/etc/samba/smb.conf", kConfiguration);
    start();

    EXPECT_EQ(resolve("Data"), "3 in 272 bytes");
    EXPECT_EQ(resolve("dat"), "3 in 272 bytes");
    EXPECT_EQ(resolve("data "), "3 in 272 bytes");
}

TEST_F(Shares, PathLineNeedsOneBlankBeforeItsEqualsSign)
{
    world().write_file("/etc/samba/smb.conf", "[tight]\npath=/vol/tight\n");
    start();

    EXPECT_EQ(resolve("tight"), "3 in 272 bytes");
}

TEST_F(Shares, SectionWithoutPathNeverTakesTheNextOnes)
{
    world().write_file("/etc/samba/smb.conf", "[empty]\ncomment = x\n[other]\npath = /vol/other\n");
    start();

    EXPECT_EQ(resolve("empty"), "3 in 272 bytes");
}

TEST_F(Shares, SecondFileOfTheListIsTriedToo)
{
    world().write_file("/etc/samba/smb.conf", "[a]\npath = /vol/a\n");
    world().write_file("/usr/Corvane/smb.conf", "[b]\npath = /vol/b\n[a]\npath = /never\n");
    start();

    EXPECT_EQ(resolve("a"), "/vol/a");
    EXPECT_EQ(resolve("b"), "/vol/b");
}

TEST_F(Shares, EnvironmentNamesTheOnlyFile)
{
    world().write_file("/etc/samba/smb.conf", "[a]\npath = /vol/a\n");
    world().write_file("/tmp/mine.conf", "[b]\npath = /vol/b\n");
    environment_.emplace_back("CORVANE_SMBPATH=/tmp/mine.conf");
    start();

    EXPECT_EQ(resolve("b"), "/vol/b");
    EXPECT_EQ(resolve("a"), "3 in 272 bytes");
    EXPECT_TRUE(
        logged("FTX1203E sambaCheck: Could not find a samba share for [a] in [/tmp/mine.conf].\n"));
}

TEST_F(Shares, MissingFileOfTheEnvironmentIsLoggedAndNothingElseTried)
{
    world().write_file("/etc/samba/smb.conf", "[a]\npath = /vol/a\n");
    environment_.emplace_back("CORVANE_SMBPATH=/tmp/absent.conf");
    start();

    EXPECT_EQ(resolve("a"), "3 in 272 bytes");
    EXPECT_TRUE(
        logged("FTX2104E sambaCheck: Could not find [/tmp/absent.conf] indicated by env var "
               "CORVANE_SMBPATH. The file does not exist.\n"));
    EXPECT_TRUE(logged("FTX1201W mdcfslib_checkmnttab failed name is: a.\n"));
}

TEST_F(Shares, NotFoundAnywhereIsExplained)
{
    start();

    EXPECT_EQ(resolve("a"), "3 in 272 bytes");
    EXPECT_TRUE(
        logged("FTX1200I Could not find the smb.conf file.\n"
               "If you are using Samba to share volumes to a Windows based machine.\n"
               "Set CORVANE_SMBPATH to the full path where the smb.conf file is located.\n"
               "(ex: CORVANE_SMBPATH set to \"/usr/local/samba/lib/smb.conf\").\n"
               " Otherwise disreguard this message.\n"))
        << log();
    EXPECT_TRUE(logged("FTX1201W mdcfslib_checkmnttab failed name is: a.\n"));
}

TEST_F(Shares, HomeDirectoriesNeedTheHomesSection)
{
    world().write_file("/etc/passwd",
                       "root:x:0:0:root:/root:/bin/sh\nann:x:7:7:Ann:/home/ann:/bin/sh\n");
    world().write_file("/etc/samba/smb.conf", "[data]\npath = /vol/data\n");
    start();
    EXPECT_EQ(resolve("ann"), "3 in 272 bytes");

    world().write_file("/etc/samba/smb.conf", "[homes]\n[data]\npath = /vol/data\n");

    EXPECT_EQ(resolve("ann"), "/home/ann");
    EXPECT_EQ(resolve("bob"), "3 in 272 bytes");
    EXPECT_EQ(resolve("data"), "/vol/data");
}

TEST_F(Shares, LevelOneTellsWhereItLooked)
{
    world().write_file("/etc/samba/smb.conf", "[data]\npath = /vol/data\n");
    start();
    set_level(1);

    EXPECT_EQ(resolve("data"), "/vol/data");

    EXPECT_TRUE(logged("OSL_ShareNameToMountPoint: shareName data\n"));
    EXPECT_TRUE(logged("parseSmbConfFile: Opening [/etc/samba/smb.conf] looking for [data]\n"));
    EXPECT_TRUE(logged("parseSmbConfFile: Found [data]. The path name is [/vol/data]\n"));
}

TEST_F(Shares, LevelZeroIsSilentAboutSuccess)
{
    world().write_file("/etc/samba/smb.conf", "[data]\npath = /vol/data\n");
    start();
    clear_log();

    EXPECT_EQ(resolve("data"), "/vol/data");

    EXPECT_EQ(log(), "");
}

TEST_F(Shares, LongLinesAndNamesAreSurvived)
{
    std::string text = "[" + std::string(4000, 'n') + "]\n" + std::string(100000, 'x') +
                       "\n[data]\n" + std::string(3000, ' ') + "path = /" + std::string(5000, 'p') +
                       "\n";
    world().write_file("/etc/samba/smb.conf", text);
    world().write_file("/etc/passwd",
                       std::string(9000, 'u') + ":x:1:1::/" + std::string(9000, 'h') + "\n:::\n");
    start();

    (void)resolve("data");
    (void)resolve(std::string(1000, 'n'));

    EXPECT_EQ(resolve("/alive"), "/alive");
}

}  // namespace
}  // namespace corvane::harness

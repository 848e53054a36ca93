// Share names: smb.conf, home shares, and what the log says of them.
#include "osl/share_name.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "mdcmain/segment.h"
#include "osl/fsuni.h"
#include "tests/mdcmain/private_machine.hpp"

namespace {

using corvane::test::in_private_machine;
using corvane::test::read_file;
using corvane::test::write_file;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr char kLog[] = "/usr/Corvane/mclog0";
constexpr char kConf[] = "/tmp/smb.conf";

// The two calls that tests make, with results that show an untouched buffer.
struct Found {
    int result;
    std::string path;
    bool operator==(const Found&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Found& found)
{
    return out << found.result << " [" << found.path << "]";
}
const Found kNotFound{-1, "untouched"};

Found parse(const std::string& contents, const char* share)
{
    write_file(kConf, contents);
    std::array<char, 256> path{"untouched"};
    const int result = parseSmbConfFile(kConf, share, path.data());
    return {result, path.data()};
}

Found resolve(const char* share, int capacity = 256)
{
    std::array<FSUNI, 300> name{};
    mb2fsuni(name.data(), share);
    std::array<FSUNI, 300> result{};
    mb2fsuni(result.data(), "untouched");
    std::array<char, 300> path{};
    const auto code = OSL_ShareNameToMountPoint(name.data(), result.data(), capacity);
    OSL_Uni2MultiByte(path.data(), result.data(), path.size());
    return {static_cast<int>(code), path.data()};
}

TEST(ShareName, APathIsReturnedUnchangedWithoutReadingAFile)
{
    in_private_machine([] {
        setenv("CORVANE_SMBPATH", "/tmp/missing", 1);
        EXPECT_EQ(resolve("/vol/data"), (Found{0, "/vol/data"}));
        EXPECT_EQ(resolve("/vol/data", 5), (Found{0, "/vol"}));
        EXPECT_EQ(resolve("/"), (Found{0, "/"}));
        EXPECT_THAT(read_file(kLog), Not(HasSubstr("FTX2104E")));
    });
}

TEST(ShareName, AShareGivesItsDirectory)
{
    in_private_machine([] {
        setenv("CORVANE_SMBPATH", kConf, 1);
        write_file(kConf,
                   "[global]\n  path = /wrong\n[data]\n comment = x\n\tpath = /vol/data more\n");
        EXPECT_EQ(resolve("data"), (Found{0, "/vol/data"}));
        EXPECT_EQ(resolve("data", 6), (Found{0, "/vol/"}));
    });
}

TEST(ShareName, ASharePathWithoutASlashGivesTheNameItself)
{
    in_private_machine([] {
        setenv("CORVANE_SMBPATH", kConf, 1);
        write_file(kConf, "[data]\npath = none\n");
        EXPECT_EQ(resolve("data"), (Found{0, "data"}));
    });
}

TEST(ShareName, AnUnknownShareIsThreeWithItsTextInTheLog)
{
    in_private_machine([] {
        setenv("CORVANE_SMBPATH", kConf, 1);
        write_file(kConf, "[data]\npath = /vol/data\n");
        EXPECT_EQ(resolve("other"), (Found{3, "untouched"}));
        EXPECT_THAT(read_file(kLog),
                    HasSubstr("FTX1203E sambaCheck: Could not find a samba share for "
                              "[other] in [/tmp/smb.conf].\n"));
        EXPECT_THAT(read_file(kLog),
                    EndsWith("FTX1201W mdcfslib_checkmnttab failed name is: other.\n"));
    });
}

TEST(ShareName, TheNameIsNarrowedIntoTwoHundredAndFiftySixBytes)
{
    in_private_machine([] {
        const std::string name = "/" + std::string(280, 'n');
        EXPECT_EQ(resolve(name.c_str(), 300), (Found{0, name.substr(0, 255)}));
    });
}

TEST(ShareName, StepsAreLoggedWhenTheLevelIsNotZero)
{
    in_private_machine([] {
        setenv("CORVANE_SMBPATH", kConf, 1);
        write_file(kConf, "[data]\npath = /vol/data\n");
        fused_mapShared();
        EXPECT_EQ(resolve("data").result, 0);
        EXPECT_THAT(read_file(kLog), Not(HasSubstr("data")));
        fs->logLevel = 1;

        EXPECT_EQ(resolve("data").result, 0);

        const std::string log = read_file(kLog);
        EXPECT_THAT(log, HasSubstr("OSL_ShareNameToMountPoint: shareName data\n"));
        EXPECT_THAT(log,
                    HasSubstr("parseSmbConfFile: Opening [/tmp/smb.conf] looking for [data]\n"));
        EXPECT_THAT(log,
                    EndsWith("parseSmbConfFile: Found [data]. The path name is [/vol/data]\n"));
    });
}

TEST(SambaCheck, AMissingNamedFileIsReportedAndTheDefaultsAreNotTried)
{
    in_private_machine([] {
        write_file("/usr/Corvane/smb.conf", "[data]\npath = /vol/data\n");
        setenv("CORVANE_SMBPATH", "/tmp/missing", 1);
        std::array<char, 256> path{"untouched"};
        EXPECT_EQ(sambaCheck("data", path.data()), -1);
        EXPECT_STREQ(path.data(), "untouched");
        EXPECT_THAT(
            read_file(kLog),
            EndsWith("FTX2104E sambaCheck: Could not find [/tmp/missing] indicated by env var "
                     "CORVANE_SMBPATH. The file does not exist.\n"));
    });
}

TEST(SambaCheck, TheDefaultFilesAreTriedInOrder)
{
    in_private_machine([] {
        std::array<char, 256> path{};
        write_file("/usr/Corvane/smb.conf", "[data]\npath = /second\n[own]\npath = /own\n");
        EXPECT_EQ(sambaCheck("data", path.data()), 0);
        EXPECT_STREQ(path.data(), "/second");

        write_file("/etc/samba/smb.conf", "[data]\npath = /first\n");
        EXPECT_EQ(sambaCheck("data", path.data()), 0);
        EXPECT_STREQ(path.data(), "/first");
        EXPECT_EQ(sambaCheck("own", path.data()), 0);
        EXPECT_STREQ(path.data(), "/own");
    });
}

TEST(SambaCheck, NoFileWithTheShareIsFiveLinesInTheLog)
{
    in_private_machine([] {
        std::array<char, 256> path{};
        EXPECT_EQ(sambaCheck("data", path.data()), -1);
        EXPECT_THAT(
            read_file(kLog),
            EndsWith("FTX1200I Could not find the smb.conf file.\n"
                     "If you are using Samba to share volumes to a Windows based machine.\n"
                     "Set CORVANE_SMBPATH to the full path where the smb.conf file is located.\n"
                     "(ex: CORVANE_SMBPATH set to \"/usr/local/samba/lib/smb.conf\").\n"
                     " Otherwise disreguard this message.\n"));
    });
}

TEST(SmbConf, OnlyTheExactSpellingIsRecognised)
{
    in_private_machine([] {
        EXPECT_EQ(parse("[data]\npath = /vol/data\n", "data"), (Found{0, "/vol/data"}));
        EXPECT_EQ(parse("[data]\npath=/vol/data\n", "data"), kNotFound);
        EXPECT_EQ(parse("[data]\npath  = /vol/data\n", "data"), kNotFound);
        EXPECT_EQ(parse("[Data]\npath = /vol/data\n", "data"), kNotFound);
        EXPECT_EQ(parse(" [data]\npath = /vol/data\n", "data"), kNotFound);
        EXPECT_EQ(parse("[data] \npath = /vol/data\n", "data"), kNotFound);
        EXPECT_EQ(parse("[data2]\npath = /vol/data\n", "data"), kNotFound);
        EXPECT_EQ(parse("path = /vol/data\n[data]\n", "data"), kNotFound);
        EXPECT_EQ(parse("", "data"), kNotFound);
    });
}

TEST(SmbConf, ThePathRunsFromTheFirstSlashToTheFirstBlank)
{
    in_private_machine([] {
        EXPECT_EQ(parse("[d]\n  browse path = x/y z\n", "d"), (Found{0, "/y"}));
        EXPECT_EQ(parse("[d]\npath = /a\tb c\n", "d"), (Found{0, "/a\tb"}));
        EXPECT_EQ(parse("[d]\npath = none\n", "d"), (Found{0, ""}));
        EXPECT_EQ(parse("[d]\npath = /" + std::string(400, 'x') + "\n", "d"),
                  (Found{0, "/" + std::string(254, 'x')}));
    });
}

TEST(SmbConf, TheLastByteOfEveryLineGoesNewlineOrNot)
{
    in_private_machine([] {
        EXPECT_EQ(parse("[d]\npath = /vol", "d"), (Found{0, "/vo"}));
        EXPECT_EQ(parse("[d]\r\npath = /vol\r\n", "d"), kNotFound);
        // A line is at most 1023 bytes: the next piece begins at byte 1023, and byte 1022 is
        // dropped.
        EXPECT_EQ(parse("[d]\npath = /" + std::string(1200, ' ') + "\n", "d"), (Found{0, "/"}));
        EXPECT_EQ(parse(std::string(1023, '#') + "[d]\npath = /vol\n", "d"), (Found{0, "/vol"}));
        EXPECT_EQ(parse(std::string("\0\n[d]\npath = /v\n", 16), "d"), (Found{0, "/v"}));
    });
}

TEST(SmbConf, ASectionWithoutAPathNeverGivesTheNextOnesPath)
{
    in_private_machine([] {
        EXPECT_EQ(parse("[d]\ncomment = x\n", "d"), kNotFound);
        EXPECT_EQ(parse("[d]\ncomment = x\n[e]\npath = /e\n", "d"), kNotFound);
        EXPECT_EQ(parse("[d]\n[e]\npath = /e\n[d]\npath = /d\n", "d"), (Found{0, "/d"}));
    });
}

TEST(SmbConf, AFileThatCannotBeOpenedIsReported)
{
    in_private_machine([] {
        std::array<char, 256> path{};
        EXPECT_EQ(parseSmbConfFile("/tmp/missing", "d", path.data()), -1);
        EXPECT_THAT(read_file(kLog),
                    EndsWith("FTX1199I Could not find samba share name failed to open "
                             "/tmp/missing file\n"));
    });
}

constexpr char kPasswd[] =
    "root:x:0:0:root:/root:/bin/sh\n"
    "nocolon\n"
    "anna:x:1001:1001:Anna:/home/anna:/bin/sh\n"
    "bob:x\n";

TEST(HomeShare, AUserNameGivesTheHomeDirectoryOnlyWithAHomesSection)
{
    in_private_machine([] {
        write_file("/etc/passwd", kPasswd);
        EXPECT_EQ(parse("[homes]\n", "anna"), (Found{0, "/home/anna"}));
        EXPECT_EQ(parse("[global]\n", "anna"), kNotFound);
        EXPECT_EQ(parse("[homes] \n", "anna"), kNotFound);
        EXPECT_EQ(parse("[homes]\n", "Anna"), kNotFound);
        EXPECT_EQ(parse("[homes]\n", "nocolon"), kNotFound);
        EXPECT_EQ(parse("[homes]\n", "nobody"), kNotFound);
        EXPECT_EQ(parse("[homes]\n", "bob"), (Found{0, ""}));
    });
}

TEST(HomeShare, AShareOfTheFileComesFirst)
{
    in_private_machine([] {
        write_file("/etc/passwd", kPasswd);
        EXPECT_EQ(parse("[homes]\n[anna]\npath = /vol/anna\n", "anna"), (Found{0, "/vol/anna"}));
        EXPECT_EQ(parse("[anna]\npath = /vol/anna\n[homes]\n", "anna"), (Found{0, "/vol/anna"}));
        EXPECT_EQ(parse("[homes]\npath = /all\n", "homes"), (Found{0, "/all"}));
        EXPECT_EQ(parse("[anna]\ncomment = x\n[homes]\n", "anna"), (Found{0, "/home/anna"}));
    });
}

TEST(HomeShare, LookingIsLoggedWhenTheLevelIsNotZero)
{
    in_private_machine([] {
        write_file("/etc/passwd", kPasswd);
        fused_mapShared();
        fs->logLevel = 1;
        EXPECT_EQ(parse("[homes]\n", "anna").result, 0);
        EXPECT_THAT(read_file(kLog), HasSubstr("username is [root] volName is [nna]\n"));
        EXPECT_THAT(read_file(kLog), HasSubstr("username is [anna] volName is [nna]\n"));
        EXPECT_THAT(read_file(kLog),
                    HasSubstr("refName is [/home/anna] homeDir is [/home/anna]\n"));
        EXPECT_EQ(parse("[homes]\n", ""), kNotFound);
    });
}

TEST(HomeShare, WithoutAPasswordFileThereIsNone)
{
    in_private_machine([] {
        std::filesystem::remove("/etc/passwd");
        EXPECT_EQ(parse("[homes]\n", "anna"), kNotFound);
    });
}

}  // namespace

// What corvanecfg says when it cannot do its work: one line that tells what to do, and status 1; 2
// for wrong usage.
#include <sys/stat.h>

#include "tests/tools/tool_test.hpp"

namespace corvane::harness {
namespace {

const std::vector<std::vector<std::string>> kAttaching = {
    {"show"}, {"get", "mdcPort"}, {"set", "logLevel", "1"}, {"reset"}, {"log"}, {"lang"}};

class CfgRefusals : public ToolTest {
protected:
    Outcome cfg(const std::vector<std::string>& arguments)
    {
        return run_tool("corvanecfg", arguments);
    }
    void make_settings()
    {
        EXPECT_EQ(output_of("corvanecfg", {"--create", "get", "mdcPort"}), "5501\n");
    }
    // A segment that no program of the product made.
    void make_foreign_segment(const std::string& bytes, const std::string& mode)
    {
        const std::string make = "defined shmget(1124, " + bytes + ", 01000 | " + mode + ") or die";
        ASSERT_EQ(world().run({{"perl", "-e", make}, {}}).status, 0);
    }
    Outcome cfg_as_nobody(std::vector<std::string> arguments)
    {
        std::filesystem::copy_file(CORVANE_BUILD_DIR "/bin/corvanecfg",
                                   world().path("/usr/Corvane/corvanecfg"));
        Command command;
        command.arguments = {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                             "/usr/Corvane/corvanecfg"};
        command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
        command.environment = environment_;
        return world().run(command);
    }
    bool can_change_user()
    {
        return world()
                   .run({{"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "true"},
                         {}})
                   .status == 0;
    }
};

TEST_F(CfgRefusals, NothingIsMadeUnlessAskedFor)
{
    for (const auto& arguments : kAttaching) {
        expect_failure(cfg(arguments), 1,
                       "corvanecfg: there are no settings on this machine yet: start corvaned, or "
                       "give --create");
        EXPECT_FALSE(world().has_segment()) << arguments[0];
    }
}

TEST_F(CfgRefusals, MoreVolumesThanTheSettingsWereMadeFor)
{
    make_settings();
    environment_.emplace_back("CORVANEVOLS=64");

    for (const auto& arguments : kAttaching) {
        expect_failure(cfg(arguments), 1,
                       "corvanecfg: the settings were made for 32 volumes, and CORVANEVOLS asks "
                       "for 64: unset CORVANEVOLS, or stop all programs and remove the segment "
                       "(ipcrm -M 1124)");
    }
    EXPECT_EQ(world().word(segment::kLogLevel), 0);
}

TEST_F(CfgRefusals, ASegmentOfAnotherMaker)
{
    make_foreign_segment("4096", "0777");

    expect_failure(cfg({"show"}), 1,
                   "corvanecfg: the segment with the key 1124 is too small to hold the settings "
                   "(4096 bytes): stop the program that made it and remove it (ipcrm -M 1124)");
}

TEST_F(CfgRefusals, AUserWhoMayNotUseTheSegment)
{
    if (!can_change_user()) GTEST_SKIP() << "only root can run a program as another user";
    make_foreign_segment("7684792", "0600");

    expect_failure(cfg_as_nobody({"get", "mdcPort"}), 1,
                   "corvanecfg: this user may not read and write the settings (segment key 1124): "
                   "run as root");
}

TEST_F(CfgRefusals, AUserWhoMayNotWriteTheLanguageFile)
{
    if (!can_change_user()) GTEST_SKIP() << "only root can run a program as another user";

    expect_failure(cfg_as_nobody({"lang", "--path", "/x/corvanecat.cat"}), 1,
                   "corvanecfg: /usr/Corvane/lang.txt cannot be written: Permission denied");
}

TEST_F(CfgRefusals, NewSettingsWithoutAnyCatalogue)
{
    std::filesystem::remove_all(world().path("/usr/Corvane/nls"));

    expect_failure(cfg({"--create", "show"}), 1,
                   "corvanecfg: the settings could not be made or attached; /usr/Corvane/mclog0 "
                   "says why");
    EXPECT_NE(log().find("No nlsPath found"), std::string::npos) << log();
}

TEST_F(CfgRefusals, SettingsThatProgramsKeepThemselves)
{
    make_settings();
    for (const char* name : {"segmentSize", "maxVolumes", "initialised", "shmLogUsed", "langName",
                             "nlsPath", "sysName", "langFromFile", "nlsReady"}) {
        const std::string before = output_of("corvanecfg", {"get", name});
        expect_failure(cfg({"set", name, "1"}), 1,
                       "corvanecfg: " + std::string(name) +
                           " is kept by the programs themselves and cannot be set");
        EXPECT_EQ(output_of("corvanecfg", {"get", name}), before) << name;
    }
}

TEST_F(CfgRefusals, UnknownSettings)
{
    make_settings();
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {"get", "loglevel"}, {"set", "loglevel", "1"}, {"--json", "get", "loglevel"}}) {
        expect_failure(cfg(arguments), 1,
                       "corvanecfg: there is no setting 'loglevel'; 'corvanecfg show' lists their "
                       "names");
    }
}

TEST_F(CfgRefusals, WrongUsageMakesNothing)
{
    for (const auto& arguments :
         std::vector<std::vector<std::string>>{{},
                                               {"frobnicate"},
                                               {"get"},
                                               {"set", "logLevel"},
                                               {"set", "logLevel", "1", "2"},
                                               {"get", "mdcPort", "more"},
                                               {"--create", "show", "--colour"},
                                               {"log", "--json=x"},
                                               {"lang", "--path"},
                                               {"lang", "--path", "/x", "--clear"}}) {
        expect_wrong_usage(cfg(arguments));
        EXPECT_FALSE(world().has_segment());
    }
}

TEST_F(CfgRefusals, HelpAndVersionNeedNoSettings)
{
    EXPECT_NE(output_of("corvanecfg", {"--help"}).find("--create"), std::string::npos);
    EXPECT_NE(output_of("corvanecfg", {"log", "--help"}).find("--follow"), std::string::npos);
    EXPECT_EQ(output_of("corvanecfg", {"--version"}).rfind("corvanecfg ", 0), 0U);
    EXPECT_FALSE(world().has_segment());
}

}  // namespace
}  // namespace corvane::harness

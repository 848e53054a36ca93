// corvanecfg at work: every setting read, written at its bounds and reset, the log ring, the
// language, and the running daemon that sees a change at once.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <set>

#include "tests/tools/tool_test.hpp"

namespace corvane::harness {
namespace {

struct Range {
    const char* name;
    std::int64_t offset;
    std::int64_t lowest;
    std::int64_t highest;
    std::int32_t initial;
};

constexpr std::int64_t kMostWord = 2147483647;

// Every number that can be set, by its place in the segment.
constexpr std::array kRanges = {
    Range{"logLevel", segment::kLogLevel, 0, 99, 0},
    Range{"logMode", segment::kLogMode, 0, 2, 1},
    Range{"logMaxSize", segment::kLogMaxSize, 1, kMostWord, 204800},
    Range{"numLogs", segment::kNumLogs, 1, 1000, 1},
    Range{"logCount", segment::kLogCount, 0, kMostWord, 0},
    Range{"mdcPort", segment::kMdcPort, 1, 65535, 5501},
    Range{"dgramThreads", segment::kDgramThreads, 1, 1024, 5},
    Range{"rawAlignment", 0x209E9C, 1, 1048576, 512},
    Range{"mapDrv", 0x209EA4, -kMostWord - 1, kMostWord, 0},
    Range{"nlsEnabled", segment::kNlsEnabled, 0, 1, 1},
    Range{"spBufferSize", 0x20A0AC, 1, 65536, 65536},
    Range{"logopPrivate", segment::kLogopPrivate, 0, 1, 0},
};

class Cfg : public ToolTest {
protected:
    void SetUp() override
    {
        ToolTest::SetUp();
        if (!IsSkipped()) (void)cfg_output({"--create", "get", "initialised"});
    }
    Outcome cfg(const std::vector<std::string>& arguments)
    {
        return run_tool("corvanecfg", arguments);
    }
    std::string cfg_output(const std::vector<std::string>& arguments)
    {
        return output_of("corvanecfg", arguments);
    }
    void set(const std::string& name, const std::string& value)
    {
        EXPECT_NE(cfg_output({"set", name, value}), "");
    }
    // Writes `text` into the ring and says so in its fill word, as a program of the product does.
    void fill_ring(const std::string& text)
    {
        world().poke(segment::kShmLog, text + std::string(1, '\0'));
        world().set_word(segment::kShmLogUsed, static_cast<std::int32_t>(text.size()));
    }
};

TEST_F(Cfg, CreateMakesTheSegmentThatTheDaemonMakes)
{
    EXPECT_EQ(world().segment_bytes(), 7684792);
    EXPECT_EQ(world().segment_mode(), 0777);
    start();
    EXPECT_EQ(client().ask(codec::request({}, 48)).i32(36), 8);
}

TEST_F(Cfg, ShowListsEverySettingOnALine)
{
    const std::string text = cfg_output({"show"});

    EXPECT_EQ(text.rfind("NAME ", 0), 0U);
    for (const Range& range : kRanges) {
        EXPECT_NE(text.find("\n" + std::string(range.name) + " "), std::string::npos) << range.name;
    }
    EXPECT_NE(text.find("\nlogBaseName    /usr/Corvane/mclog "), std::string::npos) << text;
}

TEST_F(Cfg, ShowAsJsonHasEverySettingOnce)
{
    const auto list = json_of("corvanecfg", {"show", "--json"});

    std::set<std::string> names;
    for (const auto& setting : list) {
        EXPECT_TRUE(names.insert(setting.at("name")).second) << setting;
        for (const char* key : {"default", "takesEffect", "meaning"}) {
            EXPECT_TRUE(setting.at(key).is_string()) << setting;
        }
        if (setting["name"] == "segmentSize") {
            EXPECT_EQ(setting["value"], 7684792);
        }
        if (setting["name"] == "mdcPort") {
            EXPECT_EQ(setting["takesEffect"], "at the next start");
        }
    }
    for (const Range& range : kRanges) EXPECT_TRUE(names.contains(range.name)) << range.name;
}

TEST_F(Cfg, GetReadsTheWordOfTheSegment)
{
    for (const Range& range : kRanges) {
        EXPECT_EQ(cfg_output({"get", range.name}), std::to_string(range.initial) + "\n");
        world().set_word(range.offset, 1);
        EXPECT_EQ(json_of("corvanecfg", {"--json", "get", range.name}),
                  nlohmann::json({{range.name, 1}}));
    }
    EXPECT_EQ(json_of("corvanecfg", {"get", "logBaseName", "--json"}),
              nlohmann::json({{"logBaseName", "/usr/Corvane/mclog"}}));
}

TEST_F(Cfg, NumbersAreTakenFromTheLowestToTheHighestAlone)
{
    for (const Range& range : kRanges) {
        for (const std::int64_t good : {range.lowest, range.highest}) {
            set(range.name, std::to_string(good));
            EXPECT_EQ(world().word(range.offset), good) << range.name;
        }
        for (const std::string& bad :
             {std::to_string(range.lowest - 1), std::to_string(range.highest + 1),
              std::string("1x"), std::string(), std::string("99999999999999999999")}) {
            expect_failure(cfg({"set", range.name, bad}), 1,
                           "corvanecfg: " + std::string(range.name) +
                               " takes a whole number from " + std::to_string(range.lowest) +
                               " to " + std::to_string(range.highest) + ", not '" + bad + "'");
            EXPECT_EQ(world().word(range.offset), range.highest) << range.name << " " << bad;
        }
    }
}

TEST_F(Cfg, SetSaysWhatItChangedAndWhenThatCounts)
{
    EXPECT_EQ(cfg_output({"set", "logLevel", "3"}), "logLevel: 0 -> 3 (takes effect at once)\n");
    EXPECT_EQ(cfg_output({"set", "mdcPort", "6000"}),
              "mdcPort: 5501 -> 6000 (takes effect at the next start)\n");
    EXPECT_EQ(cfg_output({"set", "optionalDir", "/x"}),
              "optionalDir: - -> /x (takes effect at once)\n");
}

TEST_F(Cfg, PathsOfUpTo255BytesAreTaken)
{
    const std::string longest = "/" + std::string(254, 'p');

    set("logBaseName", longest);
    EXPECT_EQ(world().text(segment::kLogBaseName, 256), longest);
    expect_failure(cfg({"set", "logBaseName", longest + "p"}), 1,
                   "corvanecfg: logBaseName holds at most 255 bytes; this path has 256");
    expect_failure(cfg({"set", "logBaseName", "logs/mclog"}), 1,
                   "corvanecfg: logBaseName takes an absolute path, not 'logs/mclog'");
    EXPECT_EQ(world().text(segment::kLogBaseName, 256), longest);

    // A shorter path leaves nothing of the longer one behind.
    set("logBaseName", "/short");
    EXPECT_EQ(world().peek(segment::kLogBaseName, 256), "/short" + std::string(250, '\0'));
}

TEST_F(Cfg, ADashClearsTheOptionalDirectoryAlone)
{
    set("optionalDir", "/opt");
    EXPECT_EQ(cfg_output({"get", "optionalDir"}), "/opt\n");
    set("optionalDir", "-");
    EXPECT_EQ(cfg_output({"get", "optionalDir"}), "\n");
    EXPECT_EQ(cfg({"set", "logBaseName", "-"}).status, 1);
}

TEST_F(Cfg, SeparatorsAreOneVisibleCharacter)
{
    set("thousandsSep", "'");
    EXPECT_EQ(world().word(0x20A0C4), '\'');
    EXPECT_EQ(cfg_output({"get", "thousandsSep"}), "'\n");
    for (const char* bad : {"", " ", "ab", "\x7F", "\xC3\xA4"}) {
        expect_failure(cfg({"set", "decimalPoint", bad}), 1,
                       "corvanecfg: decimalPoint takes one visible ASCII character");
    }
    EXPECT_EQ(world().word(0x20A0C8), '.');
}

TEST_F(Cfg, ResetGivesEverythingItsDefault)
{
    for (const Range& range : kRanges) set(range.name, "1");
    set("logBaseName", "/elsewhere");
    fill_ring("old text\n");

    EXPECT_NE(cfg_output({"reset"}), "");

    for (const Range& range : kRanges) {
        EXPECT_EQ(world().word(range.offset), range.initial) << range.name;
    }
    EXPECT_EQ(world().text(segment::kLogBaseName, 256), "/usr/Corvane/mclog");
    EXPECT_EQ(world().word(segment::kShmLogUsed), 0);
    EXPECT_EQ(cfg_output({"log"}), "");
}

TEST_F(Cfg, TheRunningDaemonFollowsTheLogLevelAtOnce)
{
    start();
    UdpClient asker = client();
    (void)asker.ask(codec::get_volume(header(), "/before"));
    ASSERT_EQ(log().find("/before"), std::string::npos) << log();

    set("logLevel", "3");
    (void)asker.ask(codec::get_volume(header(), "/while"));
    EXPECT_TRUE(logged("/while")) << log();

    set("logLevel", "0");
    (void)asker.ask(codec::get_volume(header(), "/after"));
    EXPECT_EQ(log().find("/after"), std::string::npos) << log();
}

TEST_F(Cfg, TheDaemonTakesItsPortAtTheNextStart)
{
    set("mdcPort", "6001");

    start();

    UdpClient asker(world(), Network::kMain, 6001);
    EXPECT_EQ(asker.ask(codec::request({}, 48)).i32(36), 8);
}

TEST_F(Cfg, LogPrintsTheRing)
{
    start();
    set("logMode", "2");
    set("logLevel", "3");
    (void)client().ask(codec::get_volume(header(), "/in/the/ring"));

    ASSERT_TRUE(
        eventually([&] { return cfg_output({"log"}).find("/in/the/ring") != std::string::npos; }));
    EXPECT_EQ(log().find("/in/the/ring"), std::string::npos) << "not into the file, too";
}

TEST_F(Cfg, FollowPrintsEachAdditionOnceUntilInterrupted)
{
    fill_ring("one\n");
    const Fd output(::memfd_create("followed", MFD_CLOEXEC));
    Command command = tool_command("corvanecfg", {"log", "--follow"});
    command.output = output.get();
    const pid_t pid = world().spawn(command);
    const auto printed = [&] {
        std::array<char, 4096> text{};
        const ssize_t got = ::pread(output.get(), text.data(), text.size(), 0);
        return std::string(text.data(), static_cast<std::size_t>(got > 0 ? got : 0));
    };

    ASSERT_TRUE(eventually([&] { return printed() == "one\n"; })) << printed();
    fill_ring("one\ntwo\n");
    ASSERT_TRUE(eventually([&] { return printed() == "one\ntwo\n"; })) << printed();
    fill_ring("two\nthree\n");  // the ring dropped its older part
    ASSERT_TRUE(eventually([&] { return printed().ends_with("three\n"); })) << printed();

    EXPECT_TRUE(world().is_running(pid));
    world().kill(pid, SIGINT);
    EXPECT_EQ(world().wait(pid), 128 + SIGINT);
}

TEST_F(Cfg, LangShowsWhatIsInForce)
{
    const auto all = json_of("corvanecfg", {"lang", "--json"});

    EXPECT_EQ(all.at("nlsPath"), "/usr/Corvane/nls/C/corvanecat.cat");
    EXPECT_EQ(all.at("langFromFile"), 0);
    EXPECT_EQ(all.at("nlsEnabled"), 1);
    EXPECT_EQ(all.at("thousandsSep"), ",");
    EXPECT_EQ(all.at("decimalPoint"), ".");
    EXPECT_TRUE(all.at("langName").is_string());
    EXPECT_NE(cfg_output({"lang"}).find("/usr/Corvane/nls/C/corvanecat.cat"), std::string::npos);
}

TEST_F(Cfg, LangForcesAndFreesTheCatalogue)
{
    EXPECT_NE(cfg_output({"lang", "--path", "/opt/msg/de/corvanecat.cat"}), "");
    EXPECT_EQ(world().read_file("/usr/Corvane/lang.txt"), "/opt/msg/de/corvanecat.cat\n");

    for (int i = 0; i < 2; ++i) EXPECT_NE(cfg_output({"lang", "--clear"}), "") << i;
    EXPECT_FALSE(std::filesystem::exists(world().path("/usr/Corvane/lang.txt")));
}

TEST_F(Cfg, OnlyAnAbsolutePathOfOneLineGoesIntoTheLanguageFile)
{
    for (const std::string& bad : {std::string(), std::string("de.cat"), std::string("/a\nb"),
                                   "/" + std::string(255, 'l')}) {
        expect_failure(
            cfg({"lang", "--path", bad}), 1,
            "corvanecfg: a catalogue path is absolute, of one line and at most 255 bytes long");
    }
    EXPECT_FALSE(std::filesystem::exists(world().path("/usr/Corvane/lang.txt")));
}

}  // namespace
}  // namespace corvane::harness

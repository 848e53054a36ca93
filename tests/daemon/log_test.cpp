// Levels, modes, rotation and the ring, all switched in the segment of the running daemon.
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <regex>

#include "tests/harness/daemon.hpp"

namespace corvane::harness {
namespace {

constexpr const char* kTrace = "LANSERVER: received message";

class Log : public DaemonTest {
protected:
    // A request that any daemon answers: an unknown function.
    void ask_something() { EXPECT_EQ(client().ask(codec::request({}, 48)).i32(36), 8); }

    // Makes the daemon warn: a close whose size change fails.
    void make_warning()
    {
        codec::InitialMap map;
        map.share = "/vol";
        map.file = "/f";
        codec::Header header;
        header.message_id = "warning id 00000";
        const codec::Bytes opened = client().ask(codec::get_initial_map(header, map));
        ASSERT_EQ(opened.i32(48), 0);
        EXPECT_EQ(client().ask(codec::close_file(header, opened.u32(56), 10)).i32(48), 104);
    }

    void install_warning_recorder()
    {
        install_recorder();
        script(
            "FS_GetCookies result=0\nFS_GetLockedMap result=0\nFS_GetMaxLeases result=1\n"
            "FS_SetFileSizes result=104\n");
    }

    static constexpr const char* kWarning =
        "corvaned: SP_Close, FS_SetFileSizes returned error 104\n";
};

TEST_F(Log, LevelThreeShowsTracesAtOnceInTheRunningDaemon)
{
    start();
    ask_something();
    EXPECT_EQ(log().find(kTrace), std::string::npos);

    set_level(3);
    ask_something();

    EXPECT_TRUE(logged(std::string("corvaned: ") + kTrace + "\n"));
}

class LogSilentLevel : public Log, public ::testing::WithParamInterface<int> {};

TEST_P(LogSilentLevel, ShowsNoTrace)
{
    start();
    set_level(GetParam());

    for (int i = 0; i < 20; ++i) ask_something();

    EXPECT_EQ(log().find(kTrace), std::string::npos);
}
INSTANTIATE_TEST_SUITE_P(Levels, LogSilentLevel, ::testing::Values(0, 1, 2, -5));

TEST_F(Log, WarningsShowAtLevelZero)
{
    install_warning_recorder();
    start();

    make_warning();

    EXPECT_TRUE(logged(kWarning));
}

class LogWarningLevel : public Log, public ::testing::WithParamInterface<int> {};

TEST_P(LogWarningLevel, ShowsNoWarning)
{
    install_warning_recorder();
    start();
    set_level(GetParam());
    make_warning();

    EXPECT_EQ(log().find(kWarning), std::string::npos);
}
INSTANTIATE_TEST_SUITE_P(Levels, LogWarningLevel, ::testing::Values(1, 2));

TEST_F(Log, LevelZeroPrefixesTheDateEveryOtherTheProcess)
{
    install_warning_recorder();
    start();
    clear_log();
    make_warning();
    ASSERT_TRUE(logged(kWarning));
    const std::regex dated(
        "[01][0-9]/[0-3][0-9]\\|[0-2][0-9]:[0-5][0-9]:[0-6][0-9] corvaned: SP_Close,");
    EXPECT_TRUE(std::regex_search(log(), dated)) << log();

    set_level(3);
    clear_log();
    ask_something();

    ASSERT_TRUE(logged(kTrace));
    EXPECT_NE(log().find(std::to_string(daemon_pid()) + " corvaned: " + kTrace), std::string::npos)
        << log();
}

TEST_F(Log, LevelZeroGoesToTheFileWhateverTheMode)
{
    install_warning_recorder();
    start();
    world().set_word(segment::kLogMode, 0);

    make_warning();

    EXPECT_TRUE(logged(kWarning));
}

TEST_F(Log, RingModeKeepsProcessTwoBlanksAndText)
{
    start();
    clear_log();
    world().set_word(segment::kLogMode, 2);
    set_level(3);

    ask_something();

    const std::string line = std::to_string(daemon_pid()) + "  corvaned: " + kTrace + "\n";
    EXPECT_TRUE(eventually([&] {
        return world().text(segment::kShmLog, segment::kShmLogBytes).find(line) !=
               std::string::npos;
    }));
    EXPECT_EQ(log(), "");
    EXPECT_TRUE(eventually([&] {
        const auto used = static_cast<std::size_t>(world().word(segment::kShmLogUsed));
        return world().text(segment::kShmLog, segment::kShmLogBytes).size() == used;
    }));
}

// 20480 bytes hold; the next message drops the older half.
TEST_F(Log, RingDropsItsOlderHalfWhenFull)
{
    start();
    world().set_word(segment::kLogMode, 2);
    set_level(3);
    std::string full(20470, 'a');
    full.replace(10240, 10230, std::string(10230, 'b'));
    world().poke(segment::kShmLog, full + std::string(10, '\0'));
    world().set_word(segment::kShmLogUsed, 20470);

    ask_something();

    EXPECT_TRUE(eventually([&] {
        const std::string ring = world().text(segment::kShmLog, segment::kShmLogBytes);
        return ring.rfind(std::string(10230, 'b') + std::to_string(daemon_pid()) + "  corvaned: ",
                          0) == 0;
    }));
}

// Standard output is a terminal here, so that the C library writes line by line.
TEST_F(Log, StandardOutputMode)
{
    make_segment();
    const Fd terminal(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    ASSERT_EQ(::grantpt(terminal.get()), 0);
    ASSERT_EQ(::unlockpt(terminal.get()), 0);
    const Fd inner(::open(::ptsname(terminal.get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
    world().set_word(segment::kLogMode, 0);
    world().set_word(segment::kLogLevel, 3);
    Command command = daemon_command({"-d"});
    command.output = inner.get();
    const pid_t pid = world().spawn(command);
    ASSERT_TRUE(eventually([this] { return is_ready(); }));

    ask_something();

    std::string shown;
    const bool found = eventually([&] {
        pollfd ready{terminal.get(), POLLIN, 0};
        char part[4096];
        while (::poll(&ready, 1, 0) > 0 && (ready.revents & POLLIN) != 0) {
            const ssize_t got = ::read(terminal.get(), part, sizeof part);
            if (got <= 0) break;
            shown.append(part, static_cast<std::size_t>(got));
        }
        return shown.find(std::string("corvaned: ") + kTrace) != std::string::npos;
    });
    EXPECT_TRUE(found) << shown;
    EXPECT_EQ(log().find(kTrace), std::string::npos);
    world().kill(pid, 9);
    EXPECT_TRUE(world().wait(pid).has_value());
}

TEST_F(Log, FileIsReadableAndWritableByAll)
{
    start();

    struct stat status {};
    ASSERT_EQ(::stat(world().path("/usr/Corvane/mclog0").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0666U);
}

TEST_F(Log, NewFileBeginsWithVersionAndTime)
{
    world().write_file("/usr/Corvane/version.txt", "4.5.6\n");

    start();

    const std::regex header("^Opening Log version:4\\.5\\.6 time:[A-Z][a-z]{2} [A-Z][a-z]{2} .*\n");
    EXPECT_TRUE(std::regex_search(log(), header, std::regex_constants::match_continuous)) << log();
}

TEST_F(Log, FileTooLargeIsRotatedAtTheNextFiftiethMessage)
{
    make_segment();
    world().set_word(segment::kNumLogs, 3);
    world().set_word(segment::kLogCount, 4);
    world().set_word(segment::kLogMaxSize, 1000);
    world().set_word(segment::kLogLevel, 3);
    world().write_file("/usr/Corvane/mclog1", std::string(1001, 'x') + "\n");
    world().write_file("/usr/Corvane/mclog2", "old contents\n");

    start();

    EXPECT_TRUE(eventually([this] { return world().word(segment::kLogCount) == 5; }));
    EXPECT_TRUE(eventually([this] {
        const std::string next = world().read_file("/usr/Corvane/mclog2");
        return !next.empty() && next.find("old contents") == std::string::npos;
    }));
    EXPECT_EQ(world().read_file("/usr/Corvane/mclog1"), std::string(1001, 'x') + "\n");
    EXPECT_EQ(world().read_file("/tmp/mclogdata.bak"), "2" + std::string(31, '\0'));
}

TEST_F(Log, FileOfExactlyTheLimitIsNotRotated)
{
    make_segment();
    world().set_word(segment::kNumLogs, 3);
    world().set_word(segment::kLogMaxSize, 1000);
    world().set_word(segment::kLogLevel, 3);
    world().write_file("/usr/Corvane/mclog0", std::string(999, 'x') + "\n");

    start();
    ASSERT_TRUE(logged("corvaned: "));

    EXPECT_EQ(world().word(segment::kLogCount), 0);
    EXPECT_EQ(log().substr(0, 1000), std::string(999, 'x') + "\n");
}

TEST_F(Log, OneFileIsStartedAgainAndItsCountNeverSaved)
{
    make_segment();
    world().set_word(segment::kLogMaxSize, 1000);
    world().set_word(segment::kLogLevel, 3);
    world().write_file("/usr/Corvane/mclog0", std::string(5000, 'x') + "\n");

    start();

    EXPECT_TRUE(eventually([this] { return world().word(segment::kLogCount) == 1; }));
    EXPECT_TRUE(eventually([this] { return !log().empty() && log()[0] != 'x'; }));
    EXPECT_FALSE(std::filesystem::exists(world().path("/tmp/mclogdata.bak")));
}

TEST_F(Log, FileThatCannotBeOpenedIsReportedOnStandardOutput)
{
    make_segment();
    const std::string name = "/nowhere/log";
    world().poke(segment::kLogBaseName, name + '\0');
    world().set_word(segment::kMdcPort, 5501);
    start();

    const Outcome second = world().run(daemon_command({"-d"}));

    EXPECT_EQ(second.status, 1);
    EXPECT_NE(
        second.output.find("Could not open log file /nowhere/log0: No such file or directory\n"
                           "FTX1194W DGRAM_BindListener failed 1104.  Perhaps another corvaned is "
                           "running.\n"),
        std::string::npos)
        << second.output;
}

}  // namespace
}  // namespace corvane::harness

// Options, the fork, and what happens when a second daemon comes.
#include <signal.h>
#include <unistd.h>

#include <regex>
#include <sstream>

#include "tests/harness/daemon.hpp"

namespace corvane::harness {
namespace {

constexpr const char* kUsage = " [-l fd listner queue size (default 512)] [-d no fork] \n";

class Startup : public DaemonTest {
protected:
    // The listen backlog of the descriptor service, as the kernel holds it.
    int backlog()
    {
        const Outcome sockets = world().run({{"ss", "-xlH"}, {}});
        std::istringstream lines(sockets.output);
        for (std::string line; std::getline(lines, line);) {
            if (line.find(kSocketPath) == std::string::npos) continue;
            std::istringstream words(line);
            std::string kind;
            std::string state;
            int waiting = 0;
            int limit = -1;
            words >> kind >> state >> waiting >> limit;
            return limit;
        }
        return -1;
    }
};

TEST_F(Startup, BacklogIs512ByDefault)
{
    start({"-d"});

    EXPECT_EQ(backlog(), 512);
}

TEST_F(Startup, BacklogBeforeNoForkCounts)
{
    start({"-l", "10", "-d"});

    EXPECT_EQ(backlog(), 10);
}

// Meant to be so: -d starts the services as soon as it is read.
TEST_F(Startup, BacklogAfterNoForkComesTooLate)
{
    start({"-d", "-l", "10"});

    EXPECT_EQ(backlog(), 512);
}

TEST_F(Startup, BacklogIsWhatAtoiMakesOfIt)
{
    start({"-l", "7seven", "-d"});

    EXPECT_EQ(backlog(), 7);
}

TEST_F(Startup, UnknownOptionPrintsUsageAndFails)
{
    Command command = daemon_command({"-x"});

    const Outcome outcome = world().run(command);

    EXPECT_EQ(outcome.status, 1);
    const std::string usage = "Usage: " + command.arguments[0] + kUsage;
    EXPECT_NE(outcome.errors.find(usage), std::string::npos) << outcome.errors;
    EXPECT_EQ(outcome.output, "");
    EXPECT_FALSE(world().has_segment());
}

TEST_F(Startup, BacklogWithoutValuePrintsUsageAndFails)
{
    const Outcome outcome = world().run(daemon_command({"-l"}));

    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.errors.find(kUsage), std::string::npos) << outcome.errors;
}

TEST_F(Startup, UnknownOptionAfterNoForkIsNeverRead)
{
    start({"-d", "-x"});

    EXPECT_TRUE(world().is_running(daemon_pid()));
}

TEST_F(Startup, WithoutOptionsTheParentLeavesAtOnce)
{
    const pid_t parent = launch({});
    EXPECT_EQ(world().wait(parent), 0);

    ASSERT_TRUE(eventually([this] { return is_ready(); }));
    const auto left = world().processes();
    ASSERT_EQ(left.size(), 1U);
    EXPECT_EQ(client().ask(codec::request({}, 48)).i32(36), 8);
    world().kill(left[0], SIGKILL);
    EXPECT_EQ(world().wait(left[0]), 128 + SIGKILL);
}

TEST_F(Startup, BacklogAloneStillForks)
{
    EXPECT_EQ(world().wait(launch({"-l", "33"})), 0);

    ASSERT_TRUE(eventually([this] { return is_ready(); }));
    EXPECT_EQ(backlog(), 33);
    const auto left = world().processes();
    ASSERT_EQ(left.size(), 1U);
    world().kill(left[0], SIGKILL);
    EXPECT_TRUE(world().wait(left[0]).has_value());
}

TEST_F(Startup, SecondDaemonSaysThatOneRunsAndFails)
{
    start();

    const Outcome second = world().run(daemon_command({"-d"}));

    EXPECT_EQ(second.status, 1);
    EXPECT_TRUE(
        logged("FTX1194W DGRAM_BindListener failed 1104.  Perhaps another corvaned is running.\n"));
    EXPECT_EQ(client().ask(codec::request({}, 48)).i32(36), 8) << "the first one serves on";
}

TEST_F(Startup, SecondDaemonInTheBackgroundFailsBehindItsParent)
{
    start();

    EXPECT_EQ(world().wait(launch({})), 0);

    EXPECT_TRUE(logged("FTX1194W DGRAM_BindListener failed 1104.  "));
    EXPECT_TRUE(eventually([this] { return world().processes().size() == 1; }));
}

TEST_F(Startup, PortComesFromTheSegmentsLow16Bits)
{
    make_segment();
    world().set_word(segment::kMdcPort, 65536 + 6001);
    start();

    UdpClient elsewhere(world(), Network::kMain, 6001);

    EXPECT_EQ(elsewhere.ask(codec::request({}, 48)).i32(36), 8);
}

TEST_F(Startup, ListenerThreadsComeFromTheSegment)
{
    const auto threads = [this] {
        const std::string status =
            world().read_inside("/proc/" + std::to_string(daemon_pid()) + "/status");
        std::smatch match;
        std::regex_search(status, match, std::regex("Threads:\\s+([0-9]+)"));
        return match.empty() ? 0 : std::stoi(match[1]);
    };
    start();
    ASSERT_TRUE(eventually([&] { return threads() >= 7; }));
    const int with_five = threads();
    stop();

    world().set_word(segment::kDgramThreads, 9);
    start();

    EXPECT_TRUE(eventually([&] { return threads() == with_five + 4; })) << threads();
}

TEST_F(Startup, NoListenerThreadsMeansNoAnswer)
{
    make_segment();
    world().set_word(segment::kDgramThreads, 0);
    start();

    UdpClient asker = client();
    asker.send(codec::request({}, 48).data());

    EXPECT_FALSE(asker.receive(milliseconds(300)).has_value());
    EXPECT_TRUE(world().is_running(daemon_pid()));
}

}  // namespace
}  // namespace corvane::harness

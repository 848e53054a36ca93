// The world itself: what a test relies on before it believes anything about the daemon.
#include "tests/harness/world.hpp"

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>

namespace corvane::harness {
namespace {

class WorldTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        try {
            world_ = std::make_unique<World>();
        } catch (const NoWorld& error) {
            GTEST_SKIP() << "no private world on this machine: " << error.what();
        }
    }
    World& world() { return *world_; }

private:
    std::unique_ptr<World> world_;
};

TEST_F(WorldTest, ProgramsOutcomeIsCollected)
{
    const Outcome outcome = world().run({{"sh", "-c", "echo out; echo err >&2; exit 3"}, {}});

    EXPECT_EQ(outcome.status, 3);
    EXPECT_EQ(outcome.output, "out\n");
    EXPECT_EQ(outcome.errors, "err\n");
}

TEST_F(WorldTest, SignalEndsAsStatusAbove128)
{
    EXPECT_EQ(world().run({{"sh", "-c", "kill -KILL $$"}, {}}).status, 128 + SIGKILL);
}

TEST_F(WorldTest, ScratchFoldersAreItsOwn)
{
    const std::string name = "/tmp/corvane_world_test_" + std::to_string(::getpid());

    const Outcome outcome = world().run(
        {{"sh", "-c", "echo x > " + name + "; echo y > /usr/Corvane/only_here; ls /usr/Corvane"},
         {}});

    EXPECT_EQ(outcome.output, "lib\nonly_here\n");
    EXPECT_EQ(world().read_file(name), "x\n");
    EXPECT_FALSE(std::filesystem::exists(name));
    EXPECT_FALSE(std::filesystem::exists("/usr/Corvane/only_here"));
}

TEST_F(WorldTest, EtcEntriesCanBeReplaced)
{
    world().write_file("/etc/passwd", "alice:x:7:7::/home/alice:/bin/sh\n");
    world().write_file("/etc/samba/smb.conf", "[data]\n");

    const Outcome outcome = world().run({{"cat", "/etc/passwd", "/etc/samba/smb.conf"}, {}});

    EXPECT_EQ(outcome.output, "alice:x:7:7::/home/alice:/bin/sh\n[data]\n");
}

TEST_F(WorldTest, OrphansAreKnownAndReaped)
{
    const Outcome outcome = world().run({{"sh", "-c", "sleep 100 & echo $!"}, {}});
    const pid_t orphan = std::stoi(outcome.output);

    EXPECT_TRUE(world().is_running(orphan));
    world().kill(orphan, SIGTERM);

    EXPECT_EQ(world().wait(orphan), 128 + SIGTERM);
    EXPECT_TRUE(world().processes().empty());
}

TEST_F(WorldTest, EnvironmentIsSetAndTakenOut)
{
    ::setenv("CORVANE_WORLD_TEST", "outer", 1);
    const Outcome taken =
        world().run({{"sh", "-c", "echo ${CORVANE_WORLD_TEST-none}"}, {"CORVANE_WORLD_TEST"}});
    const Outcome set =
        world().run({{"sh", "-c", "echo $CORVANE_WORLD_TEST"}, {"CORVANE_WORLD_TEST=a b"}});
    ::unsetenv("CORVANE_WORLD_TEST");

    EXPECT_EQ(taken.output, "none\n");
    EXPECT_EQ(set.output, "a b\n");
}

TEST_F(WorldTest, SegmentOfTheMachineIsNotSeen)
{
    EXPECT_FALSE(world().has_segment());
    EXPECT_THROW((void)world().peek(0, 4), WorldError);
}

TEST_F(WorldTest, MissingProgramIsReported)
{
    const Outcome outcome = world().run({{"/no/such/program"}, {}});

    EXPECT_EQ(outcome.status, 127);
    EXPECT_NE(outcome.errors.find("cannot run /no/such/program"), std::string::npos);
}

TEST_F(WorldTest, TwoWorldsDoNotMeet)
{
    World other;
    world().write_file("/tmp/name", "one");
    other.write_file("/tmp/name", "two");

    EXPECT_EQ(world().run({{"cat", "/tmp/name"}, {}}).output, "one");
    EXPECT_EQ(other.run({{"cat", "/tmp/name"}, {}}).output, "two");
}

TEST_F(WorldTest, NetworksAreJoinedByACable)
{
    try {
        world().join_networks();
    } catch (const WorldError& error) {
        GTEST_SKIP() << "no veth pair on this machine: " << error.what();
    }

    const Outcome outcome = world().run({{"ip", "-br", "address"}, {}, Network::kClient});

    EXPECT_NE(outcome.output.find(kClientAddress), std::string::npos) << outcome.output;
    EXPECT_EQ(outcome.output.find(kMainAddress), std::string::npos) << outcome.output;
}

}  // namespace
}  // namespace corvane::harness

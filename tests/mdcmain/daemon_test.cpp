// The daemon's frame: global lock, log handlers and their bands.
#include "mdcmain/daemon.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "mdcmain/log.hpp"
#include "mdcmain/segment.h"
#include "mdcmain/startup.hpp"
#include "tests/mdcmain/private_machine.hpp"

namespace {

using corvane::test::in_private_machine;
using corvane::test::read_file;
using ::testing::EndsWith;

constexpr char kLog[] = "/usr/Corvane/mclog0";

TEST(DaemonLock, IsACountingSemaphoreOfOne)
{
    EXPECT_EQ(corvaned_lockInit(), 0);
    int value = -1;
    ASSERT_EQ(sem_getvalue(&g_corvanedsem, &value), 0);
    EXPECT_EQ(value, 1);
    corvaned_lock();
    ASSERT_EQ(sem_getvalue(&g_corvanedsem, &value), 0);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(corvaned_unlock(), 0);
    EXPECT_EQ(corvaned_unlock(), 0);
    ASSERT_EQ(sem_getvalue(&g_corvanedsem, &value), 0);
    EXPECT_EQ(value, 2);
}

TEST(DaemonLock, AnInterruptedWaitIsTakenUpAgain)
{
    ASSERT_EQ(corvaned_lockInit(), 0);
    corvaned_lock();
    struct sigaction action {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    std::atomic<bool> unlocked = false;
    std::thread waiter([&] {
        corvaned_lock();
        EXPECT_TRUE(unlocked);
    });
    for (int i = 0; i < 100; ++i) pthread_kill(waiter.native_handle(), SIGUSR1);
    unlocked = true;
    EXPECT_EQ(corvaned_unlock(), 0);
    waiter.join();
}

TEST(LogHandlers, WriteInBandsThatShareNoLevel)
{
    struct Row {
        void (*handler)(const char*);
        const char* name;
        std::vector<int> levels;
    };
    const std::vector<int> all{INT32_MIN, -1, 0, 1, 2, 3, 4, INT32_MAX};
    for (const auto& row : {Row{myDebug, "myDebug", {3, 4, INT32_MAX}},
                            Row{myDebug2, "myDebug2", {1}}, Row{myError, "myError", {0}}}) {
        in_private_machine([&] {
            fused_mapShared();
            std::vector<int> written;
            for (const int level : all) {
                fs->logLevel = level;
                std::filesystem::remove(kLog);
                row.handler("100% text\n");
                if (read_file(kLog).ends_with(" corvaned: 100% text\n")) written.push_back(level);
            }
            EXPECT_EQ(written, row.levels) << row.name;
        });
    }
}

TEST(LogHandlers, MapTheSegmentOnFirstUse)
{
    in_private_machine([] {
        myError("early\n");
        ASSERT_NE(fs, nullptr);
        EXPECT_THAT(read_file(kLog), EndsWith(" corvaned: early\n"));
    });
}

std::string what_channels_write(int level)
{
    fs->logLevel = level;
    std::filesystem::remove(kLog);
    corvane_dbg("d\n");
    corvane_trace("t\n");
    corvane_error("e\n");
    print("p\n");
    warning("w\n");
    std::string text;
    const std::string log = read_file(kLog);
    for (std::size_t at = 0; (at = log.find("corvaned: ", at)) != std::string::npos; at += 10) {
        text += log[at + 10];
    }
    return text;
}

TEST(LogHandlers, FollowTheLevelAtRunTimeOnceInstalled)
{
    in_private_machine([] {
        fused_mapShared();
        corvane::install_log_handlers();
        EXPECT_EQ(what_channels_write(0), "w");
        EXPECT_EQ(what_channels_write(1), "p");
        EXPECT_EQ(what_channels_write(2), "");
        EXPECT_EQ(what_channels_write(3), "dte");
        EXPECT_EQ(what_channels_write(100), "dte");
        EXPECT_EQ(what_channels_write(-1), "");
        EXPECT_EQ(what_channels_write(0), "w");
        fs->logLevel = 2;
        EXPECT_FALSE(corvane::trace_wanted());
        fs->logLevel = 3;
        EXPECT_TRUE(corvane::trace_wanted());
    });
}

}  // namespace

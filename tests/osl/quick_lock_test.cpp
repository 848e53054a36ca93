// Quick locks: a counting semaphore in the caller's record.
#include "osl/quick_lock.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>

#include "osl/lock_guard.hpp"

namespace {

class QuickLockTest : public ::testing::Test {
protected:
    QuickLockTest()
    {
        std::memset(lock_.reserved, 0x77, sizeof lock_.reserved);
        EXPECT_EQ(OSL_QuickLockCreate(&lock_, "a name", 0xabcd), 0);
    }
    ~QuickLockTest() override { EXPECT_EQ(OSL_QuickLockDispose(&lock_), 0); }

    int value()
    {
        int value = -1;
        EXPECT_EQ(sem_getvalue(&lock_.semaphore, &value), 0);
        return value;
    }

    QuickLock lock_;
};

TEST_F(QuickLockTest, StartsFreeAndLeavesTheCallersBytesAlone)
{
    EXPECT_EQ(value(), 1);

    EXPECT_EQ(OSL_QuickLockGrab(&lock_, 1), 0);
    EXPECT_EQ(value(), 0);
    EXPECT_EQ(OSL_QuickLockRelease(&lock_), 0);

    EXPECT_EQ(value(), 1);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(lock_.reserved), 48), std::string(48, 'w'));
}

TEST_F(QuickLockTest, CountsAndHasNoOwner)
{
    EXPECT_EQ(OSL_QuickLockRelease(&lock_), 0);
    EXPECT_EQ(value(), 2);
    EXPECT_EQ(OSL_QuickLockGrab(&lock_, 0), 0);
    EXPECT_EQ(OSL_QuickLockGrab(&lock_, 0), 0);
    EXPECT_EQ(value(), 0);

    std::thread([this] { EXPECT_EQ(OSL_QuickLockRelease(&lock_), 0); }).join();

    EXPECT_EQ(value(), 1);
}

TEST_F(QuickLockTest, WaitsEvenWhenTheWaitFlagIsZero)
{
    ASSERT_EQ(OSL_QuickLockGrab(&lock_, 1), 0);
    std::atomic<bool> released = false;
    std::thread waiter([&] {
        EXPECT_EQ(OSL_QuickLockGrab(&lock_, /*wait=*/0), 0);
        EXPECT_TRUE(released);
    });

    released = true;
    OSL_QuickLockRelease(&lock_);

    waiter.join();
    EXPECT_EQ(value(), 0);
    OSL_QuickLockRelease(&lock_);
}

TEST_F(QuickLockTest, AnInterruptedGrabReturnsTheLowByteOfMinusOne)
{
    ASSERT_EQ(OSL_QuickLockGrab(&lock_, 1), 0);
    struct sigaction action {};
    action.sa_handler = [](int) {};  // without SA_RESTART
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    std::atomic<bool> done = false;
    std::thread waiter([&] {
        EXPECT_EQ(OSL_QuickLockGrab(&lock_, 1), 0xFF);
        EXPECT_EQ(errno, EINTR);
        done = true;
    });

    while (!done) {
        pthread_kill(waiter.native_handle(), SIGUSR1);
        std::this_thread::yield();
    }

    waiter.join();
    OSL_QuickLockRelease(&lock_);
}

TEST_F(QuickLockTest, TheGuardSurvivesInterruptions)
{
    ASSERT_EQ(OSL_QuickLockGrab(&lock_, 1), 0);
    struct sigaction action {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    std::atomic<bool> released = false;
    std::thread waiter([&] {
        const corvane::LockGuard guard(lock_);
        EXPECT_TRUE(released);
    });

    for (int i = 0; i < 100; ++i) pthread_kill(waiter.native_handle(), SIGUSR1);
    released = true;
    OSL_QuickLockRelease(&lock_);

    waiter.join();
    EXPECT_EQ(value(), 1);
}

TEST_F(QuickLockTest, TheGuardKeepsThreadsApart)
{
    int count = 0;
    const auto add = [&] {
        for (int i = 0; i < 20000; ++i) {
            const corvane::LockGuard guard(lock_);
            ++count;
        }
    };
    std::thread other(add);
    add();
    other.join();

    EXPECT_EQ(count, 40000);
}

}  // namespace

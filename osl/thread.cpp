// Threads, sleep and the clock over POSIX.
#include "osl/thread.h"

#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

int OSL_CreateThread(void* (*start)(void*), void* argument) noexcept
{
    pthread_t thread;
    return pthread_create(&thread, nullptr, start, argument);
}

void OSL_Sleep(uint32_t milliseconds) noexcept
{
    if (milliseconds >= 1000) sleep(milliseconds / 1000);
    // The product wraps at 2^32 before the remainder is taken; that is meant.
    const uint32_t rest_us = (milliseconds * 1000U) % 1000000U;
    (void)usleep(rest_us);  // an interrupted sleep is a short one
}

uint32_t OSL_GetClock(void) noexcept
{
    timeval now{};
    const int failed = gettimeofday(&now, nullptr);
    if (failed != 0) return static_cast<uint32_t>(failed);
    return static_cast<uint32_t>(now.tv_sec) * 1000U;  // whole seconds: the clock steps by 1000
}

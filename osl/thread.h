/* Threads, sleep and the millisecond clock. Any thread. */
#ifndef CORVANE_OSL_THREAD_H
#define CORVANE_OSL_THREAD_H

#include <stdint.h>

#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Starts a thread with default attributes that runs `start(argument)`; it is neither detached nor
 * ever joined. Returns what pthread_create returns: 0, or an error number. */
CORVANE_API int OSL_CreateThread(void* (*start)(void*), void* argument) CORVANE_NOEXCEPT;

/* Sleeps: whole seconds first when `milliseconds` is 1000 or more, then
 * (milliseconds x 1000, modulo 2^32) modulo 1000000 microseconds. */
CORVANE_API void OSL_Sleep(uint32_t milliseconds) CORVANE_NOEXCEPT;

/* The clock in milliseconds, modulo 2^32. It advances in steps of 1000: whole seconds of the
 * time of day. Returns (uint32_t)-1 when there is no time of day. */
CORVANE_API uint32_t OSL_GetClock(void) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

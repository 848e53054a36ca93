/* Quick locks: a counting semaphore of value 1 inside a record that the caller owns. Not recursive,
 * without an owner: any thread may release it. */
#ifndef CORVANE_OSL_QUICK_LOCK_H
#define CORVANE_OSL_QUICK_LOCK_H

#include <semaphore.h>
#include <stdint.h>

#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Lets clang prove which lock guards what (osl/lock_guard.hpp). */
#if defined(__clang__) && defined(__cplusplus)
#define CORVANE_CAPABILITY(name) __attribute__((capability(name)))
#else
#define CORVANE_CAPABILITY(name)
#endif

typedef struct CORVANE_CAPABILITY("quick lock") QuickLock {
    uint8_t reserved[48]; /*  0: the caller's; never touched here */
    sem_t semaphore;      /* 48: not shared between processes */
} QuickLock;

/* Makes the lock free. `name` and `tag` are ignored (`name` may be null). Returns what sem_init
 * returns: 0, or -1 with errno. */
CORVANE_API int OSL_QuickLockCreate(QuickLock* lock, const char* name,
                                    uint32_t tag) CORVANE_NOEXCEPT;

/* Ends the lock; nobody may hold or want it. Returns what sem_destroy returns. */
CORVANE_API int OSL_QuickLockDispose(QuickLock* lock) CORVANE_NOEXCEPT;

/* Takes the lock, waiting as long as it must; `wait` (8 bits) is ignored. Returns the low 8 bits of
 * sem_wait's result: 0 when taken; anything else, with errno, when a signal interrupted the wait.
 */
CORVANE_API uint8_t OSL_QuickLockGrab(QuickLock* lock, uint8_t wait) CORVANE_NOEXCEPT;

/* Gives the lock back. Returns what sem_post returns. */
CORVANE_API int OSL_QuickLockRelease(QuickLock* lock) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

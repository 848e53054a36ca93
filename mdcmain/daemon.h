/* The daemon's frame: its global lock, and the three handlers that lead debug output into the log.
 */
#ifndef CORVANE_MDCMAIN_DAEMON_H
#define CORVANE_MDCMAIN_DAEMON_H

#include <semaphore.h>
#include <stdint.h>

#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The daemon's global lock: a counting semaphore of value 1, for code that needs one. */
CORVANE_API extern sem_t g_corvanedsem;

/* Creates g_corvanedsem. Returns what sem_init returns. */
CORVANE_API int32_t corvaned_lockInit(void) CORVANE_NOEXCEPT;

/* Takes g_corvanedsem; an interrupted wait is taken up again, any other failure returns at once. */
CORVANE_API void corvaned_lock(void) CORVANE_NOEXCEPT;

/* Gives g_corvanedsem back. Returns what sem_post returns. */
CORVANE_API int32_t corvaned_unlock(void) CORVANE_NOEXCEPT;

/* Write "corvaned: " and `text` to the log: myDebug while logLevel is above 2, myDebug2 while it is
 * exactly 1, myError while it is exactly 0. Handlers for the three slots of log.h. Any thread. */
CORVANE_API void myDebug(const char* text) CORVANE_NOEXCEPT;
CORVANE_API void myDebug2(const char* text) CORVANE_NOEXCEPT;
CORVANE_API void myError(const char* text) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

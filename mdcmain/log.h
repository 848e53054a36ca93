/* The log: one function writes every message to rotating files, standard output or the ring in the
 * shared segment; debug functions reach it through three replaceable handler slots.
 * Lock-free by design: messages written at the same moment may interleave or be dropped. */
#ifndef CORVANE_MDCMAIN_LOG_H
#define CORVANE_MDCMAIN_LOG_H

#include <stdint.h>

#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Takes one zero-terminated text; the text is the caller's. */
typedef void (*DbgStringHandler)(const char* text);

/* Writes one message (printf format; the caller ends it with "\n") where the segment's logMode and
 * logLevel say. Any thread. */
CORVANE_API void sanos_log(const char* format, ...) CORVANE_NOEXCEPT
    __attribute__((format(printf, 1, 2)));

/* Do nothing and return nothing: the log has no lock, so that its writers never wait for one
 * another. They mark where one would stand. */
CORVANE_API void localSemLock(void) CORVANE_NOEXCEPT;
CORVANE_API void localSemUnlock(void) CORVANE_NOEXCEPT;

/* Appends `text` to the ring of the shared segment, dropping its older half first when it is full.
 */
CORVANE_API void logToSharedMem(const char* text) CORVANE_NOEXCEPT;

/* Writes the name of the log file in use into `buffer` (268 bytes of room). */
CORVANE_API void utils_getLogFilename(char* buffer) CORVANE_NOEXCEPT;

/* Returns the rotation count that "/tmp/mclogdata.bak" holds; 0 when it cannot be read. */
CORVANE_API int32_t utils_getLogCount(void) CORVANE_NOEXCEPT;

/* Saves `count` modulo the number of logs in "/tmp/mclogdata.bak", unless the remainder is 0. */
CORVANE_API void utils_saveLogCount(int32_t count) CORVANE_NOEXCEPT;

/* Writes the first line of a new log file into `buffer` (256 bytes of room). */
CORVANE_API void makeLogHeader(char* buffer) CORVANE_NOEXCEPT;

/* Writes the line that names this system into `buffer` (512 bytes of room); empty on failure. */
CORVANE_API void getSystemInfo(char* buffer) CORVANE_NOEXCEPT;

/* Store the handler of a slot; null empties it. At start-up, before other threads run. */
CORVANE_API void dbgSetOutputStringHandler(DbgStringHandler handler) CORVANE_NOEXCEPT;
CORVANE_API void dbgSetOutputStringHandler2(DbgStringHandler handler) CORVANE_NOEXCEPT;
CORVANE_API void dbgSetOutputStringHandlerErr(DbgStringHandler handler) CORVANE_NOEXCEPT;

/* Hand `text` to the handler of the slot, if there is one. Any thread. */
CORVANE_API void outputString(const char* text) CORVANE_NOEXCEPT;
CORVANE_API void outputString2(const char* text) CORVANE_NOEXCEPT;
CORVANE_API void outputStringErr(const char* text) CORVANE_NOEXCEPT;

/* Format a line (cut at 1023 bytes) for the first slot. Any thread. */
CORVANE_API void corvane_dbg(const char* format, ...) CORVANE_NOEXCEPT
    __attribute__((format(printf, 1, 2)));
CORVANE_API void corvane_trace(const char* format, ...) CORVANE_NOEXCEPT
    __attribute__((format(printf, 1, 2)));
CORVANE_API void corvane_error(const char* format, ...) CORVANE_NOEXCEPT
    __attribute__((format(printf, 1, 2)));

/* Formats a line (cut at 1023 bytes) for the second slot. Any thread. */
CORVANE_API void print(const char* format, ...) CORVANE_NOEXCEPT
    __attribute__((format(printf, 1, 2)));

/* Formats a line (cut at 1023 bytes) for the error slot. Any thread. */
CORVANE_API void warning(const char* format, ...) CORVANE_NOEXCEPT
    __attribute__((format(printf, 1, 2)));

/* Does nothing, whatever the data; null is allowed. */
CORVANE_API void dumpData(const void* data, uint32_t length) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

/* Files that the daemon on this host opens for local processes: its descriptor service. The
 * service's socket is at CORVANEFIFO, or at "/tmp/corvane_fd.fifo". Each call is one connection;
 * any thread. On failure errno says why: what connecting gave (ENOENT, ECONNREFUSED, EACCES: no
 * daemon, or no right to ask it), EINVAL and ENAMETOOLONG for a path that cannot be asked for,
 * ETIMEDOUT when the daemon did not answer within 30 seconds, EREMOTEIO when it did not open the
 * file (its log says why: FTX1536I). */
#ifndef CORVANE_CLIENT_DESCRIPTOR_H
#define CORVANE_CLIENT_DESCRIPTOR_H

#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The longest request text, prefix included, in bytes. */
#define CORVANE_DESCRIPTOR_REQUEST_MAX 4095

/* Returns a descriptor of the existing file at the absolute `path`, open for reading and writing
 * and closed on exec, which the caller closes; or -1. */
CORVANE_API int corvane_open_descriptor(const char* path) CORVANE_NOEXCEPT;

/* Returns a descriptor of the log file at `path`, created when needed, open for reading and
 * appending and closed on exec, which the caller closes; or -1. A relative path is relative to the
 * daemon. */
CORVANE_API int corvane_open_log(const char* path) CORVANE_NOEXCEPT;

/* Has the daemon delete the log file at `path` and waits until it has tried. Returns 0, or -1 when
 * it could not be asked; whether there was such a file is not told. */
CORVANE_API int corvane_remove_log(const char* path) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

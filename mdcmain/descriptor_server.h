/* The descriptor-passing server: opens files for local processes and hands the descriptors over a
 * UNIX-domain stream socket. One thread, one connection at a time, one request a connection. */
#ifndef CORVANE_MDCMAIN_DESCRIPTOR_SERVER_H
#define CORVANE_MDCMAIN_DESCRIPTOR_SERVER_H

#include <stdint.h>

#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

#define CORVANE_SOCKET_NAME_BYTES 256

CORVANE_API extern char socket_file[CORVANE_SOCKET_NAME_BYTES]; /* the path, padded with zeros */
CORVANE_API extern char san_errmsg[128];                        /* the last fatal socket error */
CORVANE_API extern int32_t g_logging; /* not 0: every step is logged while logLevel is above 2 */

/* Fills socket_file from CORVANEFIFO, or with "/tmp/corvane_fd.fifo". Returns socket_file. */
CORVANE_API char* loadSocketName(void) CORVANE_NOEXCEPT;

/* Makes the socket (`backlog` as listen takes it) and serves it; never returns. A socket that
 * cannot be made, a path of more than 108 bytes included, is logged and ends the process with
 * abort. */
CORVANE_API void fifoGetHandleServer(int32_t backlog) CORVANE_NOEXCEPT;

/* Serves the one request of `connection` and closes it. Returns 0. */
CORVANE_API int32_t fd_thread_server(int32_t connection) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

/* The daemon's frame: its global lock, the three log handlers, and the datagram server. */
#ifndef CORVANE_MDCMAIN_DAEMON_H
#define CORVANE_MDCMAIN_DAEMON_H

#include <semaphore.h>
#include <stdint.h>

#include "lan/dgram.h"
#include "lan/server.h"
#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* This process's one LAN server; null before DgramServer. */
CORVANE_API extern LanServer* info;

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

/* Builds the LAN server, prepares the metadata service, and starts the listener threads on `port`
 * (host order). Returns 0. When the port cannot be had it logs message 595 and ends the process
 * with status 1. */
CORVANE_API int32_t DgramServer(uint16_t port) CORVANE_NOEXCEPT;

/* The listeners' DgramHandler: answers one datagram. `server` is a LanServer. Returns 0. Any
 * thread. */
CORVANE_API int32_t DgramServer_MessageHandler(void* message, int32_t length_bytes,
                                               DgramReplyAddr* sender,
                                               void* server) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

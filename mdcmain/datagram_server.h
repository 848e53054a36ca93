/* The datagram server: the LAN server of this process, its handlers, its listeners. */
#ifndef CORVANE_MDCMAIN_DATAGRAM_SERVER_H
#define CORVANE_MDCMAIN_DATAGRAM_SERVER_H

#include <stdint.h>

#include "lan/dgram.h"
#include "lan/server.h"
#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* This process's one LAN server; null before DgramServer. */
CORVANE_API extern LanServer* info;

/* Builds the LAN server, prepares the metadata service, and starts the listener threads on `port`
 * (host order). Returns 0. When the port cannot be had it logs message 595 and ends the process
 * with status 1. */
CORVANE_API int32_t DgramServer(uint16_t port) CORVANE_NOEXCEPT;

/* The listeners' DgramHandler: answers one datagram. `message` has 48 bytes of room at the least;
 * `server` is a LanServer. Returns 0. Any thread. */
CORVANE_API int32_t DgramServer_MessageHandler(void* message, int32_t length_bytes,
                                               DgramReplyAddr* sender,
                                               void* server) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

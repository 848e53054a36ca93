/* The client's side of an exchange: send a request, wait for the reply that carries its identifier,
 * try again. No state between calls: any thread, any number of them. */
#ifndef CORVANE_LAN_CLIENT_H
#define CORVANE_LAN_CLIENT_H

#include <stdint.h>

#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

#define LAN_E_MESSAGE_ID 16u /* the reply is another request's, or shorter than a header */

/* Traces and prepares the transport. Returns 0. */
CORVANE_API uint32_t LAN_InitClient(void) CORVANE_NOEXCEPT;

/* LAN_SendAndReceiveWithTimeout with 10 seconds and 5 attempts. */
CORVANE_API uint32_t LAN_SendAndReceive(const char* host, int32_t port, const void* request,
                                        void* reply, uint32_t* reply_length_bytes) CORVANE_NOEXCEPT;

/* Sends `request` (its header filled in: `length` bytes are sent) and waits for its reply, at least
 * once and at most `attempts` times, `timeout_s` seconds each. `port`: its low 16 bits count.
 * `reply_length_bytes`: in the room of `reply`, out the bytes received. Returns 0, 16, or the last
 * attempt's code of DGRAM_SendAndReceive. */
CORVANE_API uint32_t LAN_SendAndReceiveWithTimeout(const char* host, int32_t port,
                                                   const void* request, void* reply,
                                                   uint32_t* reply_length_bytes, int32_t timeout_s,
                                                   int32_t attempts) CORVANE_NOEXCEPT;

/* Returns 16 when the identifiers differ or the reply is shorter than a header, else 0. */
CORVANE_API uint32_t LAN_ValidateMessageForDgram(const void* request, const void* reply,
                                                 uint32_t reply_length_bytes) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

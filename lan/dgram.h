/* UDP under the LAN messages: listener threads on one socket, replies from it, and one exchange of
 * a client. Any thread may call any function. */
#ifndef CORVANE_LAN_DGRAM_H
#define CORVANE_LAN_DGRAM_H

#include <netinet/in.h>
#include <stdint.h>

#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Result codes of the transport (0 is success; 6 and 408 belong to fsmdc/fs_result.h). */
#define DGRAM_E_NO_SOCKET 1100u   /* the socket could not be created */
#define DGRAM_E_NO_HOST 1101u     /* the host name could not be resolved */
#define DGRAM_E_SEND 1102u        /* the request could not be sent */
#define DGRAM_E_RECEIVE 1103u     /* waiting for or receiving the answer failed */
#define DGRAM_E_BIND 1104u        /* the port could not be bound */
#define DGRAM_E_SHORT_REPLY 1105u /* an answer was sent incompletely */
#define DGRAM_E_TIMEOUT 1106u     /* no answer within the time limit */

/* Where a datagram came from and where its answer goes. Its first 16 bytes are the communication
 * cookie that tells senders apart, so the layout is fixed. */
typedef struct DgramReplyAddr {
    int32_t socket;            /*  0: the listening socket */
    struct sockaddr_in sender; /*  4: 16 bytes: family, port, IPv4 address, 8 zero bytes */
} DgramReplyAddr;

/* Called for each datagram, on the listener's thread: its bytes, their number, its sender, and the
 * argument given with the handler. The bytes are the listener's and lie in a buffer of 65,536;
 * behind the datagram it reads as zeros. The result is ignored. */
typedef int32_t (*DgramHandler)(void* message, int32_t length_bytes, DgramReplyAddr* sender,
                                void* argument);

/* One bound port, shared by its listener threads, never freed. */
typedef struct DgramListener {
    uint16_t port;        /* host order */
    int32_t socket;       /* bound datagram socket */
    DgramHandler handler; /* null: datagrams are read and dropped */
    void* argument;       /* handed to every call of the handler */
} DgramListener;

/* Failed receives of all listeners of this process (approximate: counted without a lock). */
CORVANE_API extern int32_t recvErrs;
/* Kept for other programs; nothing advances them. */
CORVANE_API extern int32_t gDgramWrongAddrRecv;
CORVANE_API extern int32_t gDgramWrongAddrRecvFailures;

/* Does nothing. Returns 0. */
CORVANE_API uint32_t DGRAM_Init(void) CORVANE_NOEXCEPT;

/* Binds `port` (host order) on every address and starts `thread_count` listeners (0 or less: none).
 * Returns 0, 1100 or 1104. */
CORVANE_API uint32_t DGRAM_BindListener(uint16_t port, DgramHandler handler, void* argument,
                                        int32_t thread_count) CORVANE_NOEXCEPT;

/* Creates a datagram socket bound to `port` and stores it. Returns 0, 1100 or 1104 (nothing left
 * open). */
CORVANE_API uint32_t makeListenerSocket(uint16_t port, int32_t* socket) CORVANE_NOEXCEPT;

/* The body of a listener thread: receives and calls the handler for ever. Returns 408 (as a pointer
 * value) when there is no memory for its buffer. `listener` is a DgramListener. */
CORVANE_API void* PrimaryListener(void* listener) CORVANE_NOEXCEPT;

/* Sends `length_bytes` bytes to the sender of a datagram. Returns 0 or 1105. */
CORVANE_API uint32_t DGRAM_SendReply(const DgramReplyAddr* sender, const void* reply,
                                     uint32_t length_bytes) CORVANE_NOEXCEPT;

/* Sends a request from a socket of its own and waits for one answer, `timeout_s` seconds at the
 * most. `reply_length_bytes`: in the room of `reply`, out the bytes received. Without a reply
 * buffer, a length or room (0, or negative as a signed word) it only sends. An answer that fills
 * the room is too long (6). Returns 0, 6, 1100, 1101, 1102, 1103 or 1106. */
CORVANE_API uint32_t DGRAM_SendAndReceive(const char* host, uint16_t port, const void* request,
                                          uint32_t request_length_bytes, void* reply,
                                          uint32_t* reply_length_bytes,
                                          int32_t timeout_s) CORVANE_NOEXCEPT;

/* Stores the first IPv4 address of `host` into `address`, with up to ten attempts, half a second
 * apart, while the resolver says to try again. Returns 0, or -1. */
CORVANE_API int32_t DGRAM_GetHostByName(const char* host,
                                        struct sockaddr_in* address) CORVANE_NOEXCEPT;

/* Does nothing: a look-up owns its memory. */
CORVANE_API void DGRAM_FreeHostent(void) CORVANE_NOEXCEPT;

/* Returns the local port of `socket` in host order, or -1. */
CORVANE_API int32_t DGRAM_GetEphemeralPort(int32_t socket) CORVANE_NOEXCEPT;

/* Writes the sender's address as "1.2.3.4" into `text` (16 bytes of room). Returns `text`. */
CORVANE_API char* DGRAM_GetIPAddress(const DgramReplyAddr* sender, char* text) CORVANE_NOEXCEPT;

/* Returns 0 when both senders have the same IPv4 address, whatever their ports, else 1. */
CORVANE_API int32_t DGRAM_CompareAddresses(const DgramReplyAddr* a,
                                           const DgramReplyAddr* b) CORVANE_NOEXCEPT;

/* Closes a socket. Returns what close returns. */
CORVANE_API int32_t CloseSocket(int32_t socket) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

/* The server's side: header checks, duplicate tracking, dispatch by function code. */
#ifndef CORVANE_LAN_SERVER_H
#define CORVANE_LAN_SERVER_H

#include <stdint.h>

#include "lan/dgram.h"
#include "lan/header.h"
#include "osl/export.h"
#include "osl/quick_lock.h"

#ifdef __cplusplus
extern "C" {
#endif

#define LAN_FUNCTION_CODES 100

/* Answers one request (header in host order, body as received) with a message that the caller frees
 * with OSL_Free, or null for no answer. Called on several threads at once, without a lock. The
 * request is the message that was given to LAN_ProcessMessage, or a copy of it with the server's
 * request_room. */
typedef void* (*LanHandler)(void* request, const DgramReplyAddr* sender);

/* The request_room of handlers that read and write a body of any kind without a look at its length.
 */
#define LAN_REQUEST_ROOM 2304u

/* One tracked request; in process while `reply` is null. */
typedef struct LanTracker {
    struct LanTracker* next;
    struct LanTracker* prev;
    uint8_t comm_cookie[16]; /* the sender: first 16 bytes of its DgramReplyAddr */
    void* header;            /* copy of the request's header, host order */
    void* reply;             /* copy of the whole reply */
} LanTracker;

typedef int32_t (*LanCompareAddresses)(const DgramReplyAddr* a, const DgramReplyAddr* b);

/* One server. */
typedef struct LanServer {
    LanTracker head;    /* circular, oldest first from head.next */
    QuickLock lock;     /* guards the list, its index and `completed` */
    uint32_t completed; /* entries that hold a reply */
    LanHandler handlers[LAN_FUNCTION_CODES];
    LanCompareAddresses compare_addresses; /* kept for other programs; not called here */
    void* index; /* finds entries without a walk; the server's own, may be null */
    /* Shorter messages are handed over in a copy of LAN_REQUEST_ROOM bytes, zeros behind their end;
     * at most LAN_REQUEST_ROOM. 0, as a new server has it: handlers get every message itself. */
    uint32_t request_room;
} LanServer;

CORVANE_API extern int32_t TrackMessages;    /* not 0: track (TRACK_MESSAGES) */
CORVANE_API extern int32_t MaxTrack;         /* complete entries kept (MAX_TRACKED_MESSAGES) */
CORVANE_API extern int32_t numDupsRepliedTo; /* duplicates answered from a stored reply */
CORVANE_API extern int32_t numDupsDropped;   /* duplicates dropped while the first one ran */

/* Reads the two settings from the environment and stores a new server, which lives as long as the
 * process. Returns 0; 5 and a null server when memory is short. */
CORVANE_API uint32_t LAN_InitServer(LanServer** server) CORVANE_NOEXCEPT;

/* Sets the handler of a function code, replacing an earlier one. Returns 0, or 1 for a code outside
 * 0 to 99. Before requests arrive. */
CORVANE_API uint32_t LAN_RegisterMessageHandler(LanServer* server, int32_t function_code,
                                                LanHandler handler) CORVANE_NOEXCEPT;

/* Turns a received message (its header modified in place) into its reply: a message that the caller
 * frees with OSL_Free, or null when nothing is to be sent. The buffer holds a whole header, 48
 * bytes, however few were received: the length field counts wherever it came from. Any thread. */
CORVANE_API void* LAN_ProcessMessage(void* message, uint32_t length_bytes, LanServer* server,
                                     const DgramReplyAddr* sender) CORVANE_NOEXCEPT;

/* Traces the two duplicate counters. */
CORVANE_API void LAN_DumpInfo(void) CORVANE_NOEXCEPT;

/* Traces the header of every listed request. */
CORVANE_API void DumpTrackerList(uint32_t ignored, const LanServer* server) CORVANE_NOEXCEPT;

/* Returns the decimal value (atoi) of an environment variable, or `default_value` when it is unset.
 */
CORVANE_API int32_t getEnvInt(const char* name, int32_t default_value) CORVANE_NOEXCEPT;

/* Turns the header into host order, in place. Returns null, or the reply (result 6) to a message
 * whose length field is below 48. */
CORVANE_API void* ValidateHeader(void* message) CORVANE_NOEXCEPT;

/* Returns a new 48-byte reply with `result`, its marker as the request's; null when memory is
 * short. */
CORVANE_API void* BuildReply(const void* request, int32_t result) CORVANE_NOEXCEPT;

/* Looks for a tracked copy of `message` from the sender `comm_cookie` (16 bytes). Stores 1 or 0
 * into `is_duplicate`. Returns a copy of the stored reply, or null. The caller holds the lock. */
CORVANE_API void* LAN_HandleDuplicate(LanServer* server, const void* comm_cookie,
                                      const void* message, int32_t* is_duplicate) CORVANE_NOEXCEPT;

/* Lists `message` as in process, if it asks for tracking. The caller holds the lock. */
CORVANE_API void LAN_RegisterInProcess(LanServer* server, const void* comm_cookie,
                                       const void* message) CORVANE_NOEXCEPT;

/* Stores a copy of `reply` with the oldest entry of `message` and sender. Takes the lock. */
CORVANE_API void LAN_RegisterComplete(LanServer* server, const void* comm_cookie,
                                      const void* message, const void* reply) CORVANE_NOEXCEPT;

/* Drops the oldest complete entries once there are more than MaxTrack. Takes the lock. */
CORVANE_API void PurgeTrackerList(LanServer* server) CORVANE_NOEXCEPT;

/* Returns 1 when an entry has this message's identifier and this sender, else 0. The caller holds
 * the lock. */
CORVANE_API int32_t HeaderInList(const LanServer* server, const void* comm_cookie,
                                 const void* message) CORVANE_NOEXCEPT;

/* Return new copies (free with OSL_Free): 48 bytes of a header, `length` bytes of a message. Null
 * for null, and when memory is short. */
CORVANE_API void* LAN_MakeHeaderCopy(const void* header) CORVANE_NOEXCEPT;
CORVANE_API void* LAN_MakeMessageCopy(const void* message) CORVANE_NOEXCEPT;

/* Return 0 when the 16 bytes are equal, else 1: the identifiers of two headers, two sender cookies,
 * two message cookies. */
CORVANE_API int32_t CompareHeaderId(const void* a, const void* b) CORVANE_NOEXCEPT;
CORVANE_API int32_t LAN_CompareCommCookies(const void* a, const void* b) CORVANE_NOEXCEPT;
CORVANE_API int32_t LAN_CompareMessageCookies(const void* a, const void* b) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

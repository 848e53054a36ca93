/* The metadata service: its start-up, which plug-in owns which volume, and the handlers of the five
 * requests. Any thread, but for the start-up. */
#ifndef CORVANE_FSMDC_SERVICE_H
#define CORVANE_FSMDC_SERVICE_H

#include <stdint.h>

#include "fsmdc/loader.h"
#include "fsmdc/records.h"
#include "lan/dgram.h"
#include "osl/export.h"
#include "osl/quick_lock.h"
#include "osl/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Fixed lengths in bytes of replies that carry no record, or none that can be sent. */
#define SP_GET_VOLUME_FIXED_BYTES 272
#define SP_GET_INITIAL_MAP_FIXED_BYTES 256
#define SP_GET_EXTENDED_MAP_FIXED_BYTES 184
#define SP_SET_SIZE_FIXED_BYTES 72
#define SP_CLOSE_FIXED_BYTES 88
#define SP_DUMP_INFO_FIXED_BYTES 88

/* Which plug-in owns a volume. Nodes are never removed. */
typedef struct VolumeDispatcher {
    struct VolumeDispatcher* next;
    struct VolumeDispatcher* prev;
    uint8_t volumeCookie[FS_COOKIE_BYTES];
    FsLibrary* library;
} VolumeDispatcher;

CORVANE_API extern VolumeDispatcher dispatchListHeadGlb; /* sentinel of the circular list */
CORVANE_API extern QuickLock dispatchListLock;

/* Creates the locks, empties the lists, loads up to 32 plug-ins and starts the purge thread.
 * Returns 0, or 408 when a plug-in was rejected (the others serve). Once, before requests arrive.
 */
CORVANE_API uint32_t FSMDCSP_Init(void) CORVANE_NOEXCEPT;

/* Remembers that `library` owns the volume of this cookie (32 bytes), in place of an earlier owner.
 * Returns 0, also when memory is short and nothing was remembered. */
CORVANE_API uint32_t AddVolumeDispatcherToList(const void* volume_cookie,
                                               FsLibrary* library) CORVANE_NOEXCEPT;

/* Returns the plug-in that owns the volume of this cookie (32 bytes), or null. */
CORVANE_API FsLibrary* GetLibrary(const void* volume_cookie) CORVANE_NOEXCEPT;

/* Gives the volume of this cookie to the plug-in in slot 0. Null is ignored. */
CORVANE_API void FSMDCSP_AddVolumeSubCookie(const void* volume_cookie) CORVANE_NOEXCEPT;

/* Return 0 when the 32 bytes are equal, else 1. */
CORVANE_API int32_t CompareFileCookies(const void* a, const void* b) CORVANE_NOEXCEPT;
CORVANE_API int32_t CompareVolCookies(const void* a, const void* b) CORVANE_NOEXCEPT;

/* Returns the longest reply in bytes: MAXDGRAM as it stood at the first call, else 64512. */
CORVANE_API int32_t maxDgramSize(void) CORVANE_NOEXCEPT;

/* Returns a reply of `size_bytes` (48 or more) zeroed bytes with the header that answers `request`,
 * with the version of `library` (may be null) as its revision; null when memory is short. The
 * caller frees it with OSL_Free. */
CORVANE_API void* SP_InitReply(const void* request, int32_t size_bytes,
                               const FsLibrary* library) CORVANE_NOEXCEPT;

/* The handlers: each answers one request (header in host order, body as received, LAN_REQUEST_ROOM
 * bytes readable) with a reply that the caller frees with OSL_Free; null only when there is no
 * memory for the shortest one. `sender`: its first 16 bytes tell clients apart; only GetInitialMap
 * reads them. */
CORVANE_API void* SP_LanGetVolume(void* request, const DgramReplyAddr* sender) CORVANE_NOEXCEPT;
CORVANE_API void* SP_LanGetInitialMap(void* request, const DgramReplyAddr* sender) CORVANE_NOEXCEPT;
CORVANE_API void* SP_LanGetExtendedMap(void* request,
                                       const DgramReplyAddr* sender) CORVANE_NOEXCEPT;
CORVANE_API void* SP_LanSetSize(void* request, const DgramReplyAddr* sender) CORVANE_NOEXCEPT;
CORVANE_API void* SP_LanClose(void* request, const DgramReplyAddr* sender) CORVANE_NOEXCEPT;

/* Traces all leases and the duplicate counters. Registered for no function code. */
CORVANE_API void* SP_LanDumpInfo(void* request, const DgramReplyAddr* sender) CORVANE_NOEXCEPT;

/* Traces one text. Null is ignored. */
CORVANE_API void printFSUNI(const FSUNI* text) CORVANE_NOEXCEPT;

/* Writes "directory, separator, name" into `out` (`out_bytes` bytes), with one separator between
 * them; separator 0 joins the two as they are. What does not fit is left out whole: a cut path
 * would name another file. Returns `out`. */
CORVANE_API FSUNI* ConcatFilenameToPath(const FSUNI* name, const FSUNI* directory, FSUNI separator,
                                        FSUNI* out, uint32_t out_bytes) CORVANE_NOEXCEPT;

/* ConcatFilenameToPath with separator 0. */
CORVANE_API FSUNI* ConcatFilenameToPathOld(const FSUNI* name, const FSUNI* directory, FSUNI* out,
                                           uint32_t out_bytes) CORVANE_NOEXCEPT;

/* Returns the unit behind the first zero unit of an area of `area_bytes` bytes, or null when the
 * zero is the area's last unit or there is none. */
CORVANE_API FSUNI* GetNextString(FSUNI* area, uint32_t area_bytes) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

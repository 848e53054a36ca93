/* The leases: who holds which file's map, until when. A file stays locked in its plug-in until its
 * last lease goes. Every function takes leaseListLock itself unless it says otherwise. Any thread.
 */
#ifndef CORVANE_FSMDC_LEASE_H
#define CORVANE_FSMDC_LEASE_H

#include <stdint.h>

#include "fsmdc/loader.h"
#include "fsmdc/records.h"
#include "osl/export.h"
#include "osl/quick_lock.h"

#ifdef __cplusplus
extern "C" {
#endif

#define FS_LEASE_GRACE_MS 30000u /* a lease is purged this long after its duration has passed */

/* One lease. The list's own links to its indexes lie behind it: only the list makes these records.
 */
typedef struct LeaseRecord {
    struct LeaseRecord* next;
    struct LeaseRecord* prev;
    FsLibrary* library; /* the plug-in that locked the file; may be null */
    uint8_t volumeCookie[FS_COOKIE_BYTES];
    uint8_t fileCookie[FS_COOKIE_BYTES];
    uint8_t messageCookie[16]; /* messageID of the request that made the lease */
    uint8_t commCookie[16];    /* the client's address */
    uint32_t key;
    int32_t intention;     /* 1 = read, other = write */
    uint32_t duration;     /* milliseconds */
    uint32_t creationTime; /* OSL_GetClock when granted or last renewed */
} LeaseRecord;

CORVANE_API extern LeaseRecord
    leaseListHeadGlb; /* sentinel of the circular list, newest lease first */
CORVANE_API extern QuickLock leaseListLock;
CORVANE_API extern uint32_t globalKey;        /* the next lease's key */
CORVANE_API extern int32_t defaultReadLease;  /* milliseconds */
CORVANE_API extern int32_t defaultWriteLease; /* milliseconds */

/* Grants a lease of `duration_ms` and stores its key; a lease of the same file, message and client
 * is renewed instead and keeps its key. Then drops leases that have run out. Cookies are 32, 32, 16
 * and 16 bytes. `library` may be null. Returns 0, or -1 when memory is short. */
CORVANE_API int32_t AddLeaseToList(const void* volume_cookie, const void* file_cookie,
                                   const void* message_cookie, const void* comm_cookie,
                                   int32_t intention, uint32_t duration_ms, uint32_t* key,
                                   FsLibrary* library) CORVANE_NOEXCEPT;

/* Renews a lease from now on. Returns 0, or -1 for an unknown key. */
CORVANE_API int32_t ChangeLeaseEntry(uint32_t key, uint32_t duration_ms) CORVANE_NOEXCEPT;

/* Copies the whole record. Returns 0, or 407 for an unknown key (`copy` untouched). */
CORVANE_API uint32_t GetLeaseCopy(uint32_t key, LeaseRecord* copy) CORVANE_NOEXCEPT;

/* Returns the record itself, or null. The caller holds the lock, and may change duration and
 * creation time: every later purge goes by what the record says. */
CORVANE_API LeaseRecord* GetLeasePointer(uint32_t key) CORVANE_NOEXCEPT;

/* Copies the two cookies (32 bytes each) of a lease. Returns 0 or 407. */
CORVANE_API uint32_t GetCookiesFromList(uint32_t key, void* volume_cookie,
                                        void* file_cookie) CORVANE_NOEXCEPT;

/* Ends a lease and copies out its cookies. When it was the file's last one, unlocks the file
 * through `library` (null: does not) with the lock held. `label` names the caller in the trace.
 * Returns 0, or 408 for an unknown key. */
CORVANE_API uint32_t RemoveLeaseFromList(uint32_t key, void* volume_cookie, void* file_cookie,
                                         FsLibrary* library, const char* label) CORVANE_NOEXCEPT;

/* Drops every lease that has run out, newest first, by what the records say: it looks at each one,
 * some hundreds a hold of the lock. Returns 0. */
CORVANE_API int32_t PurgeLeaseList(void) CORVANE_NOEXCEPT;

/* The body of the purge thread: drops leases that have run out, every 5 seconds, for ever. */
CORVANE_API void* PurgeLeaseThread(void* unused) CORVANE_NOEXCEPT;

/* Returns 1 when a lease of this file is listed, else 0. The caller holds the lock. */
CORVANE_API int32_t MoreCookiesInList(const void* file_cookie) CORVANE_NOEXCEPT;

/* Returns 1 and stores the record when a lease of the same file, message and client is listed, else
 * 0
 * (`existing` untouched). The volume cookie is not compared. The caller holds the lock. */
CORVANE_API int32_t MoreCookiesInList2(const void* volume_cookie, const void* file_cookie,
                                       const void* message_cookie, const void* comm_cookie,
                                       LeaseRecord** existing) CORVANE_NOEXCEPT;

/* Returns the lease in milliseconds to grant for a wanted one (0: the default of the intention),
 * within what the plug-in allows. `library` and `volume_cookie` may be null. Takes no lock. */
CORVANE_API int32_t CalcLease(int32_t requested_ms, int32_t intention, const FsLibrary* library,
                              const void* volume_cookie) CORVANE_NOEXCEPT;

/* Trace one lease, and all of them. Neither takes the lock: nobody may change what is dumped. */
CORVANE_API void DumpKey(const LeaseRecord* lease) CORVANE_NOEXCEPT;
CORVANE_API void FSMDCSP_DumpKeyList(void) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

/* The daemon's counters: a page of shared memory that other programs map read-only. Each thread of
 * the daemon counts in a block of its own; a reader adds the blocks up. All numbers only grow, so
 * rates are differences; a reader may see one request half counted.
 *
 * The page is the POSIX shared-memory object COUNTERS_NAME with the daemon's port in its name.
 * Fields are in host order; a reader checks magic, version and the sizes before it believes the
 * rest. */
#ifndef CORVANE_OSL_COUNTERS_H
#define CORVANE_OSL_COUNTERS_H

#include <stdint.h>

#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

#define COUNTERS_NAME "/corvaned.%u" /* printf format; the UDP port */
#define COUNTERS_MAGIC 0x54534356u   /* "VCST" in memory order */
#define COUNTERS_VERSION 2u

#define COUNTERS_FUNCTIONS 6  /* 0: any other function code; 1 to 5 as in requests */
#define COUNTERS_RESULTS 32   /* slots of counters_result_slot; the last one is any other code */
#define COUNTERS_LATENCIES 64 /* bucket of counters_latency_bucket */
#define COUNTERS_PLUGINS 32   /* slots of the plug-in table */
#define COUNTERS_CALLS 8      /* plug-in entry points, COUNTERS_CALL_... */
#define COUNTERS_EVENTS 16    /* single counters, COUNTERS_EVENT_... */
#define COUNTERS_BLOCKS 64    /* threads beyond them share the last one */
#define COUNTERS_NAME_BYTES 64

enum {
    COUNTERS_CALL_GET_VOL_COOKIE,
    COUNTERS_CALL_GET_VOL_BY_COOKIE,
    COUNTERS_CALL_GET_COOKIES,
    COUNTERS_CALL_GET_LOCKED_MAP,
    COUNTERS_CALL_UNLOCK_MAP,
    COUNTERS_CALL_SET_FILE_SIZES,
    COUNTERS_CALL_GET_MAX_LEASES,
    COUNTERS_CALL_GET_PATH
};

enum {
    COUNTERS_EVENT_DUPLICATE_ANSWERED,
    COUNTERS_EVENT_DUPLICATE_DROPPED,
    COUNTERS_EVENT_LEASE_GRANTED,
    COUNTERS_EVENT_LEASE_RENEWED,
    COUNTERS_EVENT_LEASE_CLOSED, /* by Close, or by a GetInitialMap that kept no lease */
    COUNTERS_EVENT_LEASE_EXPIRED,
    COUNTERS_EVENT_FILE_LOCKED,   /* first lease of a file */
    COUNTERS_EVENT_FILE_UNLOCKED, /* last lease of a file */
    COUNTERS_EVENT_RECEIVE_ERROR,
    COUNTERS_EVENT_SEND_ERROR,
    COUNTERS_EVENT_DESCRIPTOR_REQUEST,
    COUNTERS_EVENT_LOG_LOST,      /* a message met another one under way */
    COUNTERS_EVENT_LEASE_RELEASED /* by an administrator */
};

/* One thread's numbers; blocks begin on cache lines of their own. */
typedef struct CountersBlock {
    uint64_t requests[COUNTERS_FUNCTIONS][COUNTERS_RESULTS];    /* answered, by outcome */
    uint64_t latencies[COUNTERS_FUNCTIONS][COUNTERS_LATENCIES]; /* from receipt to reply */
    uint64_t plugin_calls[COUNTERS_PLUGINS][COUNTERS_CALLS];
    uint64_t plugin_errors[COUNTERS_PLUGINS][COUNTERS_CALLS]; /* results that refuse the request */
    uint64_t events[COUNTERS_EVENTS];
} CountersBlock;

/* The whole page. */
typedef struct CountersPage {
    uint32_t magic;       /*  0 */
    uint32_t version;     /*  4 */
    uint32_t page_bytes;  /*  8: sizeof(CountersPage) */
    uint32_t block_bytes; /* 12: sizeof(CountersBlock) */
    uint32_t block_count; /* 16 */
    int32_t pid;          /* 20: of the daemon */
    uint32_t port;        /* 24: its UDP port */
    uint32_t reserved;    /* 28: 0 */
    int64_t started_s;    /* 32: seconds since 1970 */
    uint8_t pad[24];      /* 40 */
    /* 64: file names of the plug-ins, with a zero; empty: none in this slot */
    char plugin_names[COUNTERS_PLUGINS][COUNTERS_NAME_BYTES];
    CountersBlock blocks[COUNTERS_BLOCKS]; /* 2112 */
} CountersPage;

/* Returns the slot that counts `result`, 0 to COUNTERS_RESULTS - 1. Any thread. */
CORVANE_API uint32_t counters_result_slot(uint32_t result) CORVANE_NOEXCEPT;

/* Returns the result that slot `slot` counts, or UINT32_MAX for the slot of all others. */
CORVANE_API uint32_t counters_result_of_slot(uint32_t slot) CORVANE_NOEXCEPT;

/* Returns the bucket of a time in nanoseconds: two buckets an octave from 512 ns on. */
CORVANE_API uint32_t counters_latency_bucket(uint64_t nanoseconds) CORVANE_NOEXCEPT;

/* Returns the upper bound of a bucket in nanoseconds; UINT64_MAX for the last one. */
CORVANE_API uint64_t counters_latency_bound(uint32_t bucket) CORVANE_NOEXCEPT;

/* Makes the page of the daemon on `port` (an old one of a dead daemon is replaced) and counts in it
 * from now on; what was counted before the first page is taken over. One thread at a time. Returns
 * 0, or an error number, and then counts on where it did. */
CORVANE_API int32_t counters_publish(uint32_t port) CORVANE_NOEXCEPT;

/* Maps the page of the daemon on `port` read-only. Returns null with errno: ENOENT when there is
 * none, EPROTO when its version is another. Unmap with counters_unmap. */
CORVANE_API const CountersPage* counters_map(uint32_t port) CORVANE_NOEXCEPT;
CORVANE_API void counters_unmap(const CountersPage* page) CORVANE_NOEXCEPT;

/* Adds all blocks of `page` up into `sum`. */
CORVANE_API void counters_sum(const CountersPage* page, CountersBlock* sum) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

// The lease list: leases are granted, renewed, ended, and dropped when they have run out.
#include "fsmdc/lease_list.hpp"

#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "fsmdc/fs_result.h"
#include "fsmdc/lease_expiry.hpp"
#include "fsmdc/lease_index.hpp"
#include "fsmdc/lease_state.hpp"
#include "fsmdc/plugin_calls.hpp"
#include "mdcmain/log.hpp"
#include "osl/bytes.hpp"
#include "osl/lock_guard.hpp"
#include "osl/memory.h"
#include "osl/thread.h"

LeaseRecord leaseListHeadGlb = {};
QuickLock leaseListLock = {};
std::uint32_t globalKey = 0;

namespace corvane {
namespace {

// How much a purge does under one hold of the lock. When a long list runs out at once every request
// would wait for such holds, so the thread makes them shorter, and a request drops a little more
// than it adds: enough that the list cannot outgrow the thread.
struct Share {
    std::size_t looks;
    std::size_t drops;
};
constexpr Share kFullShare{.looks = 1024, .drops = 128};
constexpr Share kThreadsShare{.looks = 256, .drops = 32};
constexpr Share kRequestsShare{.looks = 16, .drops = 2};
constexpr int kHoldsPerRequest = 8;
constexpr int kHoldsPerPause = 4;
constexpr std::size_t kShortListLeases = 32;
constexpr std::size_t kLongListLeases = 8192;
constexpr std::uint32_t kPurgePeriodMs = 5000;
constexpr std::uint32_t kPauseMs = 1;  // after some holds, so that requests come in between

// The list can be used before the service starts.
[[maybe_unused]] const bool g_ready = (reset_leases(), true);

void link_newest(LeaseRecord& record) noexcept
{
    LeaseRecord& head = leaseListHeadGlb;
    record.next = head.next;
    record.prev = &head;
    head.next->prev = &record;
    head.next = &record;
}

void renew(Lease& lease, std::uint32_t duration_ms) noexcept
{
    lease.record.creationTime = OSL_GetClock();
    lease.record.duration = duration_ms;
    g_leases.expiry.file(lease, lease.record.creationTime);
}

// Whoever walks the list may change a record without our knowing. A short list is looked through
// for that at every purge; a longer one only by PurgeLeaseList.
void refile_changed(std::uint32_t now) noexcept
{
    if (g_leases.index.count() > kShortListLeases) return;
    for (LeaseRecord* record = leaseListHeadGlb.next; record != &leaseListHeadGlb;
         record = record->next) {
        if (has_expired(*record, now)) g_leases.expiry.file(lease_of(*record), now);
    }
}

// Takes out a lease that has run out; unlocks its file when no other lease of it is left.
void drop(Lease& lease, std::uint32_t now) noexcept
{
    const LeaseRecord& record = lease.record;
    const bool has_other = LeaseIndex::has_other_of_file(lease);
    unlink(lease);
    count_event(COUNTERS_EVENT_LEASE_EXPIRED);
    CORVANE_TRACE("Purged lease  key:0x%x, intention:%d  duration:%u creation:%u time:%u\n",
                  record.key, record.intention, record.duration, record.creationTime, now);
    if (has_other) {
        if (trace_wanted()) (void)MoreCookiesInList(record.fileCookie);  // for its trace
        return;
    }
    CORVANE_TRACE("purging expired lease 0x%x\n", record.key);
    unlock_file(record.library, record);
}

// Drops leases in the order of the list, the newest first.
void drop_in_list_order(std::span<Lease*> expired, std::uint32_t now) noexcept
{
    std::sort(expired.begin(), expired.end(), [](const Lease* a, const Lease* b) {
        return globalKey - a->record.key <
               globalKey - b->record.key;  // keys only ever grow, and wrap
    });
    for (Lease* lease : expired) drop(*lease, now);
}

void free_all(std::span<Lease*> leases) noexcept
{
    for (Lease* lease : leases) OSL_Free(lease);
}

[[nodiscard]] bool list_is_long() noexcept
{
    return g_leases.index.count() > kLongListLeases;
}

// One hold of the lock: drops what has run out by the wheel, of a long list no more than `share`.
// Returns true when there is more to look at.
[[nodiscard]] bool purge_due_once(const Share& share) noexcept
{
    std::array<Lease*, kFullShare.drops> room;
    std::span<Lease*> dropped;
    bool more = false;
    {
        const LockGuard guard(leaseListLock);
        const std::uint32_t now = OSL_GetClock();
        refile_changed(now);
        if (!g_leases.expiry.wants_purge(now)) return false;
        const auto& [looks, drops] = list_is_long() ? share : kFullShare;
        const auto expired = std::span<Lease*>(room).first(drops);
        dropped = expired.first(g_leases.expiry.take_expired(now, looks, expired));
        drop_in_list_order(dropped, now);
        more = g_leases.expiry.has_backlog();
    }
    free_all(dropped);
    return more;
}

// One hold of the lock: looks at the next records of a walk. Returns false at the list's end.
[[nodiscard]] bool purge_walk_once(LeaseWalk& walk) noexcept
{
    std::array<Lease*, kFullShare.drops> dropped;
    std::size_t count = 0;
    bool more = false;
    {
        const LockGuard guard(leaseListLock);
        if (walk.at == nullptr) begin_walk(walk);
        const std::uint32_t now = OSL_GetClock();
        for (std::size_t looks = kFullShare.looks; looks > 0 && count < dropped.size(); --looks) {
            if (walk.at == &leaseListHeadGlb) break;
            LeaseRecord& record = *walk.at;
            walk.at = record.next;
            if (!has_expired(record, now)) continue;
            dropped[count++] = &lease_of(record);
            drop(lease_of(record), now);
        }
        more = walk.at != &leaseListHeadGlb;
        if (!more) end_walk(walk);
    }
    free_all(std::span(dropped).first(count));
    return more;
}

[[nodiscard]] osl_ptr<Lease> make_lease(const void* volume_cookie, const void* file_cookie,
                                        const void* message_cookie, const void* comm_cookie,
                                        FsLibrary* library) noexcept
{
    osl_ptr<Lease> lease(static_cast<Lease*>(OSL_Calloc(sizeof(Lease), allocation_tag("leas"))));
    if (lease == nullptr) return lease;
    LeaseRecord& record = lease->record;
    OSL_MemCopy(record.volumeCookie, volume_cookie, sizeof record.volumeCookie);
    OSL_MemCopy(record.fileCookie, file_cookie, sizeof record.fileCookie);
    OSL_MemCopy(record.messageCookie, message_cookie, sizeof record.messageCookie);
    OSL_MemCopy(record.commCookie, comm_cookie, sizeof record.commCookie);
    record.library = library;
    return lease;
}

// The lease that the same request made before, or null.
[[nodiscard]] Lease* find_duplicate(const void* file_cookie, const void* message_cookie,
                                    const void* comm_cookie) noexcept
{
    Lease* const lease = g_leases.index.by_origin(file_cookie, message_cookie, comm_cookie);
    if (lease != nullptr && trace_wanted()) {
        corvane_trace("MoreCookiesInList2\n");
        DumpKey(&lease->record);
    }
    return lease;
}

// Enters the new lease, or renews the one that the same request made before. Returns how many holds
// of a purge the request owes the others. The lock is held.
[[nodiscard]] int enter(osl_ptr<Lease>& fresh, std::int32_t intention, std::uint32_t duration_ms,
                        std::uint32_t* key) noexcept
{
    if (g_leases.adding) CORVANE_TRACE("Semaphore breakdown in AddLeaseToList\n");
    g_leases.adding = true;
    const LeaseRecord& wanted = fresh->record;
    Lease* lease = find_duplicate(wanted.fileCookie, wanted.messageCookie, wanted.commCookie);
    const bool is_new = lease == nullptr;
    if (is_new) {
        lease = fresh.release();
        lease->record.key = globalKey++;
        lease->granted_s = static_cast<std::uint32_t>(time_of_day_s());
        link_newest(lease->record);
        g_leases.index.add(*lease);
        count_event(COUNTERS_EVENT_LEASE_GRANTED);
        if (!LeaseIndex::has_other_of_file(*lease)) count_event(COUNTERS_EVENT_FILE_LOCKED);
    } else {
        CORVANE_TRACE("Duplicate lease detected.  Bailing...\n");
        count_event(COUNTERS_EVENT_LEASE_RENEWED);
    }
    LeaseRecord& record = lease->record;
    lease->count_request();
    g_leases.busy.note(record);
    record.intention = intention;
    if (key != nullptr) *key = record.key;
    renew(*lease, duration_ms);
    if (is_new)
        CORVANE_TRACE("FTX2017I Added to lease list  key:%d\n", static_cast<int>(record.key));
    g_leases.adding = false;
    refile_changed(record.creationTime);
    if (!g_leases.expiry.wants_purge(record.creationTime)) return 0;
    return list_is_long() ? 1 : kHoldsPerRequest;
}

}  // namespace

constinit LeaseState g_leases;

void unlink(Lease& lease) noexcept
{
    LeaseRecord& record = lease.record;
    for (LeaseWalk* walk = g_leases.walks; walk != nullptr; walk = walk->other) {
        if (walk->at == &record) walk->at = record.next;
    }
    record.next->prev = record.prev;
    record.prev->next = record.next;
    g_leases.index.remove(lease);
    g_leases.expiry.forget(lease);
}

void unlock_file(const FsLibrary* library, const LeaseRecord& record) noexcept
{
    count_event(COUNTERS_EVENT_FILE_UNLOCKED);
    if (library == nullptr || library->FS_UnlockMap == nullptr) return;
    (void)library->FS_UnlockMap(record.volumeCookie, record.fileCookie);  // has no result
    count_plugin_call(slot_of(library), COUNTERS_CALL_UNLOCK_MAP, /*refused=*/false);
}

void begin_walk(LeaseWalk& walk) noexcept
{
    walk.at = leaseListHeadGlb.next;
    walk.other = g_leases.walks;
    g_leases.walks = &walk;
}

void end_walk(LeaseWalk& walk) noexcept
{
    LeaseWalk** link = &g_leases.walks;
    while (*link != &walk) link = &(*link)->other;
    *link = walk.other;
    walk.at = nullptr;
}

std::int64_t time_of_day_s() noexcept
{
    timeval now{};
    (void)gettimeofday(&now, nullptr);  // cannot fail for this clock
    return now.tv_sec;
}

void reset_leases() noexcept
{
    LeaseRecord& head = leaseListHeadGlb;
    while (head.next != nullptr && head.next != &head) {
        LeaseRecord* const record = head.next;
        head.next = record->next;
        OSL_Free(record);
    }
    head.next = head.prev = &head;
    for (LeaseWalk* walk = g_leases.walks; walk != nullptr; walk = walk->other) walk->at = &head;
    g_leases.index.clear();
    g_leases.expiry.clear();
    g_leases.busy.clear();
    (void)OSL_QuickLockCreate(&leaseListLock, "leaseListLock", 0xabcd);  // cannot fail for value 1
}

}  // namespace corvane

using namespace corvane;  // the exported names below are thin

extern "C" {

std::int32_t AddLeaseToList(const void* volume_cookie, const void* file_cookie,
                            const void* message_cookie, const void* comm_cookie,
                            std::int32_t intention, std::uint32_t duration_ms, std::uint32_t* key,
                            FsLibrary* library) noexcept
{
    osl_ptr<Lease> fresh =
        make_lease(volume_cookie, file_cookie, message_cookie, comm_cookie, library);
    if (fresh == nullptr) {
        CORVANE_TRACE("Out of memory in AddToLeaseList\n");
        return -1;
    }
    int holds = 0;
    {
        const LockGuard guard(leaseListLock);
        holds = enter(fresh, intention, duration_ms, key);
    }
    // One request does not pay for a million leases that ran out at once: the thread does the rest.
    while (holds-- > 0 && purge_due_once(kRequestsShare)) continue;
    return 0;
}

std::int32_t ChangeLeaseEntry(std::uint32_t key, std::uint32_t duration_ms) noexcept
{
    const LockGuard guard(leaseListLock);
    Lease* const lease = g_leases.index.by_key(key);
    if (lease == nullptr) return -1;
    renew(*lease, duration_ms);
    return 0;
}

std::uint32_t GetLeaseCopy(std::uint32_t key, LeaseRecord* copy) noexcept
{
    const LockGuard guard(leaseListLock);
    Lease* const lease = g_leases.index.by_key(key);
    if (lease == nullptr) return FS_E_INVALID_KEY;
    lease->count_request();  // this is how a request comes to its lease
    g_leases.busy.note(lease->record);
    *copy = lease->record;
    return FS_E_SUCCESS;
}

LeaseRecord* GetLeasePointer(std::uint32_t key) noexcept
{
    Lease* const lease = g_leases.index.by_key(key);
    if (lease == nullptr) return nullptr;
    g_leases.expiry.hand_out(*lease);
    return &lease->record;
}

std::uint32_t GetCookiesFromList(std::uint32_t key, void* volume_cookie, void* file_cookie) noexcept
{
    LeaseRecord copy;
    const std::uint32_t result = GetLeaseCopy(key, &copy);
    if (result != FS_E_SUCCESS) return result;
    OSL_MemCopy(volume_cookie, copy.volumeCookie, sizeof copy.volumeCookie);
    OSL_MemCopy(file_cookie, copy.fileCookie, sizeof copy.fileCookie);
    return FS_E_SUCCESS;
}

std::uint32_t RemoveLeaseFromList(std::uint32_t key, void* volume_cookie, void* file_cookie,
                                  FsLibrary* library, const char* label) noexcept
{
    osl_ptr<Lease> lease;
    {
        const LockGuard guard(leaseListLock);
        lease.reset(g_leases.index.by_key(key));
        if (lease == nullptr) return FS_E_MISC_ERROR;
        const LeaseRecord& record = lease->record;
        OSL_MemCopy(volume_cookie, record.volumeCookie, sizeof record.volumeCookie);
        OSL_MemCopy(file_cookie, record.fileCookie, sizeof record.fileCookie);
        const bool has_other = LeaseIndex::has_other_of_file(*lease);
        unlink(*lease);
        count_event(COUNTERS_EVENT_LEASE_CLOSED);
        if (!has_other) {
            unlock_file(library, record);
        } else if (trace_wanted()) {
            (void)MoreCookiesInList(record.fileCookie);  // for its trace
            corvane_trace("Skipping unlock,dup key detect (below)\n");
            DumpKey(&record);
        }
    }
    CORVANE_TRACE("Removed from lease list key:%d(0x%x) %s\n", static_cast<int>(key), key,
                  label != nullptr ? label : "");
    return FS_E_SUCCESS;
}

std::int32_t PurgeLeaseList() noexcept
{
    LeaseWalk walk;
    while (purge_walk_once(walk)) OSL_Sleep(0);  // lets a waiting request have the lock
    return 0;
}

void* PurgeLeaseThread(void*) noexcept
{
    for (;;) {
        for (int hold = 1; purge_due_once(kThreadsShare); ++hold) {
            if (hold % kHoldsPerPause == 0) OSL_Sleep(kPauseMs);
        }
        OSL_Sleep(kPurgePeriodMs);
    }
}

std::int32_t MoreCookiesInList(const void* file_cookie) noexcept
{
    const Lease* const lease = g_leases.index.by_file(file_cookie);
    if (lease == nullptr) return 0;
    if (trace_wanted()) {
        corvane_trace("MoreCookiesInList\n");
        DumpKey(&lease->record);
    }
    return 1;
}

std::int32_t MoreCookiesInList2(const void*, const void* file_cookie, const void* message_cookie,
                                const void* comm_cookie, LeaseRecord** existing) noexcept
{
    Lease* const lease = find_duplicate(file_cookie, message_cookie, comm_cookie);
    if (lease == nullptr) return 0;
    if (existing != nullptr) {
        g_leases.expiry.hand_out(*lease);
        *existing = &lease->record;
    }
    return 1;
}

}  // extern "C"

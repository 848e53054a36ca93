// The lease list as administrators see it: read lease by lease, a lease ended by hand, busy files.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "fsmdc/fs_result.h"
#include "fsmdc/lease_list.hpp"
#include "fsmdc/lease_state.hpp"
#include "osl/counters.hpp"
#include "osl/lock_guard.hpp"
#include "osl/memory.h"
#include "osl/thread.h"

namespace corvane {
namespace {

// The lock is held.
[[nodiscard]] LeaseView view_of(const Lease& lease, std::int64_t now_s, std::uint32_t now) noexcept
{
    LeaseView view{};
    view.record = lease.record;
    view.record.next = view.record.prev = nullptr;
    // Stored modulo 2^32: the distance from now is what counts, in either direction.
    view.granted_s =
        now_s - static_cast<std::int32_t>(static_cast<std::uint32_t>(now_s) - lease.granted_s);
    view.renewed_s = now_s - static_cast<std::int64_t>(age_ms(lease.record, now) / 1000);
    view.until_s = view.renewed_s + static_cast<std::int64_t>(lease.record.duration / 1000);
    view.requests = lease.requests();
    return view;
}

}  // namespace

std::uint32_t peek_lease(std::uint32_t key, LeaseRecord* copy) noexcept
{
    const LockGuard guard(leaseListLock);
    const Lease* const lease = g_leases.index.by_key(key);
    if (lease == nullptr) return FS_E_INVALID_KEY;
    *copy = lease->record;
    return FS_E_SUCCESS;
}

LeaseCursor::~LeaseCursor()
{
    const LockGuard guard(leaseListLock);
    if (walk_.at != nullptr) end_walk(walk_);
}

void LeaseCursor::start() noexcept
{
    const LockGuard guard(leaseListLock);
    if (walk_.at != nullptr) end_walk(walk_);
    begin_walk(walk_);
}

std::size_t LeaseCursor::next(std::span<LeaseView> views) noexcept
{
    const LockGuard guard(leaseListLock);
    if (walk_.at == nullptr) return 0;
    const std::int64_t now_s = time_of_day_s();
    const std::uint32_t now = OSL_GetClock();
    std::size_t count = 0;
    for (; count < views.size() && walk_.at != &leaseListHeadGlb; walk_.at = walk_.at->next) {
        views[count++] = view_of(lease_of(*walk_.at), now_s, now);
    }
    if (count == 0) end_walk(walk_);
    return count;
}

std::optional<LeaseView> release_lease(std::uint32_t key) noexcept
{
    osl_ptr<Lease> lease;
    std::optional<LeaseView> view;
    const LockGuard guard(leaseListLock);
    lease.reset(g_leases.index.by_key(key));
    if (lease == nullptr) return view;
    view = view_of(*lease, time_of_day_s(), OSL_GetClock());
    const bool has_other = LeaseIndex::has_other_of_file(*lease);
    unlink(*lease);
    count_event(COUNTERS_EVENT_LEASE_RELEASED);
    if (!has_other) unlock_file(lease->record.library, lease->record);
    return view;
}

std::size_t busy_files(std::span<BusyFile> files) noexcept
{
    const LockGuard guard(leaseListLock);
    return g_leases.busy.copy(files);
}

std::optional<BusyFile> busy_file(std::uint32_t number) noexcept
{
    const LockGuard guard(leaseListLock);
    const BusyFile* const found = g_leases.busy.find(number);
    return found != nullptr ? std::optional(*found) : std::nullopt;
}

}  // namespace corvane

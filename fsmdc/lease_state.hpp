// What the list and its views share. All of it is guarded by leaseListLock, like the list, and is
// called with the lock held.
#ifndef CORVANE_FSMDC_LEASE_STATE_HPP
#define CORVANE_FSMDC_LEASE_STATE_HPP

#include <cstdint>

#include "fsmdc/busy_files.hpp"
#include "fsmdc/lease_expiry.hpp"
#include "fsmdc/lease_index.hpp"
#include "fsmdc/lease_list.hpp"

namespace corvane {

struct LeaseState {
    LeaseIndex index;
    LeaseExpiry expiry;
    BusyFiles busy;
    LeaseWalk* walks = nullptr;
    bool adding = false;  // AddLeaseToList is inside
};
extern constinit LeaseState g_leases;

// Takes the lease out of the list, the indexes and the walks. The caller frees it.
void unlink(Lease& lease) noexcept;

// The last lease of a file is gone.
void unlock_file(const FsLibrary* library, const LeaseRecord& record) noexcept;

// Enters a walk that begins at the newest lease.
void begin_walk(LeaseWalk& walk) noexcept;

// Takes a walk out, wherever it stands.
void end_walk(LeaseWalk& walk) noexcept;

// Seconds since 1970. Needs no lock.
[[nodiscard]] std::int64_t time_of_day_s() noexcept;

}  // namespace corvane
#endif

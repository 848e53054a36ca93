// What the service and the administration need of the lease list beyond lease.h.
#ifndef CORVANE_FSMDC_LEASE_LIST_HPP
#define CORVANE_FSMDC_LEASE_LIST_HPP

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "fsmdc/busy_files.hpp"
#include "fsmdc/lease.h"

namespace corvane {

// Makes the lock anew and the list empty, without unlocking any file. Before other threads use
// them.
void reset_leases() noexcept;

// GetLeaseCopy, but the lease is not being asked for: it counts as no request.
[[nodiscard]] std::uint32_t peek_lease(std::uint32_t key, LeaseRecord* copy) noexcept;

// A walk over the list that lets go of the lock. Whoever unlinks a lease moves the walks that stand
// on it.
struct LeaseWalk {
    LeaseRecord* at = nullptr;  // null: not begun, or ended
    LeaseWalk* other = nullptr;
};

// One lease as an administrator sees it. Times are seconds since 1970.
struct LeaseView {
    LeaseRecord record;  // without its links
    std::int64_t granted_s;
    std::int64_t renewed_s;
    std::int64_t until_s;    // it is purged FS_LEASE_GRACE_MS later
    std::uint32_t requests;  // that named the lease
};

// Reads the list from the newest lease on, a few leases a hold of the lock. A lease that lives
// throughout is seen once; one that comes meanwhile is not. One thread at a time.
class LeaseCursor {
public:
    LeaseCursor() noexcept = default;
    ~LeaseCursor();
    LeaseCursor(const LeaseCursor&) = delete;
    LeaseCursor& operator=(const LeaseCursor&) = delete;

    void start() noexcept;
    // Returns the number of leases copied: 0 at the end.
    [[nodiscard]] std::size_t next(std::span<LeaseView> views) noexcept;

private:
    LeaseWalk walk_;
};

// Ends a lease as its expiry would: its file is unlocked when no other lease of it is left. Returns
// what it was, or nothing for an unknown key.
[[nodiscard]] std::optional<LeaseView> release_lease(std::uint32_t key) noexcept;

// Copies the files that are asked for most, in no order. Returns their number.
[[nodiscard]] std::size_t busy_files(std::span<BusyFile> files) noexcept;

// The busy file of this number, if it is still one.
[[nodiscard]] std::optional<BusyFile> busy_file(std::uint32_t number) noexcept;

}  // namespace corvane
#endif

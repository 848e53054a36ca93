// When leases run out: a wheel of lists, one for each second or so of the next hour and more, so
// that a purge touches only the leases whose time may have come. All of it is guarded by
// leaseListLock.
#ifndef CORVANE_FSMDC_LEASE_EXPIRY_HPP
#define CORVANE_FSMDC_LEASE_EXPIRY_HPP

#include <cstddef>
#include <cstdint>
#include <span>

#include "fsmdc/lease_index.hpp"

namespace corvane {

// Time since the lease was granted or renewed. A clock that stands before the lease's creation has
// wrapped; the age is then one less than the true distance, and is meant to be.
[[nodiscard]] std::uint32_t age_ms(const LeaseRecord& record, std::uint32_t now) noexcept;

// True when the lease has run out at the clock value `now`.
[[nodiscard]] bool has_expired(const LeaseRecord& record, std::uint32_t now) noexcept;

// Every `now` is OSL_GetClock, read with the lock held so that it never goes back between two
// calls.
class LeaseExpiry {
public:
    // Files a lease under the time at which it runs out, wherever it was filed before.
    void file(Lease& lease, std::uint32_t now) noexcept;

    void forget(Lease& lease) noexcept;

    // From now on every purge looks at this lease, because its record may change behind our back.
    void hand_out(Lease& lease) noexcept;

    // Forgets all leases; they stay whose they were.
    void clear() noexcept;

    // True when a purge at `now` would have anything to look at.
    [[nodiscard]] bool wants_purge(std::uint32_t now) noexcept;

    // True while the last purge has not come to its end.
    [[nodiscard]] bool has_backlog() const noexcept
    {
        return opened_ != nullptr || slots_are_due();
    }

    // Takes leases that have run out into `expired` (they are filed nowhere any more), looking at
    // no more than `looks` leases of the wheel. Returns their number.
    [[nodiscard]] std::size_t take_expired(std::uint32_t now, std::size_t looks,
                                           std::span<Lease*> expired) noexcept;

private:
    static constexpr std::uint64_t kSlotMs = 1024;
    static constexpr std::uint64_t kSlots =
        4096;  // 70 minutes: the longest default lease and its grace

    void advance(std::uint32_t now) noexcept;
    void place(Lease& lease, std::uint32_t now) noexcept;
    [[nodiscard]] bool slots_are_due() const noexcept;
    [[nodiscard]] bool open_next_slot() noexcept;
    void open(std::uint64_t slot) noexcept;
    [[nodiscard]] std::uint64_t tick() const noexcept { return elapsed_ms_ / kSlotMs; }

    Lease* slots_[kSlots] = {};
    Lease* opened_ = nullptr;       // to be looked at now
    Lease* handed_out_ = nullptr;   // to be looked at every time
    std::uint32_t clock_ = 0;       // the last `now`
    std::uint64_t elapsed_ms_ = 0;  // the same without wraps; stands still when the clock goes back
    std::uint64_t next_tick_ =
        0;  // first slot that has not been opened; the current one never counts
    std::uint64_t looked_ms_ = 0;      // elapsed_ms_ when the current slot was last opened
    std::uint64_t recheck_slots_ = 0;  // slots still to open because the clock went back
};

}  // namespace corvane
#endif

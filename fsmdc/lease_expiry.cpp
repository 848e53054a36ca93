// The expiry wheel. A slot is only a hint of when to look: what the record says decides, so a lease
// beyond the wheel's reach, or one whose record changed, is simply filed again.
#include "fsmdc/lease_expiry.hpp"

namespace corvane {
namespace {

[[nodiscard]] std::uint32_t lifetime_ms(const LeaseRecord& record) noexcept
{
    return record.duration + FS_LEASE_GRACE_MS;  // modulo 2^32, as the clock is
}

void push(Lease*& head, Lease& lease) noexcept
{
    lease.due_next = head;
    lease.due_link = &head;
    if (head != nullptr) head->due_link = &lease.due_next;
    head = &lease;
}

}  // namespace

std::uint32_t age_ms(const LeaseRecord& record, std::uint32_t now) noexcept
{
    if (now >= record.creationTime) return now - record.creationTime;
    return 0xFFFFFFFFU - (record.creationTime - now);
}

bool has_expired(const LeaseRecord& record, std::uint32_t now) noexcept
{
    return age_ms(record, now) >= lifetime_ms(record);
}

void LeaseExpiry::file(Lease& lease, std::uint32_t now) noexcept
{
    advance(now);
    forget(lease);
    place(lease, now);
}

void LeaseExpiry::forget(Lease& lease) noexcept
{
    if (lease.due_link == nullptr) return;
    *lease.due_link = lease.due_next;
    if (lease.due_next != nullptr) lease.due_next->due_link = lease.due_link;
    lease.due_link = nullptr;
}

void LeaseExpiry::hand_out(Lease& lease) noexcept
{
    lease.mark_handed_out();
    forget(lease);
    push(handed_out_, lease);
}

void LeaseExpiry::clear() noexcept
{
    for (Lease*& slot : slots_) slot = nullptr;
    opened_ = handed_out_ = nullptr;
}

bool LeaseExpiry::wants_purge(std::uint32_t now) noexcept
{
    advance(now);
    return has_backlog() || handed_out_ != nullptr;
}

std::size_t LeaseExpiry::take_expired(std::uint32_t now, std::size_t looks,
                                      std::span<Lease*> expired) noexcept
{
    advance(now);
    std::size_t taken = 0;
    for (Lease *lease = handed_out_, *next = nullptr; lease != nullptr; lease = next) {
        next = lease->due_next;
        if (taken == expired.size() || !has_expired(lease->record, now)) continue;
        forget(*lease);
        expired[taken++] = lease;
    }
    for (; looks > 0 && taken < expired.size(); --looks) {
        while (opened_ == nullptr && open_next_slot()) continue;
        if (opened_ == nullptr) break;
        Lease& lease = *opened_;
        forget(lease);
        if (has_expired(lease.record, now)) {
            expired[taken++] = &lease;
        } else {
            place(lease, now);
        }
    }
    return taken;
}

// After a step back no slot says when its leases run out: all are opened once more. That is so when
// the clock was set, and when it wrapped after 49 days.
void LeaseExpiry::advance(std::uint32_t now) noexcept
{
    if (now < clock_) {
        recheck_slots_ = kSlots;
    } else {
        elapsed_ms_ += now - clock_;
    }
    clock_ = now;
}

void LeaseExpiry::place(Lease& lease, std::uint32_t now) noexcept
{
    if (lease.is_handed_out()) return push(handed_out_, lease);
    if (has_expired(lease.record, now)) return push(opened_, lease);
    const std::uint32_t left_ms = lifetime_ms(lease.record) - age_ms(lease.record, now);
    std::uint64_t due_tick = (elapsed_ms_ + left_ms) / kSlotMs;
    if (due_tick - tick() >= kSlots) due_tick = tick() + kSlots - 1;
    push(slots_[due_tick % kSlots], lease);
}

bool LeaseExpiry::slots_are_due() const noexcept
{
    return next_tick_ < tick() || recheck_slots_ > 0 || looked_ms_ != elapsed_ms_;
}

bool LeaseExpiry::open_next_slot() noexcept
{
    if (next_tick_ < tick()) {
        if (tick() - next_tick_ > kSlots) next_tick_ = tick() - kSlots;
        open(next_tick_++ % kSlots);
    } else if (recheck_slots_ > 0) {
        open(--recheck_slots_);
    } else if (looked_ms_ != elapsed_ms_) {
        looked_ms_ = elapsed_ms_;
        open(tick() % kSlots);
    } else {
        return false;
    }
    return true;
}

// Nothing is open: the slot's whole list is, with one move.
void LeaseExpiry::open(std::uint64_t slot) noexcept
{
    opened_ = slots_[slot];
    slots_[slot] = nullptr;
    if (opened_ != nullptr) opened_->due_link = &opened_;
}

}  // namespace corvane

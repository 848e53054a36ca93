// Duplicate tracking: which requests were answered before, with what, and which are still at work.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <utility>

#include "lan/server.h"
#include "lan/tracker_list.hpp"
#include "mdcmain/log.hpp"
#include "osl/bytes.hpp"
#include "osl/counters.hpp"
#include "osl/lock_guard.hpp"
#include "osl/memory.h"
#include "osl/shared_word.hpp"

std::int32_t TrackMessages = 1;
std::int32_t MaxTrack = 100;
std::int32_t numDupsRepliedTo = 0;
std::int32_t numDupsDropped = 0;

namespace {

using corvane::load_shared;
using corvane::OtherSenders;
using corvane::store_shared;
using corvane::TrackerList;
using corvane::TrackerPtr;

// The longest payload of an IPv4 datagram. A reply that calls itself longer cannot be sent, and
// what it says of itself is not to be believed.
constexpr std::uint32_t kLongestMessage_bytes = 65507;

void* copy_of(const void* bytes, std::size_t size_bytes) noexcept
{
    void* const copy = OSL_Malloc(size_bytes, corvane::allocation_tag("dcba"));
    if (copy != nullptr) std::memcpy(copy, bytes, size_bytes);
    return copy;
}

bool is_over_limit(std::uint32_t completed) noexcept
{
    // Unsigned: a negative limit is a huge one.
    return completed > static_cast<std::uint32_t>(load_shared(MaxTrack));
}

// Takes complete entries out, the oldest first, until fewer than the limit are left. Returns them
// linked by `next`. The caller holds the lock.
LanTracker* take_surplus(LanServer& server) noexcept
{
    TrackerList list(server);
    const auto limit = static_cast<std::uint32_t>(load_shared(MaxTrack));
    LanTracker* surplus = nullptr;
    std::uint32_t completed = load_shared(server.completed);
    // Another thread may have purged since the caller looked.
    for (bool more = is_over_limit(completed); more; more = completed >= limit) {
        LanTracker* const oldest = list.oldest_complete();
        if (oldest == nullptr) break;
        LanTracker* const removed = list.remove(oldest).release();
        removed->next = surplus;
        surplus = removed;
        if (completed > 0) --completed;
    }
    store_shared(server.completed, completed);
    return surplus;
}

}  // namespace

void* LAN_MakeHeaderCopy(const void* header) noexcept
{
    return header == nullptr ? nullptr : copy_of(header, sizeof(LanHeader));
}

void* LAN_MakeMessageCopy(const void* message) noexcept
{
    if (message == nullptr) return nullptr;
    const std::uint32_t length_bytes = corvane::load<LanHeader>(message).length;
    if (length_bytes > kLongestMessage_bytes) return nullptr;
    // Never less than a header, however short the message says it is: a copy's length is read
    // again.
    return copy_of(message, std::max<std::size_t>(length_bytes, sizeof(LanHeader)));
}

std::int32_t CompareHeaderId(const void* a, const void* b) noexcept
{
    constexpr std::size_t kOffset = offsetof(LanHeader, messageID);
    return std::memcmp(static_cast<const std::byte*>(a) + kOffset,
                       static_cast<const std::byte*>(b) + kOffset,
                       sizeof(LanHeader::messageID)) == 0
               ? 0
               : 1;
}

std::int32_t LAN_CompareCommCookies(const void* a, const void* b) noexcept
{
    return std::memcmp(a, b, sizeof(LanTracker::comm_cookie)) == 0 ? 0 : 1;
}

std::int32_t LAN_CompareMessageCookies(const void* a, const void* b) noexcept
{
    return std::memcmp(a, b, sizeof(LanHeader::messageID)) == 0 ? 0 : 1;
}

void* LAN_HandleDuplicate(LanServer* server, const void* comm_cookie, const void* message,
                          std::int32_t* is_duplicate) noexcept
{
    *is_duplicate = 0;
    if (!corvane::wants_tracking(message)) return nullptr;
    const LanTracker* const entry =
        TrackerList(*server).find({message, comm_cookie}, OtherSenders::kTrace);
    if (entry == nullptr) return nullptr;
    *is_duplicate = 1;
    if (entry->reply == nullptr) return nullptr;

    void* const reply = LAN_MakeMessageCopy(entry->reply);
    CORVANE_TRACE("Found duplicate message\n");
    store_shared(numDupsRepliedTo, load_shared(numDupsRepliedTo) + 1);
    corvane::count_event(COUNTERS_EVENT_DUPLICATE_ANSWERED);
    CORVANE_TRACE("Found duplicate message\n");  // twice is what readers of the traces know
    return reply;
}

std::int32_t HeaderInList(const LanServer* server, const void* comm_cookie,
                          const void* message) noexcept
{
    // Looking for an entry never changes the list, at most the index beside it.
    TrackerList list(*const_cast<LanServer*>(server));
    return list.find({message, comm_cookie}, OtherSenders::kPassOver) == nullptr ? 0 : 1;
}

void LAN_RegisterInProcess(LanServer* server, const void* comm_cookie, const void* message) noexcept
{
    if (!corvane::wants_tracking(message)) return;
    TrackerPtr entry = corvane::new_tracker({message, comm_cookie});
    if (!entry || HeaderInList(server, comm_cookie, message) != 0) return;
    TrackerList(*server).append(std::move(entry));
}

void LAN_RegisterComplete(LanServer* server, const void* comm_cookie, const void* message,
                          const void* reply) noexcept
{
    if (server == nullptr || comm_cookie == nullptr || message == nullptr || reply == nullptr) {
        return;
    }
    if (!corvane::wants_tracking(message)) return;
    corvane::osl_ptr<void> copy(LAN_MakeMessageCopy(reply));
    TrackerPtr untracked;  // both are freed when the lock is free again

    const corvane::LockGuard guard(server->lock);
    TrackerList list(*server);
    LanTracker* const entry = list.find({message, comm_cookie}, OtherSenders::kPassOver);
    if (entry == nullptr) return;
    const bool is_first_reply = entry->reply == nullptr;
    if (!copy) {
        // Without a stored reply later copies would be dropped for good: rather execute them.
        if (is_first_reply) untracked = list.remove(entry);
        return;
    }
    void* const previous = std::exchange(entry->reply, copy.release());
    copy.reset(previous);
    if (is_first_reply) list.completed(entry);
    store_shared(server->completed, load_shared(server->completed) + 1);
}

void PurgeTrackerList(LanServer* server) noexcept
{
    if (load_shared(TrackMessages) == 0 || !is_over_limit(load_shared(server->completed))) return;
    LanTracker* surplus = nullptr;
    {
        const corvane::LockGuard guard(server->lock);
        surplus = take_surplus(*server);
    }
    while (surplus != nullptr) {
        CORVANE_TRACE("purging tracker\n");
        const TrackerPtr entry(std::exchange(surplus, surplus->next));
    }
}

void LAN_DumpInfo() noexcept
{
    CORVANE_TRACE("Number of duplicate messages responded to: %d\n", load_shared(numDupsRepliedTo));
    CORVANE_TRACE("Number of duplicate messages dropped:      %d\n", load_shared(numDupsDropped));
}

void DumpTrackerList(std::uint32_t /*ignored*/, const LanServer* server) noexcept
{
    if (!corvane::trace_wanted()) return;
    const corvane::LockGuard guard(const_cast<LanServer*>(server)->lock);  // a lock is never const
    for (const LanTracker* entry = server->head.next; entry != &server->head; entry = entry->next) {
        LANSUP_DumpLanHeader(entry->header);
    }
}

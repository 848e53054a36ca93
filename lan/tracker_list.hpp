// The tracker list of a server, and the index by which it is searched without walking it.
#ifndef CORVANE_LAN_TRACKER_LIST_HPP
#define CORVANE_LAN_TRACKER_LIST_HPP

#include <cstddef>
#include <cstdint>
#include <memory>

#include "lan/server.h"

namespace corvane {

// A list entry as this module makes it: the public entry first, then its places in the index.
struct TrackedRequest {
    LanTracker listed;
    TrackedRequest* same_bucket;     // the next younger one of its hash bucket
    TrackedRequest* older_complete;  // neighbours among the complete ones, in list order
    TrackedRequest* younger_complete;
    std::uint64_t hash;      // of the message identifier
    std::uint64_t sequence;  // grows along the list
};

// Frees an entry with its two copies.
struct FreeTracker {
    void operator()(LanTracker* entry) const noexcept;
};
using TrackerPtr = std::unique_ptr<LanTracker, FreeTracker>;

// What identifies a request: the message's identifier and its sender. Points into the caller's
// bytes.
struct RequestId {
    const void* header;       // 48 bytes
    const void* comm_cookie;  // 16 bytes
};

// True when the sender of this message asks for duplicate detection and the setting grants it.
[[nodiscard]] bool wants_tracking(const void* header) noexcept;

// An entry for a request that begins, not listed yet; null when memory is short. No lock is needed.
[[nodiscard]] TrackerPtr new_tracker(const RequestId& id) noexcept;

// The entries whose identifiers hash alike, oldest first.
struct TrackerBucket {
    TrackedRequest* oldest;
};

// The server's own part: hash buckets by message identifier, and the chain of complete entries,
// both oldest first. It describes the list as long as only this module changed it.
struct TrackerIndex {
    LanTracker* first;  // the list's ends when it was last changed here
    LanTracker* last;
    TrackerBucket* buckets;
    std::size_t bucket_count;  // a power of two
    std::size_t entry_count;
    TrackedRequest* oldest_complete;
    TrackedRequest* youngest_complete;
    std::uint64_t next_sequence;
    std::uint64_t seed;  // makes buckets unforeseeable to those who choose the identifiers
};

// Whether walks tell of entries with the identifier of another sender's message.
enum class OtherSenders { kPassOver, kTrace };

// A server's list. Every call but create_index is made with the server's lock held.
class TrackerList {
public:
    explicit TrackerList(LanServer& server) noexcept : server_(server) {}

    // Gives a new, empty server its index. Without memory for it the list is walked instead.
    static void create_index(LanServer& server) noexcept;

    // Frees the index: from then on the list is walked.
    static void drop_index(LanServer& server) noexcept;

    // The oldest entry of this message and sender, or null.
    [[nodiscard]] LanTracker* find(const RequestId& id, OtherSenders others) const noexcept;

    // Puts an entry of new_tracker at the tail; the list owns it from then on.
    void append(TrackerPtr entry) noexcept;

    // Tells the index that `entry` was given its first reply.
    void completed(LanTracker* entry) noexcept;

    // Takes `entry` out of the list; the caller frees it, best after the lock was given back.
    [[nodiscard]] TrackerPtr remove(LanTracker* entry) noexcept;

    // The oldest entry that holds a reply, or null.
    [[nodiscard]] LanTracker* oldest_complete() const noexcept;

private:
    [[nodiscard]] TrackerIndex* index() const noexcept;
    [[nodiscard]] LanTracker* find_indexed(const TrackerIndex& index, const RequestId& id,
                                           OtherSenders others) const noexcept;
    [[nodiscard]] LanTracker* find_by_walk(const RequestId& id, OtherSenders others) const noexcept;

    LanServer& server_;
};

}  // namespace corvane
#endif

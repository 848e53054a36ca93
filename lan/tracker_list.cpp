// The tracker list: appended at the tail, searched by hash, purged from its oldest complete entry.
#include "lan/tracker_list.hpp"

#include <sys/random.h>

#include <array>
#include <cstring>

#include "mdcmain/log.hpp"
#include "osl/bytes.hpp"
#include "osl/memory.h"
#include "osl/shared_word.hpp"

namespace corvane {
namespace {

constexpr std::size_t kFirstBuckets = 256;

using Identifier = std::array<std::uint64_t, 2>;
static_assert(sizeof(Identifier) == sizeof(LanHeader::messageID));

Identifier identifier_of(const void* header) noexcept
{
    return load<Identifier>(static_cast<const std::byte*>(header) + offsetof(LanHeader, messageID));
}

std::uint64_t hash_of(const Identifier& identifier, std::uint64_t seed) noexcept
{
    // Two rounds of multiply and fold: every bit of the identifier reaches the low bits.
    constexpr std::uint64_t kOdd = 0x9e3779b97f4a7c15;
    std::uint64_t hash = seed;
    for (const std::uint64_t word : identifier) {
        hash = (hash ^ word) * kOdd;
        hash ^= hash >> 32;
    }
    return hash;
}

std::size_t bucket_of(const TrackerIndex& index, std::uint64_t hash) noexcept
{
    return hash & (index.bucket_count - 1);
}

TrackedRequest* tracked(LanTracker* entry) noexcept
{
    // While there is an index, every entry of the list is one of ours and begins one of these.
    return static_cast<TrackedRequest*>(static_cast<void*>(entry));
}

TrackerBucket* new_buckets(std::size_t count) noexcept
{
    return static_cast<TrackerBucket*>(
        OSL_Calloc(count * sizeof(TrackerBucket), allocation_tag("rcrt")));
}

// Puts an entry behind the older ones of its bucket.
void enter(TrackerIndex& index, TrackedRequest* entry) noexcept
{
    entry->same_bucket = nullptr;
    TrackedRequest** link = &index.buckets[bucket_of(index, entry->hash)].oldest;
    while (*link != nullptr) link = &(*link)->same_bucket;
    *link = entry;
}

void leave(TrackerIndex& index, const TrackedRequest* entry) noexcept
{
    TrackedRequest** link = &index.buckets[bucket_of(index, entry->hash)].oldest;
    while (*link != entry) link = &(*link)->same_bucket;
    *link = entry->same_bucket;
}

// Twice the buckets. Each old bucket is entered from its oldest entry on, which keeps the order.
void grow(TrackerIndex& index) noexcept
{
    TrackerBucket* const wider = new_buckets(2 * index.bucket_count);
    if (wider == nullptr) return;  // longer buckets are still right
    TrackerBucket* const narrow = index.buckets;
    const std::size_t narrow_count = index.bucket_count;
    index.buckets = wider;
    index.bucket_count = 2 * narrow_count;
    for (std::size_t i = 0; i < narrow_count; ++i) {
        for (TrackedRequest* entry = narrow[i].oldest; entry != nullptr;) {
            TrackedRequest* const next = entry->same_bucket;
            enter(index, entry);
            entry = next;
        }
    }
    OSL_Free(narrow);
}

void link_complete(TrackerIndex& index, TrackedRequest* entry) noexcept
{
    // Requests complete in nearly the order of the list, so the place is near the young end.
    TrackedRequest* older = index.youngest_complete;
    while (older != nullptr && older->sequence > entry->sequence) older = older->older_complete;
    TrackedRequest* const younger =
        older == nullptr ? index.oldest_complete : older->younger_complete;
    entry->older_complete = older;
    entry->younger_complete = younger;
    (older == nullptr ? index.oldest_complete : older->younger_complete) = entry;
    (younger == nullptr ? index.youngest_complete : younger->older_complete) = entry;
}

void unlink_complete(TrackerIndex& index, const TrackedRequest* entry) noexcept
{
    TrackedRequest* const older = entry->older_complete;
    TrackedRequest* const younger = entry->younger_complete;
    (older == nullptr ? index.oldest_complete : older->younger_complete) = younger;
    (younger == nullptr ? index.youngest_complete : younger->older_complete) = older;
}

void note_ends(TrackerIndex& index, const LanTracker& head) noexcept
{
    index.first = head.next;
    index.last = head.prev;
}

bool is_from(const LanTracker& entry, const RequestId& id, OtherSenders others) noexcept
{
    if (LAN_CompareCommCookies(entry.comm_cookie, id.comm_cookie) == 0) return true;
    if (others == OtherSenders::kTrace) {
        CORVANE_TRACE("Duplicate message ids from different senders.\n");
    }
    return false;
}

}  // namespace

void FreeTracker::operator()(LanTracker* entry) const noexcept
{
    OSL_Free(entry->header);
    OSL_Free(entry->reply);
    OSL_Free(entry);
}

bool wants_tracking(const void* header) noexcept
{
    return load_shared(TrackMessages) != 0 && (load<LanHeader>(header).flags & LAN_FLAG_TRACK) != 0;
}

TrackerPtr new_tracker(const RequestId& id) noexcept
{
    TrackerPtr entry(
        static_cast<LanTracker*>(OSL_Calloc(sizeof(TrackedRequest), allocation_tag("rcrt"))));
    if (!entry) return nullptr;
    entry->header = LAN_MakeHeaderCopy(id.header);
    if (entry->header == nullptr) return nullptr;
    std::memcpy(entry->comm_cookie, id.comm_cookie, sizeof entry->comm_cookie);
    return entry;
}

void TrackerList::create_index(LanServer& server) noexcept
{
    osl_ptr<TrackerIndex> index(
        static_cast<TrackerIndex*>(OSL_Calloc(sizeof(TrackerIndex), allocation_tag("rcrt"))));
    if (!index) return;
    index->buckets = new_buckets(kFirstBuckets);
    if (index->buckets == nullptr) return;
    index->bucket_count = kFirstBuckets;
    note_ends(*index, server.head);
    // Early in the life of a machine there may be no randomness; the zero seed serves as well then.
    (void)!getrandom(&index->seed, sizeof index->seed, GRND_NONBLOCK);
    server.index = index.release();
}

void TrackerList::drop_index(LanServer& server) noexcept
{
    auto* const index = static_cast<TrackerIndex*>(server.index);
    if (index == nullptr) return;
    OSL_Free(index->buckets);
    OSL_Free(index);
    server.index = nullptr;
}

// The index, as long as it describes the list. Other programs may link entries of their own: from
// then on the list is walked.
TrackerIndex* TrackerList::index() const noexcept
{
    auto* const index = static_cast<TrackerIndex*>(server_.index);
    if (index == nullptr) return nullptr;
    if (index->first == server_.head.next && index->last == server_.head.prev) return index;
    drop_index(server_);
    return nullptr;
}

LanTracker* TrackerList::find(const RequestId& id, OtherSenders others) const noexcept
{
    const TrackerIndex* const known = index();
    return known == nullptr ? find_by_walk(id, others) : find_indexed(*known, id, others);
}

LanTracker* TrackerList::find_indexed(const TrackerIndex& index, const RequestId& id,
                                      OtherSenders others) const noexcept
{
    const Identifier identifier = identifier_of(id.header);
    const std::uint64_t hash = hash_of(identifier, index.seed);
    TrackedRequest* entry = index.buckets[bucket_of(index, hash)].oldest;
    for (; entry != nullptr; entry = entry->same_bucket) {
        if (entry->hash != hash || identifier_of(entry->listed.header) != identifier) continue;
        if (is_from(entry->listed, id, others)) return &entry->listed;
    }
    return nullptr;
}

LanTracker* TrackerList::find_by_walk(const RequestId& id, OtherSenders others) const noexcept
{
    for (LanTracker* entry = server_.head.next; entry != &server_.head; entry = entry->next) {
        if (entry->header == nullptr || CompareHeaderId(entry->header, id.header) != 0) continue;
        if (is_from(*entry, id, others)) return entry;
    }
    return nullptr;
}

void TrackerList::append(TrackerPtr owned) noexcept
{
    TrackerIndex* const known = index();
    LanTracker& head = server_.head;
    LanTracker* const entry = owned.release();
    entry->next = &head;
    entry->prev = head.prev;
    head.prev->next = entry;
    head.prev = entry;
    if (known == nullptr) return;
    TrackedRequest* const request = tracked(entry);
    request->hash = hash_of(identifier_of(entry->header), known->seed);
    request->sequence = known->next_sequence++;
    if (++known->entry_count > known->bucket_count) grow(*known);
    enter(*known, request);
    note_ends(*known, head);
}

void TrackerList::completed(LanTracker* entry) noexcept
{
    if (TrackerIndex* const known = index()) link_complete(*known, tracked(entry));
}

TrackerPtr TrackerList::remove(LanTracker* entry) noexcept
{
    TrackerIndex* const known = index();
    if (known != nullptr) {
        leave(*known, tracked(entry));
        if (entry->reply != nullptr) unlink_complete(*known, tracked(entry));
        --known->entry_count;
    }
    entry->prev->next = entry->next;
    entry->next->prev = entry->prev;
    if (known != nullptr) note_ends(*known, server_.head);
    return TrackerPtr(entry);
}

LanTracker* TrackerList::oldest_complete() const noexcept
{
    if (const TrackerIndex* const known = index()) {
        return known->oldest_complete == nullptr ? nullptr : &known->oldest_complete->listed;
    }
    LanTracker* entry = server_.head.next;
    while (entry != &server_.head && entry->reply == nullptr) entry = entry->next;
    return entry == &server_.head ? nullptr : entry;
}

}  // namespace corvane

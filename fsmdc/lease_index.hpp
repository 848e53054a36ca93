// How a lease is found without a walk: by key, by file, by the request that made it. All of it is
// guarded by leaseListLock.
#ifndef CORVANE_FSMDC_LEASE_INDEX_HPP
#define CORVANE_FSMDC_LEASE_INDEX_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "fsmdc/chain_table.hpp"
#include "fsmdc/cookie_hash.hpp"
#include "fsmdc/lease.h"

namespace corvane {

// What the list allocates for a lease: the record that everybody may see, then the links of the
// indexes. A host may hold a million of them: 200 bytes are what one block of the allocator has to
// give.
struct Lease {
    LeaseRecord record;       // first: its address is the lease's
    std::uint32_t granted_s;  // seconds since 1970, modulo 2^32
    // How often it was named, above two marks: three words in the room of one (see the size below).
    std::uint32_t requests_and_marks;
    Lease* next_by_key;     // chain of its bucket
    Lease* next_by_file;    // the same; only the newest lease of a file stands in that table
    Lease* next_by_origin;  // the same; file, message and client together
    Lease* newer_of_file;   // ring of one file's leases: the newest follows the oldest
    Lease* older_of_file;
    Lease* due_next;   // list of leases that are looked at together
    Lease** due_link;  // what points to this lease in that list; null outside

    static constexpr std::uint32_t kNewestOfFile = 1;
    static constexpr std::uint32_t kHandedOut = 2;
    static constexpr std::uint32_t kOneRequest = 4;

    [[nodiscard]] bool is_newest_of_file() const noexcept { return has(kNewestOfFile); }
    // Others hold a pointer: the record may change at any time.
    [[nodiscard]] bool is_handed_out() const noexcept { return has(kHandedOut); }
    void mark_newest_of_file(bool is_newest) noexcept
    {
        requests_and_marks &= ~kNewestOfFile;
        if (is_newest) requests_and_marks |= kNewestOfFile;
    }
    void mark_handed_out() noexcept { requests_and_marks |= kHandedOut; }

    // Modulo 2^30.
    [[nodiscard]] std::uint32_t requests() const noexcept
    {
        return requests_and_marks / kOneRequest;
    }
    void count_request() noexcept { requests_and_marks += kOneRequest; }

private:
    [[nodiscard]] bool has(std::uint32_t mark) const noexcept
    {
        return (requests_and_marks & mark) != 0;
    }
};
static_assert(std::is_standard_layout_v<Lease> && offsetof(Lease, record) == 0);
static_assert(sizeof(void*) != 8 || sizeof(Lease) == 200);

[[nodiscard]] inline Lease& lease_of(LeaseRecord& record) noexcept
{
    return *static_cast<Lease*>(static_cast<void*>(&record));
}

[[nodiscard]] inline std::uint64_t hash_origin(const void* file_cookie, const void* message_cookie,
                                               const void* comm_cookie) noexcept
{
    const HashSeed& seed = hash_seed();
    std::uint64_t state = hash32(file_cookie, seed.words[3], seed);
    state = hash16(message_cookie, state, seed);
    return mix(hash16(comm_cookie, state, seed) ^ seed.words[2], seed.words[1] | 1);
}

class LeaseIndex {
public:
    // Enters a lease that is newer than all others of its file.
    void add(Lease& lease) noexcept;
    void remove(Lease& lease) noexcept;
    void clear() noexcept;

    [[nodiscard]] std::size_t count() const noexcept { return keys_.count(); }
    [[nodiscard]] Lease* by_key(std::uint32_t key) const noexcept;
    // The newest lease of the file.
    [[nodiscard]] Lease* by_file(const void* file_cookie) const noexcept;
    [[nodiscard]] Lease* by_origin(const void* file_cookie, const void* message_cookie,
                                   const void* comm_cookie) const noexcept;

    // True when another lease of the same file is in the index.
    [[nodiscard]] static bool has_other_of_file(const Lease& lease) noexcept
    {
        return lease.older_of_file != &lease;
    }

private:
    // Most requests name a key; the other two tables trade a step for room.
    struct KeyLinks {
        static constexpr std::size_t kLoad = 1;
        static Lease*& next(Lease& lease) noexcept { return lease.next_by_key; }
        static std::uint64_t hash(const Lease& lease) noexcept
        {
            return hash_key(lease.record.key);
        }
    };
    struct FileLinks {
        static constexpr std::size_t kLoad = 3;
        static Lease*& next(Lease& lease) noexcept { return lease.next_by_file; }
        static std::uint64_t hash(const Lease& lease) noexcept
        {
            return hash_cookie(lease.record.fileCookie);
        }
    };
    struct OriginLinks {
        static constexpr std::size_t kLoad = 3;
        static Lease*& next(Lease& lease) noexcept { return lease.next_by_origin; }
        static std::uint64_t hash(const Lease& lease) noexcept
        {
            return hash_origin(lease.record.fileCookie, lease.record.messageCookie,
                               lease.record.commCookie);
        }
    };

    ChainTable<Lease, KeyLinks> keys_;
    ChainTable<Lease, FileLinks> files_;
    ChainTable<Lease, OriginLinks> origins_;
};

}  // namespace corvane
#endif

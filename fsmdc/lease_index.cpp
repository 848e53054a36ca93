// The lease index: three tables, and a ring for each file.
#include "fsmdc/lease_index.hpp"

namespace corvane {

void LeaseIndex::add(Lease& lease) noexcept
{
    keys_.insert(lease, KeyLinks::hash(lease));
    origins_.insert(lease, OriginLinks::hash(lease));
    lease.mark_newest_of_file(true);
    const std::uint64_t hash = FileLinks::hash(lease);
    Lease* const newest = files_.find(hash, [&](const Lease& other) {
        return std::memcmp(other.record.fileCookie, lease.record.fileCookie, FS_COOKIE_BYTES) == 0;
    });
    if (newest == nullptr) {
        lease.newer_of_file = lease.older_of_file = &lease;
        files_.insert(lease, hash);
        return;
    }
    Lease* const oldest = newest->newer_of_file;
    lease.older_of_file = newest;
    lease.newer_of_file = oldest;
    oldest->older_of_file = newest->newer_of_file = &lease;
    newest->mark_newest_of_file(false);
    files_.replace(*newest, lease, hash);
}

void LeaseIndex::remove(Lease& lease) noexcept
{
    keys_.remove(lease, KeyLinks::hash(lease));
    origins_.remove(lease, OriginLinks::hash(lease));
    if (!has_other_of_file(lease)) {
        files_.remove(lease, FileLinks::hash(lease));
        return;
    }
    lease.older_of_file->newer_of_file = lease.newer_of_file;
    lease.newer_of_file->older_of_file = lease.older_of_file;
    if (!lease.is_newest_of_file()) return;
    lease.older_of_file->mark_newest_of_file(true);
    files_.replace(lease, *lease.older_of_file, FileLinks::hash(lease));
}

void LeaseIndex::clear() noexcept
{
    keys_.clear();
    files_.clear();
    origins_.clear();
}

Lease* LeaseIndex::by_key(std::uint32_t key) const noexcept
{
    return keys_.find(hash_key(key), [&](const Lease& lease) { return lease.record.key == key; });
}

Lease* LeaseIndex::by_file(const void* file_cookie) const noexcept
{
    return files_.find(hash_cookie(file_cookie), [&](const Lease& lease) {
        return std::memcmp(lease.record.fileCookie, file_cookie, FS_COOKIE_BYTES) == 0;
    });
}

Lease* LeaseIndex::by_origin(const void* file_cookie, const void* message_cookie,
                             const void* comm_cookie) const noexcept
{
    const std::uint64_t hash = hash_origin(file_cookie, message_cookie, comm_cookie);
    return origins_.find(hash, [&](const Lease& lease) {
        const LeaseRecord& record = lease.record;
        return std::memcmp(record.messageCookie, message_cookie, sizeof record.messageCookie) ==
                   0 &&
               std::memcmp(record.commCookie, comm_cookie, sizeof record.commCookie) == 0 &&
               std::memcmp(record.fileCookie, file_cookie, FS_COOKIE_BYTES) == 0;
    });
}

}  // namespace corvane

// Keeps the lent files and lets each be worked on by one thread at a time.
#include "plugins/mounted/file_table.hpp"

#include <utility>
#include <vector>

#include "fsmdc/fs_plugin.h"

namespace corvane::mounted {
namespace {

using Guard = std::scoped_lock<std::mutex>;

// The daemon may call again for a map it handed out before, but only these calls can bring a new
// client.
bool may_be_new_holder(const MapRequest& request)
{
    const bool is_whole = request.start == 0 && request.length < 0;
    return is_whole && (request.flag & FS_M_FLAG_REMAP) == 0;
}

}  // namespace

FileTable::EntryPtr FileTable::find_or_add(const Volume& volume, const FileId& id)
{
    const Guard guard(mutex_);
    EntryPtr& entry = entries_[id];
    if (entry == nullptr) entry = std::make_shared<Entry>(volume, id);
    return entry;
}

FileTable::EntryPtr FileTable::find(const FileId& id)
{
    const Guard guard(mutex_);
    const auto found = entries_.find(id);
    return found != entries_.end() ? found->second : nullptr;
}

// With the file's lock held.
void FileTable::settle_returned(Entry& entry)
{
    {
        const Guard guard(mutex_);
        if (!std::exchange(entry.has_returned, false)) return;
    }
    entry.file.settle();
}

// With the file's lock held: a file that nobody holds leaves the table, settled.
void FileTable::remove_unlocked(const FileId& id, Entry& entry)
{
    {
        const Guard guard(mutex_);
        if (entry.holders != 0) return;
        entry.has_returned = false;
    }
    entry.file.settle();
    const Guard guard(mutex_);
    entry.is_gone = true;
    entries_.erase(id);
}

template <class Body>
std::uint32_t FileTable::with_file(const Volume& volume, const FileId& id, Body body)
{
    for (;;) {
        const EntryPtr entry = find_or_add(volume, id);
        const Guard io(entry->io);
        {
            const Guard guard(mutex_);
            if (entry->is_gone) continue;
        }
        settle_returned(*entry);
        const std::uint32_t result = body(*entry);
        remove_unlocked(id, *entry);
        return result;
    }
}

std::uint32_t FileTable::map(const Volume& volume, const FileId& id, const MapRequest& request,
                             void* record, std::uint32_t& room_bytes)
{
    return with_file(volume, id, [&](Entry& entry) {
        const std::uint32_t result = entry.file.map(request, record, room_bytes);
        if (result != FS_E_SUCCESS && result != FS_E_PARTIAL) return result;
        const Guard guard(mutex_);
        // An unlocked map locks nothing, but whoever took it may also change sizes: others that
        // hold the file must be counted against that.
        const bool is_unlocked = (request.flag & FS_M_FLAG_UNLOCKED) != 0;
        if (is_unlocked && entry.holders == 0) return result;
        entry.path = entry.file.path();
        const bool is_counted = entry.holders == 0 || may_be_new_holder(request);
        if (is_counted && entry.holders < UINT32_MAX) ++entry.holders;
        return result;
    });
}

std::uint32_t FileTable::set_sizes(const Volume& volume, const FileId& id, SizeRequest request)
{
    return with_file(volume, id, [&](Entry& entry) {
        {
            const Guard guard(mutex_);
            request.holders = entry.holders;
        }
        return entry.file.set_sizes(request);
    });
}

bool FileTable::unlock(const FileId& id)
{
    const Guard guard(mutex_);
    const auto found = entries_.find(id);
    if (found == entries_.end() || found->second->holders == 0) return false;
    found->second->holders = 0;
    found->second->is_adopted = false;
    found->second->has_returned = true;
    return true;
}

std::string FileTable::path_of(const FileId& id)
{
    const Guard guard(mutex_);
    const auto found = entries_.find(id);
    return found != entries_.end() ? found->second->path : std::string();
}

void FileTable::adopt(const Volume& volume, const Loan& loan)
{
    (void)with_file(volume, loan.file, [&](Entry& entry) -> std::uint32_t {
        {
            const Guard guard(mutex_);
            if (entry.holders != 0) return FS_E_SUCCESS;
        }
        if (!entry.file.adopt(loan)) return FS_E_BAD_FILE;
        const Guard guard(mutex_);
        entry.holders = 1;
        entry.is_adopted = true;
        entry.path = entry.file.path();
        return FS_E_SUCCESS;
    });
}

void FileTable::end_adopted(const Volume& volume, const Loan& loan)
{
    (void)with_file(volume, loan.file, [&](Entry& entry) -> std::uint32_t {
        const Guard guard(mutex_);
        if (std::exchange(entry.is_adopted, false)) --entry.holders;
        return FS_E_SUCCESS;
    });
}

void FileTable::settle(const FileId& id)
{
    const EntryPtr entry = find(id);
    if (entry == nullptr) return;
    const Guard io(entry->io);
    {
        const Guard guard(mutex_);
        if (entry->is_gone) return;
    }
    settle_returned(*entry);
    remove_unlocked(id, *entry);
}

void FileTable::settle_all()
{
    std::vector<FileId> all;
    {
        const Guard guard(mutex_);
        for (auto& [id, entry] : entries_) {
            if (entry->holders != 0) entry->has_returned = true;
            entry->holders = 0;
            entry->is_adopted = false;
            all.push_back(id);
        }
    }
    for (const FileId& id : all) settle(id);
}

}  // namespace corvane::mounted

// Keeps the table of locked files.
#include "plugins/ext/file_locks.hpp"

#include <utility>

namespace corvane::ext {

using Guard = std::scoped_lock<std::mutex>;

FileLocks::Entry* FileLocks::find(FileId file)
{
    const auto found = entries_.find(file.inode);
    if (found == entries_.end() || found->second.generation != file.generation) return nullptr;
    return &found->second;
}

const FileLocks::Entry* FileLocks::find(FileId file) const
{
    return const_cast<FileLocks*>(this)->find(file);
}

void FileLocks::lock(FileId file, bool may_be_new_holder)
{
    const Guard guard(mutex_);
    Entry& entry = entries_[file.inode];
    entry.generation = file.generation;
    if (entry.holders == 0 || (may_be_new_holder && entry.holders < UINT32_MAX)) ++entry.holders;
}

bool FileLocks::unlock(FileId file)
{
    std::shared_ptr<const Layout> layout;  // freed after the lock is
    const Guard guard(mutex_);
    Entry* const entry = find(file);
    if (entry == nullptr) return false;
    layout = std::move(entry->layout);
    if (!entry->freed.empty() || entry->has_loan) {
        returned_.push_back({file, std::move(entry->freed), entry->has_loan});
    }
    entries_.erase(file.inode);
    return true;
}

std::uint32_t FileLocks::holders(FileId file) const
{
    const Guard guard(mutex_);
    const Entry* const entry = find(file);
    return entry != nullptr ? entry->holders : 0;
}

std::shared_ptr<const Layout> FileLocks::layout(FileId file) const
{
    const Guard guard(mutex_);
    const Entry* const entry = find(file);
    return entry != nullptr ? entry->layout : nullptr;
}

void FileLocks::keep_layout(FileId file, std::shared_ptr<const Layout> layout)
{
    const Guard guard(mutex_);
    if (Entry* const entry = find(file)) entry->layout = std::move(layout);
}

void FileLocks::forget_layout(FileId file)
{
    keep_layout(file, nullptr);
}

std::vector<BlockRange> FileLocks::prepared(FileId file) const
{
    const Guard guard(mutex_);
    const Entry* const entry = find(file);
    return entry != nullptr ? entry->prepared : std::vector<BlockRange>{};
}

void FileLocks::set_prepared(FileId file, std::vector<BlockRange> ranges)
{
    const Guard guard(mutex_);
    if (Entry* const entry = find(file)) entry->prepared = std::move(ranges);
}

void FileLocks::set_loan(FileId file, bool has_loan)
{
    const Guard guard(mutex_);
    if (Entry* const entry = find(file)) {
        entry->has_loan = has_loan;
    } else if (has_loan) {
        returned_.push_back({file, {}, true});
    }
}

void FileLocks::hold_back(FileId file, const std::vector<BlockRange>& freed)
{
    if (freed.empty()) return;
    const Guard guard(mutex_);
    if (Entry* const entry = find(file)) {
        entry->freed.insert(entry->freed.end(), freed.begin(), freed.end());
    } else {
        returned_.push_back({file, freed, false});
    }
}

std::vector<BlockRange> FileLocks::held_back() const
{
    const Guard guard(mutex_);
    std::vector<BlockRange> all;
    for (const auto& [inode, entry] : entries_) {
        all.insert(all.end(), entry.freed.begin(), entry.freed.end());
    }
    for (const auto& returned : returned_) {
        all.insert(all.end(), returned.freed.begin(), returned.freed.end());
    }
    return all;
}

std::vector<Returned> FileLocks::take_returned()
{
    const Guard guard(mutex_);
    return std::exchange(returned_, {});
}

}  // namespace corvane::ext

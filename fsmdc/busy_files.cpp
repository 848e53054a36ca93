// The table of busy files.
#include "fsmdc/busy_files.hpp"

#include <algorithm>

#include "fsmdc/cookie_hash.hpp"
#include "osl/memory.h"

namespace corvane {

void BusyFiles::note(const LeaseRecord& record) noexcept
{
    const std::uint64_t hash = hash_cookie(record.fileCookie);
    auto& set = sets_[hash % kSets];
    BusyFile* weakest = set.data();
    for (BusyFile& place : set) {
        if (place.hash == hash && place.number != 0) {  // 64 secret bits: no other file has them
            ++place.requests;
            if (place.weight < kMostPoints) ++place.weight;
            return;
        }
        if (place.weight < weakest->weight) weakest = &place;
    }
    if (weakest->weight == 0) return enter(*weakest, hash, record);
    for (BusyFile& place : set) --place.weight;
}

void BusyFiles::enter(BusyFile& place, std::uint64_t hash, const LeaseRecord& record) noexcept
{
    if (++last_number_ == 0) ++last_number_;
    place.hash = hash;
    place.number = last_number_;
    place.requests = place.weight = 1;
    place.library = record.library;
    OSL_MemCopy(place.volume_cookie, record.volumeCookie, sizeof place.volume_cookie);
    OSL_MemCopy(place.file_cookie, record.fileCookie, sizeof place.file_cookie);
}

std::size_t BusyFiles::copy(std::span<BusyFile> files) const noexcept
{
    std::size_t count = 0;
    for (const auto& set : sets_) {
        for (const BusyFile& place : set) {
            if (place.number != 0 && count < files.size()) files[count++] = place;
        }
    }
    return count;
}

const BusyFile* BusyFiles::find(std::uint32_t number) const noexcept
{
    if (number == 0) return nullptr;
    for (const auto& set : sets_) {
        const auto* const found = std::ranges::find(set, number, &BusyFile::number);
        if (found != set.end()) return found;
    }
    return nullptr;
}

void BusyFiles::clear() noexcept
{
    for (auto& set : sets_) set.fill({});
}

}  // namespace corvane

// The cache of open catalogues, and their end.
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "nls/catalogue_handle.hpp"
#include "nls/catalogue_runtime.h"
#include "nls/set_state.hpp"

vor_cache_entry* catCache[VOR_CACHE_SLOTS] = {};
std::uint32_t lookTicker = 0;

namespace {

using corvane::nls_ptr;

// The first empty slot, else the closed entry that was looked up longest ago, else -1.
std::int32_t slot_for_new() noexcept
{
    std::int32_t oldest = -1;
    for (std::int32_t slot = 0; slot < VOR_CACHE_SLOTS; ++slot) {
        const vor_cache_entry* const entry = catCache[slot];
        if (entry == nullptr) return slot;
        if (entry->inUse != 0) continue;
        if (oldest < 0 || entry->lastUse < catCache[oldest]->lastUse) oldest = slot;
    }
    return oldest;
}

void empty_slot(std::int32_t slot) noexcept
{
    vor_cache_entry* const entry = catCache[slot];
    if (entry == nullptr) return;
    real_catclose(entry->catalogue);
    nls_free(entry->path);
    nls_free(entry);
    catCache[slot] = nullptr;
}

}  // namespace

namespace corvane {

void release_catalogue(vor_cat_t catalogue) noexcept
{
    if (catalogue->fd >= 0) close(catalogue->fd);
    for (std::int32_t index = 0; index < catalogue->numSets; ++index) {
        MCSetT& set = catalogue->sets[index];
        if (!is_loaded(set)) continue;
        nls_free(slot_address<char>(set.dataOffset));
        nls_free(slot_address<char>(set.msgIndex));
    }
    nls_free(catalogue->sets);
    nls_free(catalogue);
}

}  // namespace corvane

std::int32_t cacheIndex(const char* path) noexcept
{
    if (path == nullptr) return -1;
    for (std::int32_t slot = 0; slot < VOR_CACHE_SLOTS; ++slot) {
        if (catCache[slot] != nullptr && std::strcmp(catCache[slot]->path, path) == 0) return slot;
    }
    return -1;
}

vor_cat_t lookupCat(const char* path) noexcept
{
    const std::int32_t slot = cacheIndex(path);
    if (slot < 0) return corvane::kNoCatalogue;
    // A hit leaves the in-use flag alone: a closed catalogue that is opened again may be evicted.
    catCache[slot]->lastUse = lookTicker++;
    return catCache[slot]->catalogue;
}

std::int32_t addCat(const char* path, vor_cat_t catalogue) noexcept
{
    if (path == nullptr) return -1;
    const std::int32_t slot = slot_for_new();
    if (slot < 0) return -1;
    const std::size_t path_bytes = std::strlen(path) + 1;
    nls_ptr<char> copy(static_cast<char*>(nls_malloc(path_bytes)));
    nls_ptr<vor_cache_entry> entry(
        static_cast<vor_cache_entry*>(nls_malloc(sizeof(vor_cache_entry))));
    if (copy == nullptr || entry == nullptr) return -1;
    std::memcpy(copy.get(), path, path_bytes);
    empty_slot(slot);
    *entry = {copy.release(), catalogue, lookTicker, /*inUse=*/1};
    catCache[slot] = entry.release();
    return 0;
}

void real_catclose(vor_cat_t catalogue) noexcept
{
    if (catalogue == nullptr || catalogue == corvane::kNoCatalogue) return;
    if ((catalogue->flags & VOR_LOAD_ALL) == 0) {
        std::printf("calling close on cat->fd %d\n", catalogue->fd);
        std::fflush(stdout);
    }
    corvane::release_catalogue(catalogue);
}

std::int32_t vor_catclose(vor_cat_t catalogue) noexcept
{
    for (vor_cache_entry* const entry : catCache) {
        if (entry == nullptr || entry->inUse == 0 || entry->catalogue != catalogue) continue;
        entry->inUse = 0;
        return 0;
    }
    return -1;
}

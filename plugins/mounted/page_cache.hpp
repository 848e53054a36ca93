// The controller's own copy of a file's bytes: written back and dropped, and seen to be gone.
#ifndef CORVANE_PLUGINS_MOUNTED_PAGE_CACHE_HPP
#define CORVANE_PLUGINS_MOUNTED_PAGE_CACHE_HPP

#include <cstdint>
#include <optional>

namespace corvane::mounted {

// Writes the file's dirty pages and its metadata back, then drops every page. False when pages stay
// (somebody maps the file, or keeps reading it) or cannot be written: `errno` is then EBUSY or the
// error. A page that stays would hide what a client writes; dirtied later, it would destroy it.
bool write_back_and_drop(int descriptor);

// Pages of the file that are in memory; nothing when the kernel does not say.
std::optional<std::uint64_t> count_cached_pages(int descriptor);

}  // namespace corvane::mounted

#endif

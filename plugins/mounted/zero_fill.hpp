// Written zeros: blocks that the file system takes for data, as clients need them.
#ifndef CORVANE_PLUGINS_MOUNTED_ZERO_FILL_HPP
#define CORVANE_PLUGINS_MOUNTED_ZERO_FILL_HPP

#include <cstddef>
#include <cstdint>
#include <span>

namespace corvane::mounted {

// Makes written zeros of a range that has no written block: whole blocks, a hole or unwritten.
// Returns the bytes done, from its start; fewer than all when the volume is full or the write
// failed, and `error` says which (an errno value). Nothing of it stays in the page cache.
std::uint64_t write_zeros(int descriptor, std::uint64_t from, std::uint64_t end,
                          std::uint32_t block_bytes, int& error);

// Whether a range of whole blocks reads as zeros.
bool is_all_zeros(int descriptor, std::uint64_t from, std::uint64_t end);

// Makes a hole of a range of whole blocks. The file's size stays.
bool punch_hole(int descriptor, std::uint64_t from, std::uint64_t end);

// Writes one block past the page cache.
bool write_block(int descriptor, std::uint64_t at, std::span<const std::byte> block);

}  // namespace corvane::mounted

#endif

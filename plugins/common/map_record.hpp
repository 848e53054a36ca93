// Writes map records: extents one by one into a buffer that ends when it ends.
#ifndef CORVANE_PLUGINS_COMMON_MAP_RECORD_HPP
#define CORVANE_PLUGINS_COMMON_MAP_RECORD_HPP

#include <cstdint>
#include <span>

#include "fsmdc/records.h"
#include "plugins/common/runs.hpp"

namespace corvane::plugin {

// What a map record says about one file, in blocks but for the size.
struct MapSource {
    const Layout& layout;
    std::span<const BlockRange> prepared;  // unwritten on disk, yet given out as data
    std::uint32_t block_bytes = 0;
    std::uint64_t file_bytes = 0;
};

// Writes the record of the blocks `first` up to `end` of the file, as many extents as fit. Returns
// FS_E_SUCCESS, FS_E_PARTIAL when the room ended first, or FS_E_OUT_OF_MEMORY (and nothing
// written) when it does not even hold one extent of a range that needs one. `room_bytes`: in the
// room, out the bytes written.
std::uint32_t write_map_record(const MapSource& source, std::uint64_t first, std::uint64_t end,
                               void* record, std::uint32_t& room_bytes);

}  // namespace corvane::plugin

#endif

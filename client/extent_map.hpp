// A file's map: which bytes of the file lie where, checked against everything that could mislead.
#ifndef CORVANE_CLIENT_EXTENT_MAP_HPP
#define CORVANE_CLIENT_EXTENT_MAP_HPP

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "client/reply.hpp"
#include "client/volume.hpp"

namespace corvane {

enum class Kind {
    kData,       // the blocks hold the file's bytes
    kHole,       // no blocks; reads as zeros
    kUnwritten,  // blocks that read as zeros
};

struct Extent {
    std::int64_t file_offset = 0;  // bytes
    std::int64_t bytes = 0;
    Kind kind = Kind::kHole;
    std::size_t disk_index = 0;     // meaningless for a hole, as is:
    std::int64_t slice_offset = 0;  // bytes from the start of the volume's slice on that disk

    [[nodiscard]] std::int64_t file_end() const { return file_offset + bytes; }
};

// One reply's worth of a map. Extents are sorted, do not overlap and lie inside the slices.
struct ExtentMap {
    std::int64_t file_size = 0;
    std::int64_t allocation = 0;
    std::int64_t start = 0;  // what the map covers; nothing in it means a hole
    std::int64_t end = 0;
    bool is_complete = true;  // nothing of the file lies behind it
    std::vector<Extent> extents;
};

// What was asked for.
struct AskedRange {
    std::int64_t start = 0;
    std::int64_t bytes = 0;  // 0 = to the end of the file
};

// Reads the map record of a translated reply whose result is 0 or 1 (`is_partial`). Throws Failure:
// the plug-in's error text when it sent one, else kBadReply with what is wrong.
[[nodiscard]] ExtentMap read_map(const Reply& reply, std::size_t record_offset,
                                 const Volume& volume, const AskedRange& asked, bool is_partial);

// True when the reply has a map record at all: the shortest partial reply has none.
[[nodiscard]] bool has_map(const Reply& reply, std::size_t record_offset);

// Returns `extents` with every uncovered byte of [start, end) made a hole of its own, cut to that
// range: their union is the range.
[[nodiscard]] std::vector<Extent> without_gaps(std::span<const Extent> extents, std::int64_t start,
                                               std::int64_t end);

// Throws Failure(kBadReply) when two extents with blocks share some of them: writing through such a
// map would overwrite one part of the file with another.
void check_no_shared_blocks(std::span<const Extent> extents);

}  // namespace corvane
#endif

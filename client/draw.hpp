// Draws a file's map: the file to scale, its disks to scale, a legend and the list of its pieces.
#ifndef CORVANE_CLIENT_DRAW_HPP
#define CORVANE_CLIENT_DRAW_HPP

#include <cstdint>
#include <string>
#include <vector>

#include "client/bar.hpp"
#include "client/extent_map.hpp"
#include "client/volume.hpp"

namespace corvane {

struct FileMap {
    std::string share;
    std::string path;
    std::int64_t file_size = 0;
    std::int64_t allocation = 0;
    Volume volume;
    std::vector<Extent> extents;  // without gaps, adjacent ones joined
};

// For each extent the number of its fragment, from 1: blocks that follow one another on a disk are
// one fragment, whatever they hold. 0 for holes.
[[nodiscard]] std::vector<std::size_t> number_fragments(const FileMap& map);

// The counts that sum up a map.
struct MapSummary {
    std::size_t fragment_count = 0;
    std::size_t hole_count = 0;
    std::size_t unwritten_count = 0;
};
[[nodiscard]] MapSummary summarize(const FileMap& map);

// "10 MiB (10485760 bytes) in 3 fragments, 1 hole": the first line of every text about a map.
[[nodiscard]] std::string summary_text(const FileMap& map);

// The byte of the disk at which an extent begins.
[[nodiscard]] std::int64_t disk_offset(const FileMap& map, const Extent& extent);

[[nodiscard]] const char* kind_name(Kind kind);

// The whole drawing, lines ended by newlines, `style.width` columns wide.
[[nodiscard]] std::string draw_map(const FileMap& map, const DrawStyle& style);

}  // namespace corvane
#endif

// A file's blocks as the kernel tells them (FIEMAP), refused unless they can be lent.
#ifndef CORVANE_PLUGINS_MOUNTED_FILE_EXTENTS_HPP
#define CORVANE_PLUGINS_MOUNTED_FILE_EXTENTS_HPP

#include <cstdint>
#include <string>
#include <vector>

namespace corvane::mounted {

// All in bytes; `physical` counts from the start of the mounted device.
struct FileExtent {
    std::uint64_t logical = 0;
    std::uint64_t physical = 0;
    std::uint64_t bytes = 0;
    bool is_unwritten = false;
    bool is_shared = false;  // another file has the same blocks

    [[nodiscard]] std::uint64_t end() const noexcept { return logical + bytes; }
    bool operator==(const FileExtent&) const = default;
};

// What an answer must keep to.
struct ExtentBounds {
    std::uint64_t end = 0;  // of the range asked for, from the file's start; a multiple of blocks
    std::uint64_t device_bytes = 0;
    std::uint32_t block_bytes = 0;
};

// Reads the extents of a file's first `bounds.end` bytes, after writing its dirty pages back. They
// come sorted, disjoint, whole blocks, inside the bounds; holes are absent. Otherwise returns a
// result code (FS_E_NO_DIRECT for blocks that cannot be lent, FS_E_MISC_ERROR for damage) and says
// in `wrong` why.
std::uint32_t read_extents(int descriptor, const ExtentBounds& bounds,
                           std::vector<FileExtent>& extents, std::string& wrong);

// Returns the bytes up to `end` that no written block holds: holes, and unwritten blocks.
struct Gap {
    std::uint64_t from = 0;
    std::uint64_t end = 0;
    bool is_hole = true;
};
std::vector<Gap> gaps_of(const std::vector<FileExtent>& extents, std::uint64_t end);

}  // namespace corvane::mounted

#endif

// Which blocks a file has: read out of its inode and checked before anyone may use it.
#ifndef CORVANE_PLUGINS_EXT_LAYOUT_HPP
#define CORVANE_PLUGINS_EXT_LAYOUT_HPP

#include <cstdint>
#include <string>
#include <vector>

#include "plugins/common/runs.hpp"
#include "plugins/ext/ext_handles.hpp"

namespace corvane::ext {

using plugin::BlockRange;
using plugin::Layout;
using plugin::Run;

// Where the volume keeps its own records: superblocks, descriptors, bitmaps, inode tables, journal.
// A file that claims such a block is damaged, and no client may ever write there.
class MetadataZones {
public:
    // Returns what is wrong with the volume, or an empty text.
    std::string read(ext2_filsys fs);
    [[nodiscard]] bool touches(std::uint64_t first, std::uint64_t count) const noexcept;

private:
    std::string add_file(ext2_filsys fs, ext2_ino_t inode_number);
    BlockBitmap zones_;
};

// Reads the layout of a file, extents or indirect blocks. Returns what is wrong with the file, or
// an empty text: a block outside the volume or in `zones`, one that the block bitmap (where it is
// loaded) calls free, extents that overlap or go backwards.
std::string read_layout(ext2_filsys fs, ext2_ino_t inode_number, ext2_inode& inode,
                        const MetadataZones& zones, Layout& layout);

}  // namespace corvane::ext

#endif

// Changes to one file's extent tree: new runs, and unwritten blocks that become data.
#ifndef CORVANE_PLUGINS_EXT_EXTENT_TREE_HPP
#define CORVANE_PLUGINS_EXT_EXTENT_TREE_HPP

#include <span>

#include "plugins/ext/layout.hpp"

namespace corvane::ext {

// Longest run that one extent can hold, written or not.
constexpr std::uint64_t kExtentLimit_blocks = EXT_UNINIT_MAX_LEN;

// Used within a VolumeChange.
class ExtentTree {
public:
    // `inode` must live as long as the tree; changes to the tree go into it and onto the disk.
    ExtentTree(ext2_filsys fs, ext2_ino_t inode_number, ext2_inode& inode);

    // Prepares a change around `block` of the file: puts copies into new blocks of those tree nodes
    // on the way to it that the disk uses, so that the old tree stays whole there until the inode
    // is written. EXT2_ET_BLOCK_ALLOC_FAIL when there is no room; some nodes may have been copied.
    errcode_t copy_path(std::uint64_t block);

    // Adds a run (at most kExtentLimit_blocks) where the file has a hole, after copy_path() for its
    // first block. On failure, EXT2_ET_BLOCK_ALLOC_FAIL when the tree cannot grow, the tree is as
    // it was.
    errcode_t insert(const Run& run);

    // Makes data of the unwritten blocks from `first` up to `end`, a range without holes.
    // `done_end` says how far it came, on failure too.
    errcode_t make_written(std::uint64_t first, std::uint64_t end, std::uint64_t& done_end);

    // Frees the blocks of the file from `first` on; `runs` are all it has. (ext2fs_punch takes a
    // run that ends with the volume's last block for damage.)
    errcode_t cut_from(std::uint64_t first, std::span<const Run> runs);

private:
    errcode_t cut_extent(const Run& extent, std::uint64_t first);
    errcode_t copy_node(ext2fs_extent& node);
    errcode_t copy_path_if_room(std::uint64_t block);
    errcode_t put(const Run& run, int how);
    errcode_t make_part_written(const Run& extent, std::uint64_t first, std::uint64_t end);
    errcode_t join_with_previous(std::uint64_t first);
    errcode_t read_extent_at(std::uint64_t block, Run& extent);
    errcode_t take_back(std::uint64_t block, const Run& run, errcode_t error);

    ext2_filsys fs_;
    ext2_inode& inode_;
    ExtentHandle handle_;
    errcode_t open_error_ = 0;
};

}  // namespace corvane::ext

#endif

// Edits extent trees through libext2fs, leaving them whole when a step finds no room.
#include "plugins/ext/extent_tree.hpp"

#include <algorithm>
#include <vector>

#include "plugins/ext/volume_change.hpp"

namespace corvane::ext {
namespace {

constexpr int kReplace = -1;
constexpr int kInsertBefore = 0;
constexpr int kInsertAfter = EXT2_EXTENT_INSERT_AFTER;

Run to_run(const ext2fs_extent& extent)
{
    return {extent.e_lblk, extent.e_pblk, extent.e_len,
            (extent.e_flags & EXT2_EXTENT_FLAGS_UNINIT) != 0};
}

Run part_of(const Run& run, std::uint64_t first, std::uint64_t end, bool is_unwritten)
{
    return {first, run.physical + (first - run.logical), end - first, is_unwritten};
}

bool can_join(const Run& left, const Run& right)
{
    return left.end() == right.logical && left.physical + left.count == right.physical &&
           left.is_unwritten == right.is_unwritten &&
           left.count + right.count <= kExtentLimit_blocks;
}

}  // namespace

ExtentTree::ExtentTree(ext2_filsys fs, ext2_ino_t inode_number, ext2_inode& inode)
    : fs_(fs), inode_(inode)
{
    ext2_extent_handle_t opened = nullptr;
    open_error_ = ext2fs_extent_open2(fs, inode_number, &inode, &opened);
    handle_.reset(opened);
}

errcode_t ExtentTree::copy_path(std::uint64_t block)
{
    if (open_error_ != 0) return open_error_;
    ext2_extent_info info{};
    if (errcode_t error = ext2fs_extent_get_info(handle_.get(), &info)) return error;
    for (int height = info.max_depth; height > 0; --height) {
        const errcode_t found = ext2fs_extent_goto2(handle_.get(), height, block);
        if (found != 0 && found != EXT2_ET_EXTENT_NOT_FOUND) return found;
        ext2fs_extent node{};  // the entry that leads to it
        errcode_t error = ext2fs_extent_get(handle_.get(), EXT2_EXTENT_CURRENT, &node);
        if (error == 0 && !VolumeChange::is_new(fs_, node.e_pblk)) error = copy_node(node);
        if (error != 0) return error;
    }
    return 0;
}

errcode_t ExtentTree::copy_node(ext2fs_extent& node)
{
    const blk64_t old_block = node.e_pblk;
    blk64_t new_block = 0;
    if (errcode_t error = ext2fs_new_block3(fs_, old_block, nullptr, &new_block, nullptr)) {
        return error;
    }
    std::vector<char> content(fs_->blocksize);
    ext2fs_block_alloc_stats2(fs_, new_block, +1);
    errcode_t error = io_channel_read_blk64(fs_->io, old_block, 1, content.data());
    if (error == 0) error = io_channel_write_blk64(fs_->io, new_block, 1, content.data());
    node.e_pblk = new_block;
    if (error == 0) error = ext2fs_extent_replace(handle_.get(), 0, &node);
    if (error == 0) ext2fs_block_alloc_stats2(fs_, old_block, -1);
    return error;
}

// On a full volume nodes are changed in place. Nothing can be added there, so that a node only
// loses entries from its end or has them made written: with the inode at the right end of the
// order (VolumeChange::Order) it fits the tree around it at any time.
errcode_t ExtentTree::copy_path_if_room(std::uint64_t block)
{
    const errcode_t error = copy_path(block);
    return error == EXT2_ET_BLOCK_ALLOC_FAIL ? 0 : error;
}

errcode_t ExtentTree::put(const Run& run, int how)
{
    ext2fs_extent extent{};
    extent.e_lblk = run.logical;
    extent.e_pblk = run.physical;
    extent.e_len = static_cast<__u32>(run.count);
    extent.e_flags = EXT2_EXTENT_FLAGS_LEAF | (run.is_unwritten ? EXT2_EXTENT_FLAGS_UNINIT : 0U);
    if (how == kReplace) return ext2fs_extent_replace(handle_.get(), 0, &extent);
    if (errcode_t error = ext2fs_extent_insert(handle_.get(), how, &extent)) return error;
    return ext2fs_extent_fix_parents(handle_.get());
}

errcode_t ExtentTree::insert(const Run& run)
{
    if (open_error_ != 0) return open_error_;
    const errcode_t found = ext2fs_extent_goto(handle_.get(), run.logical);
    if (found == 0) return EXT2_ET_EXTENT_INVALID_LENGTH;  // not a hole: the caller is wrong
    if (found != EXT2_ET_EXTENT_NOT_FOUND) return found;
    ext2fs_extent current{};
    const errcode_t error = ext2fs_extent_get(handle_.get(), EXT2_EXTENT_CURRENT, &current);
    if (error == EXT2_ET_NO_CURRENT_NODE) return put(run, kInsertBefore);
    if (error != 0) return error;
    if (run.logical < current.e_lblk) return put(run, kInsertBefore);
    const Run left = to_run(current);
    if (!can_join(left, run)) return put(run, kInsertAfter);
    return put({left.logical, left.physical, left.count + run.count, left.is_unwritten}, kReplace);
}

errcode_t ExtentTree::make_written(std::uint64_t first, std::uint64_t end, std::uint64_t& done_end)
{
    done_end = first;
    if (open_error_ != 0) return open_error_;
    while (done_end < end) {
        Run extent;
        if (errcode_t error = copy_path_if_room(done_end)) return error;
        if (errcode_t error = read_extent_at(done_end, extent)) return error;
        const std::uint64_t stop = std::min(end, extent.end());
        if (extent.is_unwritten) {
            if (errcode_t error = make_part_written(extent, done_end, stop)) return error;
            if (errcode_t error = join_with_previous(done_end)) return error;
        }
        done_end = stop;
    }
    return 0;
}

// One unwritten extent becomes up to three. When the tree finds no room for the second or the
// third, what stands before it takes its blocks back, unwritten as they were.
errcode_t ExtentTree::make_part_written(const Run& extent, std::uint64_t first, std::uint64_t end)
{
    const Run left = part_of(extent, extent.logical, first, /*is_unwritten=*/true);
    const Run middle = part_of(extent, first, end, /*is_unwritten=*/false);
    const Run right = part_of(extent, end, extent.end(), /*is_unwritten=*/true);
    errcode_t error = 0;
    if (left.count != 0) {
        error = put(left, kReplace);
        if (error == 0) error = put(middle, kInsertAfter);
        if (error != 0) return take_back(left.logical, extent, error);
    } else {
        error = put(middle, kReplace);
    }
    if (error != 0 || right.count == 0) return error;
    Run current;
    error = read_extent_at(middle.logical, current);
    if (error == 0) error = put(right, kInsertAfter);
    if (error == 0) return 0;
    const Run rest = part_of(extent, first, extent.end(), /*is_unwritten=*/true);
    return take_back(middle.logical, rest, error);
}

// Returns the error that made it necessary, or the one that made it fail.
errcode_t ExtentTree::take_back(std::uint64_t block, const Run& run, errcode_t error)
{
    Run current;
    if (errcode_t failed = read_extent_at(block, current)) return failed;
    if (errcode_t failed = put(run, kReplace)) return failed;
    return error;
}

// Joins the extent that begins at `first` with its left neighbour in the same tree node, so that a
// file that grows in small steps does not fill the tree.
errcode_t ExtentTree::join_with_previous(std::uint64_t first)
{
    Run right;
    if (errcode_t error = read_extent_at(first, right)) return error;
    ext2fs_extent previous{};
    if (ext2fs_extent_get(handle_.get(), EXT2_EXTENT_PREV_SIB, &previous) != 0) return 0;
    const Run left = to_run(previous);
    if (!can_join(left, right)) return 0;
    Run current;
    errcode_t error = read_extent_at(right.logical, current);
    if (error == 0) error = ext2fs_extent_delete(handle_.get(), 0);
    if (error == 0) error = read_extent_at(left.logical, current);
    if (error != 0) return error;
    return put({left.logical, left.physical, left.count + right.count, left.is_unwritten},
               kReplace);
}

errcode_t ExtentTree::cut_from(std::uint64_t first, std::span<const Run> runs)
{
    // Of the nodes that are left, only those on the way to the first block cut off are changed.
    if (errcode_t error = copy_path_if_room(first)) return error;
    for (auto run = runs.rbegin(); run != runs.rend() && run->end() > first; ++run) {
        const std::uint64_t least = std::max(run->logical, first);
        // A run is made of one extent or more: take them from its end.
        for (std::uint64_t end = run->end(); end > least;) {
            Run extent;
            if (errcode_t error = read_extent_at(end - 1, extent)) return error;
            if (errcode_t error = cut_extent(extent, least)) return error;
            end = extent.logical;
        }
    }
    return 0;
}

errcode_t ExtentTree::cut_extent(const Run& extent, std::uint64_t first)
{
    const std::uint64_t kept = first > extent.logical ? first - extent.logical : 0;
    errcode_t error = 0;
    if (kept != 0) {
        error = put(part_of(extent, extent.logical, first, extent.is_unwritten), kReplace);
    } else {
        error = ext2fs_extent_delete(handle_.get(), 0);
        if (error == 0) error = ext2fs_extent_fix_parents(handle_.get());
        if (error == EXT2_ET_NO_CURRENT_NODE) error = 0;  // the tree is empty
    }
    if (error != 0) return error;
    VolumeChange::free_range(fs_, {extent.physical + kept, extent.count - kept});
    return ext2fs_iblk_sub_blocks(fs_, &inode_, extent.count - kept);
}

// Leaves the handle at the extent that holds `block`.
errcode_t ExtentTree::read_extent_at(std::uint64_t block, Run& extent)
{
    ext2fs_extent found{};
    if (errcode_t error = ext2fs_extent_goto(handle_.get(), block)) return error;
    if (errcode_t error = ext2fs_extent_get(handle_.get(), EXT2_EXTENT_CURRENT, &found)) {
        return error;
    }
    extent = to_run(found);
    return 0;
}

}  // namespace corvane::ext

// Allocates: finds free blocks, zeroes them, and hangs them into the file.
#include <algorithm>

#include "plugins/common/block_ranges.hpp"
#include "plugins/ext/extent_tree.hpp"
#include "plugins/ext/size_change.hpp"

namespace corvane::ext {
namespace {

// Left free when blocks are allocated past a file's end: making data of them later may grow its
// tree.
constexpr std::uint64_t kTreeReserve_blocks = 8;
// One data block without extents may take three indirect blocks with it.
constexpr std::uint64_t kIndirectReserve_blocks = 4;

}  // namespace

// Blocks held back are free on disk, but not to be had.
std::uint64_t SizeChange::usable_blocks() const
{
    std::uint64_t usable = ext2fs_free_blocks_count(fs_->super);
    for (const BlockRange& range : volume_.locks.held_back()) {
        usable -= std::min(usable, range.count);
    }
    return usable;
}

bool SizeChange::fill_hole(std::uint64_t first, std::uint64_t end)
{
    if (!file_.has_extents()) return fill_hole_indirect(first, end);
    const bool is_past_end = first >= end_block_;
    const std::uint64_t reserve = is_past_end ? kTreeReserve_blocks : 0;
    while (first < end && !is_short_) {
        const errcode_t error = ExtentTree(fs_, file_.id.inode, file_.inode).copy_path(first);
        if (error != 0 && error != EXT2_ET_BLOCK_ALLOC_FAIL) return fail("copy its tree", error);
        const std::uint64_t usable = usable_blocks();
        Run run{first, 0, std::min(end - first, kExtentLimit_blocks), is_past_end};
        if (error != 0 || usable <= reserve || !take_blocks(usable - reserve, run)) {
            is_short_ = true;
            break;
        }
        if (!zero_blocks(run.physical, run.count)) return false;
        if (!add_run(run)) return false;
        first = run.end();
    }
    return true;
}

// Finds up to `limit` free blocks for the run, as near as may be to the file's others. False when
// none is left.
bool SizeChange::take_blocks(std::uint64_t limit, Run& run)
{
    const blk64_t goal = ext2fs_find_inode_goal(fs_, file_.id.inode, &file_.inode, run.logical);
    const std::uint64_t wanted = std::min(run.count, limit);
    blk64_t found = 0;
    blk64_t count = 0;
    if (ext2fs_new_range(fs_, 0, goal, wanted, nullptr, &found, &count) != 0) return false;
    run.physical = found;
    run.count = std::min<std::uint64_t>(count, wanted);
    VolumeChange::take_range(fs_, {run.physical, run.count});
    return true;
}

// A run that finds no place in the inode or its tree goes back, and the allocation is short.
bool SizeChange::add_run(const Run& run)
{
    errcode_t error = ext2fs_iblk_add_blocks(fs_, &file_.inode, run.count);
    const bool is_counted = error == 0;
    if (is_counted) {
        ExtentTree tree(fs_, file_.id.inode, file_.inode);
        error = tree.insert(run);
    }
    if (error == 0) {
        if (run.is_unwritten && holders_ != 0) add_range(prepared_, {run.logical, run.count});
        return true;
    }
    if (is_counted) ext2fs_iblk_sub_blocks(fs_, &file_.inode, run.count);
    VolumeChange::free_range(fs_, {run.physical, run.count});
    is_short_ = true;
    const bool is_full = !is_counted || error == EXT2_ET_BLOCK_ALLOC_FAIL;
    return is_full || fail("add to its extents", error);
}

bool SizeChange::fill_hole_indirect(std::uint64_t first, std::uint64_t end)
{
    for (; first < end && !is_short_; ++first) {
        if (usable_blocks() < kIndirectReserve_blocks) {
            is_short_ = true;
            break;
        }
        blk64_t block = 0;  // found near the file's others, and zeroed
        const errcode_t error = ext2fs_bmap2(fs_, file_.id.inode, &file_.inode, nullptr, BMAP_ALLOC,
                                             first, nullptr, &block);
        if (error != 0) return fail("allocate", error);
    }
    return true;
}

bool SizeChange::zero_blocks(std::uint64_t first, std::uint64_t count)
{
    const errcode_t error = io_channel_zeroout(fs_->io, first, count);
    return error == 0 || fail("zero its new blocks", error);
}

}  // namespace corvane::ext

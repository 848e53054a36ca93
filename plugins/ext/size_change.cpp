// Changes sizes and allocations: plans, refuses, and orders the steps.
#include "plugins/ext/size_change.hpp"

#include <algorithm>
#include <climits>
#include <ctime>

#include "plugins/common/block_ranges.hpp"
#include "plugins/ext/extent_tree.hpp"

namespace corvane::ext {

SizeChange::SizeChange(Volume& volume, OpenFile& file, std::shared_ptr<const Layout> layout,
                       std::int64_t file_size, std::int64_t allocation_size)
    : volume_(volume),
      fs_(volume.fs.get()),
      file_(file),
      layout_(std::move(layout)),
      prepared_(volume.locks.prepared(file.id)),
      holders_(volume.locks.holders(file.id)),
      is_write_wish_(file_size < 0 && allocation_size >= 0),
      old_bytes_(file.size_bytes()),
      new_bytes_(file_size < 0 ? old_bytes_ : static_cast<std::uint64_t>(file_size))
{
    const std::uint32_t block_bytes = fs_->blocksize;
    end_block_ = blocks_of(new_bytes_, block_bytes);
    if (allocation_size < 0) return;
    const std::uint64_t limit = size_limit_bytes() / block_bytes;
    allocation_end_ = blocks_of(static_cast<std::uint64_t>(allocation_size), block_bytes);
    // Without extents, blocks past the end are damage to the disk format: they are lent to a
    // locked file and go when it is unlocked, but nobody keeps them otherwise.
    const std::uint64_t most = file_.has_extents() || holders_ != 0 ? limit : end_block_;
    if (*allocation_end_ > most) {
        allocation_end_ = most;
        is_short_ = true;
    }
}

std::uint64_t SizeChange::size_limit_bytes() const noexcept
{
    const std::uint64_t block_bytes = fs_->blocksize;
    if (file_.has_extents()) return std::uint64_t{UINT32_MAX} * block_bytes;
    const std::uint64_t pointers = block_bytes / 4;  // block numbers in an indirect block
    return (EXT2_NDIR_BLOCKS + pointers + pointers * pointers + pointers * pointers * pointers) *
           block_bytes;
}

std::uint32_t SizeChange::run()
{
    if (new_bytes_ > size_limit_bytes()) return FS_E_MISC_ERROR;
    if (is_shrinking() && holders_ > 1) return FS_E_PRIVILEGE;
    const bool is_guarded = (file_.inode.i_flags & (EXT2_IMMUTABLE_FL | EXT2_APPEND_FL)) != 0;
    const bool may_change = volume_.line.writable && !is_guarded;
    // A client that asks for blocks alone writes next, even where none lack.
    if (is_write_wish_ && !may_change) return FS_E_PRIVILEGE;
    if (new_bytes_ == old_bytes_ && !trim_from() && !lacks_blocks()) {
        return is_short_ ? FS_E_SHORT_ALLOC : FS_E_SUCCESS;
    }
    if (!may_change) return FS_E_PRIVILEGE;

    // What is cut off can be used again only when the cut is on the disk.
    if (is_shrinking() && !take_step(&SizeChange::shrink, Order::InodeLast)) return FS_E_MISC_ERROR;
    const bool is_done = new_bytes_ == old_bytes_ && !trim_from() && !lacks_blocks();
    if (!is_done && !take_step(&SizeChange::apply, Order::InodeFirst)) return FS_E_MISC_ERROR;
    if (is_misfit_) return FS_E_MISC_ERROR;
    return is_short_ ? FS_E_SHORT_ALLOC : FS_E_SUCCESS;
}

// Takes a step as one change. What others are told of it waits until it is on the disk.
bool SizeChange::take_step(bool (SizeChange::*step)(), Order order)
{
    VolumeChange change(volume_);
    if (!change.begin() || !(this->*step)() || !write_size() || !reload_layout() ||
        !change.commit(order)) {
        return false;
    }
    old_bytes_ = new_bytes_;
    volume_.locks.keep_layout(file_.id, layout_);
    volume_.locks.set_prepared(file_.id, prepared_);
    const bool has_more = !layout_->runs.empty() && layout_->runs.back().end() > end_block_;
    if (!file_.has_extents()) volume_.locks.set_loan(file_.id, has_more);
    // Clients may still have these blocks in a map: they are free on disk, but held back from use
    // until the file is unlocked.
    if (holders_ != 0) {
        volume_.locks.hold_back(file_.id, cut_);
        mark_held_back(volume_, cut_, /*is_held=*/true);
    }
    cut_.clear();
    return true;
}

bool SizeChange::release_from(std::uint64_t first_block)
{
    VolumeChange change(volume_);
    return change.begin() && cut_from(first_block) && write_size() &&
           change.commit(Order::InodeLast);
}

// Blocks of the volume are given back only when no other client can have them in a map.
std::optional<std::uint64_t> SizeChange::trim_from() const
{
    if (holders_ > 1) return std::nullopt;
    if (!allocation_end_ && !is_shrinking()) return std::nullopt;
    const std::uint64_t keep = std::max(end_block_, allocation_end_.value_or(0));
    if (layout_->runs.empty() || layout_->runs.back().end() <= keep) return std::nullopt;
    return keep;
}

bool SizeChange::lacks_blocks() const
{
    if (!allocation_end_) return false;
    return !gaps_between(ranges_of(layout_->runs, false), 0, *allocation_end_).empty() ||
           !blocks_to_prepare().empty();
}

// Unwritten blocks that a client is about to write into: on this disk nothing but this plug-in
// would ever notice that they hold data.
std::vector<BlockRange> SizeChange::blocks_to_prepare() const
{
    if (!allocation_end_) return {};
    // Past the end only a locked file has somebody to write there.
    const std::uint64_t end =
        holders_ != 0 ? *allocation_end_ : std::min(end_block_, *allocation_end_);
    std::vector<BlockRange> wanted;
    for (const BlockRange& unwritten :
         clip_ranges(ranges_of(layout_->runs, /*only_unwritten=*/true), 0, end)) {
        const auto open = gaps_between(prepared_, unwritten.first, unwritten.end());
        wanted.insert(wanted.end(), open.begin(), open.end());
    }
    return wanted;
}

bool SizeChange::apply()
{
    // With a map out, somebody may have written there already what the new size is to show.
    if (new_bytes_ > old_bytes_ && holders_ == 0 && !zero_tail(old_bytes_)) return false;
    if (allocation_end_ && !fill()) return false;
    if (!reveal_prepared()) return false;
    const auto first = trim_from();
    return !first || cut_from(*first);
}

// Everything past the new end goes, so that blocks allocated there again read as zeros.
bool SizeChange::shrink()
{
    return zero_tail(new_bytes_) && cut_from(end_block_);
}

// Zeroes what the block that holds byte `end_bytes` - 1 has behind it.
bool SizeChange::zero_tail(std::uint64_t end_bytes)
{
    const std::uint64_t tail_bytes = end_bytes % fs_->blocksize;
    const std::uint64_t last_block = end_bytes / fs_->blocksize;
    if (tail_bytes == 0) return true;
    for (const Run& run : layout_->runs) {
        if (run.is_unwritten || last_block < run.logical || last_block >= run.end()) continue;
        const std::uint64_t begin = (run.physical + (last_block - run.logical)) * fs_->blocksize;
        if (!volume_.source.zero_block_tail(begin + tail_bytes, begin + fs_->blocksize,
                                            fs_->blocksize)) {
            return fail("zero the rest of the last block", EXT2_ET_SHORT_WRITE);
        }
    }
    return true;
}

bool SizeChange::fill()
{
    const auto open = blocks_to_prepare();
    for (const BlockRange& hole :
         gaps_between(ranges_of(layout_->runs, false), 0, *allocation_end_)) {
        // What lies past the end is another kind of block than what lies before it.
        const std::uint64_t middle = std::clamp(end_block_, hole.first, hole.end());
        if (!fill_hole(hole.first, middle) || !fill_hole(middle, hole.end())) return false;
        if (is_short_) break;
    }
    return std::all_of(open.begin(), open.end(),
                       [this](const BlockRange& blocks) { return prepare(blocks); });
}

bool SizeChange::prepare(const BlockRange& blocks)
{
    for (const Run& run : layout_->runs) {
        const std::uint64_t first = std::max(run.logical, blocks.first);
        const std::uint64_t end = std::min(run.end(), blocks.end());
        if (first >= end) continue;
        if (!zero_blocks(run.physical + (first - run.logical), end - first)) return false;
    }
    add_range(prepared_, blocks);
    return true;
}

// Prepared blocks that the new size takes in hold what a client wrote there: the disk learns it
// now.
bool SizeChange::reveal_prepared()
{
    const auto revealed = clip_ranges(prepared_, 0, end_block_);
    if (revealed.empty())
        return true;  // and no tree is opened: that would make one of an empty inode
    ExtentTree tree(fs_, file_.id.inode, file_.inode);
    for (const BlockRange& blocks : revealed) {
        std::uint64_t done_end = blocks.first;
        const errcode_t error = tree.make_written(blocks.first, blocks.end(), done_end);
        if (error == 0) continue;
        if (error != EXT2_ET_BLOCK_ALLOC_FAIL) return fail("change its extents", error);
        volume_.report("inode " + std::to_string(file_.id.inode) +
                       ": no free block for its extent tree; its size stays smaller than asked");
        is_misfit_ = true;
        new_bytes_ = std::max(old_bytes_, std::min(new_bytes_, done_end * fs_->blocksize));
        end_block_ = blocks_of(new_bytes_, fs_->blocksize);
        break;
    }
    prepared_ = clip_ranges(prepared_, end_block_, UINT64_MAX);
    return true;
}

bool SizeChange::cut_from(std::uint64_t first_block)
{
    const std::size_t old_count = cut_.size();
    for (const Run& run : layout_->runs) {
        const std::uint64_t first = std::max(run.logical, first_block);
        if (first < run.end()) {
            cut_.push_back({run.physical + (first - run.logical), run.end() - first});
        }
    }
    if (cut_.size() == old_count) return true;
    const errcode_t error =
        file_.has_extents()
            ? ExtentTree(fs_, file_.id.inode, file_.inode).cut_from(first_block, layout_->runs)
            : ext2fs_punch(fs_, file_.id.inode, &file_.inode, nullptr, first_block,
                           ~std::uint64_t{0});
    if (error != 0) return fail("free its blocks", error);
    prepared_ = clip_ranges(prepared_, 0, first_block);
    return true;
}

bool SizeChange::reload_layout()
{
    volume_.locks.forget_layout(file_.id);
    layout_ = load_layout(volume_, file_);
    return layout_ != nullptr;
}

bool SizeChange::write_size()
{
    if (new_bytes_ != old_bytes_) {
        if (errcode_t error =
                ext2fs_inode_size_set(fs_, &file_.inode, static_cast<ext2_off64_t>(new_bytes_))) {
            return fail("set its size", error);
        }
    }
    file_.inode.i_mtime = static_cast<__u32>(std::time(nullptr));
    file_.inode.i_ctime = file_.inode.i_mtime;
    const errcode_t error = ext2fs_write_inode(fs_, file_.id.inode, &file_.inode);
    return error == 0 || fail("write its inode", error);
}

bool SizeChange::fail(const char* what, errcode_t error)
{
    volume_.report("inode " + std::to_string(file_.id.inode) + ": cannot " + what + ": " +
                   error_text(error));
    return false;
}

}  // namespace corvane::ext

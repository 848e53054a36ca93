// Writes a change to disk in an order that no crash can turn into damage.
#include "plugins/ext/volume_change.hpp"

namespace corvane::ext {
namespace {

void set_bits(ext2fs_block_bitmap bitmap, const BlockRange& blocks, bool is_set)
{
    const auto count = static_cast<unsigned int>(blocks.count);
    if (is_set) {
        ext2fs_mark_block_bitmap_range2(bitmap, blocks.first, count);
    } else {
        ext2fs_unmark_block_bitmap_range2(bitmap, blocks.first, count);
    }
}

}  // namespace

VolumeChange::~VolumeChange()
{
    if (stage_ == Stage::Closed) return;
    ext2_filsys fs = volume_.fs.get();
    ext2fs_set_block_alloc_stats_callback(fs, nullptr, nullptr);
    fs->priv_data = nullptr;
    StagedIo::of(fs).end_hold();
    // What libext2fs keeps of inodes must be what the disk says, now that nothing more is written.
    if (stage_ == Stage::Committing) {
        (void)ext2fs_flush_icache(fs);
    } else {
        roll_back();
    }
    if (stage_ == Stage::Open) return;
    volume_.is_broken = true;
    volume_.report(
        "a change failed half-way; nothing more is changed. Stop the daemon, run e2fsck -p " +
        volume_.line.source + ", start it again");
}

bool VolumeChange::begin()
{
    if (volume_.is_broken || allocate_taken() != 0) return false;
    ext2_filsys fs = volume_.fs.get();
    stage_ = Stage::Open;
    fs->priv_data = this;
    ext2fs_set_block_alloc_stats_callback(fs, note_block, nullptr);
    StagedIo::of(fs).hold([this](blk64_t block) { return use_of(block); });
    return true;
}

// A set that costs what is in it: an array of bits for the whole volume would cost too much.
errcode_t VolumeChange::allocate_taken()
{
    ext2_filsys fs = volume_.fs.get();
    const auto usual_type = fs->default_bitmap_type;
    fs->default_bitmap_type = EXT2FS_BMAP64_RBTREE;
    ext2fs_block_bitmap bitmap = nullptr;
    const errcode_t error = ext2fs_allocate_block_bitmap(fs, "taken by a change", &bitmap);
    fs->default_bitmap_type = usual_type;
    taken_.reset(bitmap);
    return error;
}

void VolumeChange::take_range(ext2_filsys fs, const BlockRange& blocks)
{
    ext2fs_block_alloc_stats_range(fs, blocks.first, static_cast<blk_t>(blocks.count), +1);
    static_cast<VolumeChange*>(fs->priv_data)->note(blocks, +1);
}

void VolumeChange::free_range(ext2_filsys fs, const BlockRange& blocks)
{
    ext2fs_block_alloc_stats_range(fs, blocks.first, static_cast<blk_t>(blocks.count), -1);
    static_cast<VolumeChange*>(fs->priv_data)->note(blocks, -1);
}

bool VolumeChange::is_new(ext2_filsys fs, blk64_t block)
{
    return static_cast<VolumeChange*>(fs->priv_data)->use_of(block) != StagedIo::Use::Live;
}

void VolumeChange::note_block(ext2_filsys fs, blk64_t block, int change)
{
    static_cast<VolumeChange*>(fs->priv_data)->note({block, 1}, change);
}

// What the change took and gives up is free once more; anything else keeps its bits until the
// change is on the disk. A range is of one of the two kinds.
void VolumeChange::note(const BlockRange& blocks, int change)
{
    const bool is_taken = ext2fs_test_block_bitmap2(taken_.get(), blocks.first) != 0;
    if (change > 0 || is_taken) {
        set_bits(taken_.get(), blocks, change > 0);
        if (change < 0) StagedIo::of(volume_.fs.get()).forget(blocks);
        return;
    }
    set_bits(volume_.fs->block_map, blocks, /*is_set=*/true);
    freed_.push_back(blocks);
}

StagedIo::Use VolumeChange::use_of(blk64_t block) const
{
    if (ext2fs_test_block_bitmap2(volume_.fs->block_map, block) == 0) return StagedIo::Use::Free;
    return ext2fs_test_block_bitmap2(taken_.get(), block) != 0 ? StagedIo::Use::Taken
                                                               : StagedIo::Use::Live;
}

bool VolumeChange::commit(Order order)
{
    stage_ = Stage::Preparing;
    const errcode_t error = write_all(order);
    if (error != 0) {
        volume_.report("cannot write: " + error_text(error));
        return false;
    }
    ext2_filsys fs = volume_.fs.get();
    ext2fs_set_block_alloc_stats_callback(fs, nullptr, nullptr);
    fs->priv_data = nullptr;
    stage_ = Stage::Closed;
    return true;
}

errcode_t VolumeChange::write_all(Order order)
{
    StagedIo& io = StagedIo::of(volume_.fs.get());
    for (const BlockRange& blocks : freed_) io.forget(blocks);
    errcode_t error = write_state(/*is_clean=*/false, EXT2_FLAG_FLUSH_NO_SYNC);
    if (error == 0) error = write_kept(order);
    io.end_hold();
    if (error == 0) error = write_bitmaps();
    return error == 0 ? write_state(/*is_clean=*/true, 0) : error;
}

errcode_t VolumeChange::write_kept(Order order)
{
    ext2_filsys fs = volume_.fs.get();
    StagedIo& io = StagedIo::of(fs);
    errcode_t error = io.release([this](blk64_t block) { return is_new(volume_.fs.get(), block); });
    if (error == 0) error = io_channel_flush(fs->io);
    if (error == 0) {
        stage_ = Stage::Committing;
        error = io.release([this, order](blk64_t block) {
            const bool is_inode = volume_.zones.touches(block, 1);
            return is_inode == (order == Order::InodeFirst);
        });
    }
    if (error != 0 || !io.keeps_any()) return error;
    error = io_channel_flush(fs->io);
    return error != 0 ? error : io.release([](blk64_t) { return true; });
}

errcode_t VolumeChange::write_state(bool is_clean, int flush_flags)
{
    ext2_filsys fs = volume_.fs.get();
    if (is_clean) {
        fs->super->s_state |= EXT2_VALID_FS;
    } else {
        fs->super->s_state &= static_cast<__u16>(~EXT2_VALID_FS);
    }
    ext2fs_mark_super_dirty(fs);
    fs->flags |= EXT2_FLAG_SUPER_ONLY | EXT2_FLAG_MASTER_SB_ONLY;
    fs->flags &= ~EXT2_FLAG_BB_DIRTY;  // or the bitmaps would come along
    const errcode_t error = ext2fs_flush2(fs, flush_flags);
    fs->flags &= ~EXT2_FLAG_SUPER_ONLY;
    return error;
}

errcode_t VolumeChange::write_bitmaps()
{
    ext2_filsys fs = volume_.fs.get();
    for (const BlockRange& blocks : freed_) set_bits(fs->block_map, blocks, /*is_set=*/false);
    const auto held = volume_.locks.held_back();
    mark_held_back(volume_, held, /*is_held=*/false);
    ext2fs_mark_bb_dirty(fs);
    const errcode_t error = ext2fs_write_bitmaps(fs);
    mark_held_back(volume_, held, /*is_held=*/true);
    if (error != 0) return error;
    ext2fs_mark_super_dirty(fs);
    fs->flags |= EXT2_FLAG_MASTER_SB_ONLY;
    return ext2fs_flush(fs);
}

// The library's records in memory as they were; on the disk nothing has changed.
void VolumeChange::roll_back()
{
    ext2_filsys fs = volume_.fs.get();
    const blk64_t last = ext2fs_blocks_count(fs->super) - 1;
    blk64_t first = fs->super->s_first_data_block;
    while (ext2fs_find_first_set_block_bitmap2(taken_.get(), first, last, &first) == 0) {
        blk64_t end = last + 1;
        (void)ext2fs_find_first_zero_block_bitmap2(taken_.get(), first, last, &end);
        set_bits(taken_.get(), {first, end - first}, /*is_set=*/false);
        ext2fs_block_alloc_stats_range(fs, first, static_cast<blk_t>(end - first), -1);
    }
    for (const BlockRange& blocks : freed_) {
        ext2fs_block_alloc_stats_range(fs, blocks.first, static_cast<blk_t>(blocks.count), +1);
    }
    (void)ext2fs_flush_icache(fs);
}

void mark_held_back(Volume& volume, const std::vector<BlockRange>& ranges, bool is_held)
{
    for (const BlockRange& range : ranges) set_bits(volume.fs->block_map, range, is_held);
}

}  // namespace corvane::ext

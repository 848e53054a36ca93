// Writes a change to disk in an order that a crash cannot turn into silent damage.
#include "plugins/ext/volume_change.hpp"

namespace corvane::ext {

VolumeChange::~VolumeChange()
{
    ext2fs_set_block_alloc_stats_callback(volume_.fs.get(), nullptr, nullptr);
    if (!is_open_) return;
    volume_.is_broken = true;
    volume_.report(
        "a change failed half-way; nothing more is changed. Stop the daemon, run e2fsck -p " +
        volume_.line.source + ", start it again");
}

bool VolumeChange::begin()
{
    if (volume_.is_broken) return false;
    is_open_ = true;
    volume_.fs->priv_data = this;
    ext2fs_set_block_alloc_stats_callback(volume_.fs.get(), keep_freed, nullptr);
    return write_state(/*is_clean=*/false) == 0;
}

void VolumeChange::keep_freed(ext2_filsys fs, blk64_t block, int change)
{
    if (change >= 0) return;
    static_cast<VolumeChange*>(fs->priv_data)->freed_.push_back(block);
    ext2fs_mark_block_bitmap2(fs->block_map, block);
}

bool VolumeChange::commit()
{
    const errcode_t error = write_all();
    if (error != 0) {
        volume_.report("cannot write: " + error_text(error));
        return false;
    }
    is_open_ = false;
    return true;
}

errcode_t VolumeChange::write_state(bool is_clean)
{
    ext2_filsys fs = volume_.fs.get();
    if (is_clean) {
        fs->super->s_state |= EXT2_VALID_FS;
    } else {
        fs->super->s_state &= static_cast<__u16>(~EXT2_VALID_FS);
    }
    ext2fs_mark_super_dirty(fs);
    fs->flags |= EXT2_FLAG_SUPER_ONLY | EXT2_FLAG_MASTER_SB_ONLY;
    const errcode_t error = ext2fs_flush(fs);
    fs->flags &= ~EXT2_FLAG_SUPER_ONLY;
    return error;
}

errcode_t VolumeChange::write_all()
{
    ext2_filsys fs = volume_.fs.get();
    for (const blk64_t block : freed_) ext2fs_unmark_block_bitmap2(fs->block_map, block);
    const auto held = volume_.locks.held_back();
    mark_held_back(volume_, held, /*is_held=*/false);
    errcode_t error = ext2fs_write_bitmaps(fs);
    mark_held_back(volume_, held, /*is_held=*/true);
    if (error == 0) {
        ext2fs_mark_super_dirty(fs);
        fs->flags |= EXT2_FLAG_MASTER_SB_ONLY;
        error = ext2fs_flush(fs);
    }
    return error == 0 ? write_state(/*is_clean=*/true) : error;
}

void mark_held_back(Volume& volume, const std::vector<BlockRange>& ranges, bool is_held)
{
    for (const BlockRange& range : ranges) {
        const auto count = static_cast<unsigned int>(range.count);
        if (is_held) {
            ext2fs_mark_block_bitmap_range2(volume.fs->block_map, range.first, count);
        } else {
            ext2fs_unmark_block_bitmap_range2(volume.fs->block_map, range.first, count);
        }
    }
}

}  // namespace corvane::ext

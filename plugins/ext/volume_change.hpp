// The frame around every change to a volume: what is on the disk at which moment.
#ifndef CORVANE_PLUGINS_EXT_VOLUME_CHANGE_HPP
#define CORVANE_PLUGINS_EXT_VOLUME_CHANGE_HPP

#include <vector>

#include "plugins/ext/staged_io.hpp"
#include "plugins/ext/volume.hpp"

namespace corvane::ext {

// Until commit() nothing that the disk's structures use is written, and without it all is as it
// was. A daemon killed during commit() leaves a volume that says that it is not clean, and that
// e2fsck -p repairs:
// - first goes the mark, and what lies in blocks that were free: data, new nodes of trees;
// - then what is in use: the inode, which alone leads to the new nodes, and (without extents, or
//   where there was no room for copies) nodes that change in place, before or after it;
// - then bitmaps, descriptors and the superblock, which e2fsck can tell from the inodes;
// - then the mark is taken away.
// The second and the third are flushed together, the others by themselves. No block is used twice
// within a change: what it frees stays as it is on the disk for as long as the old inode is there.
// `io` is held.
class VolumeChange {
public:
    explicit VolumeChange(Volume& volume) : volume_(volume) {}
    ~VolumeChange();
    VolumeChange(const VolumeChange&) = delete;
    VolumeChange& operator=(const VolumeChange&) = delete;

    // To e2fsck data past a file's end is damage where there are extents: the last of it goes
    // before the inode tells of a smaller size, the first of it comes after a larger one.
    enum class Order { InodeFirst, InodeLast };

    [[nodiscard]] bool begin();
    [[nodiscard]] bool commit(Order order);

    // For the steps of the change that runs on this file system:

    static void take_range(ext2_filsys fs, const BlockRange& blocks);
    static void free_range(ext2_filsys fs, const BlockRange& blocks);
    // Was the block free when the change began?
    static bool is_new(ext2_filsys fs, blk64_t block);

private:
    static void note_block(ext2_filsys fs, blk64_t block, int change);
    void note(const BlockRange& blocks, int change);
    [[nodiscard]] StagedIo::Use use_of(blk64_t block) const;
    errcode_t allocate_taken();
    errcode_t write_state(bool is_clean, int flush_flags);
    errcode_t write_bitmaps();
    errcode_t write_kept(Order order);
    errcode_t write_all(Order order);
    void roll_back();

    Volume& volume_;
    // Preparing: the mark and new nodes are written, and all that counts is still the old state.
    enum class Stage { Closed, Open, Preparing, Committing } stage_ = Stage::Closed;
    BlockBitmap taken_;
    std::vector<BlockRange> freed_;
};

// Sets or clears, in memory alone, the bits of blocks that are free on disk but held back from use.
void mark_held_back(Volume& volume, const std::vector<BlockRange>& ranges, bool is_held);

}  // namespace corvane::ext

#endif

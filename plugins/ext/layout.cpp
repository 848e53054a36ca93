// Reads and checks the block lists of files, whatever a damaged volume says in them.
#include "plugins/ext/layout.hpp"

#include <cerrno>
#include <utility>

namespace corvane::ext {
namespace {

constexpr int kExtentDepthLimit = 5;  // the format's own bound

// Collects a file's runs in ascending order; the first thing wrong stays in `wrong`.
struct Collector {
    ext2_filsys fs;
    const MetadataZones& zones;
    Layout& layout;
    std::string wrong;
    std::uint64_t nodes = 0;  // extent tree or indirect blocks seen

    // False when the reader should stop. No honest file has more blocks than its volume, so a tree
    // that comes back to itself ends here.
    bool count_node()
    {
        ++nodes;
        return is_bounded();
    }

    bool is_bounded()
    {
        if (nodes + layout.block_count <= ext2fs_blocks_count(fs->super)) return true;
        wrong = "more blocks than the volume has";
        return false;
    }

    bool add(const Run& run)
    {
        if (!is_usable(run)) return false;
        auto& runs = layout.runs;
        layout.block_count += run.count;
        if (!runs.empty() && runs.back().end() == run.logical &&
            runs.back().physical + runs.back().count == run.physical &&
            runs.back().is_unwritten == run.is_unwritten) {
            runs.back().count += run.count;
        } else {
            runs.push_back(run);
        }
        return is_bounded();
    }

    bool is_usable(const Run& run)
    {
        const std::uint64_t volume_end = ext2fs_blocks_count(fs->super);
        if (!layout.runs.empty() && run.logical < layout.runs.back().end()) {
            wrong = "its extents overlap or go backwards";
        } else if (run.count == 0 || run.physical < fs->super->s_first_data_block ||
                   run.physical >= volume_end || run.count > volume_end - run.physical) {
            wrong = "an extent lies outside the volume";
        } else if (zones.touches(run.physical, run.count)) {
            wrong = "an extent lies in the volume's own records";
        } else if (!is_allocated(run)) {
            wrong = "an extent lies in blocks that are marked free";
        }
        return wrong.empty();
    }

    [[nodiscard]] bool is_allocated(const Run& run) const
    {
        if (fs->block_map == nullptr) return true;
        blk64_t free_block = 0;
        return ext2fs_find_first_zero_block_bitmap2(fs->block_map, run.physical,
                                                    run.physical + run.count - 1,
                                                    &free_block) == ENOENT;
    }
};

void read_extents(ext2_filsys fs, ext2_ino_t inode_number, ext2_inode& inode, Collector& collector)
{
    ext2_extent_handle_t opened = nullptr;
    errcode_t error = ext2fs_extent_open2(fs, inode_number, &inode, &opened);
    const ExtentHandle handle(opened);
    ext2_extent_info info{};
    if (error == 0) error = ext2fs_extent_get_info(opened, &info);
    if (error == 0 && info.max_depth > kExtentDepthLimit) {
        collector.wrong = "its extent tree is too deep";
        return;
    }
    ext2fs_extent extent{};
    for (int step = EXT2_EXTENT_ROOT; error == 0; step = EXT2_EXTENT_NEXT) {
        error = ext2fs_extent_get(opened, step, &extent);
        if (error != 0 || (extent.e_flags & EXT2_EXTENT_FLAGS_SECOND_VISIT) != 0) continue;
        if ((extent.e_flags & EXT2_EXTENT_FLAGS_LEAF) == 0) {
            if (!collector.count_node()) return;
            continue;
        }
        const bool is_unwritten = (extent.e_flags & EXT2_EXTENT_FLAGS_UNINIT) != 0;
        if (!collector.add({extent.e_lblk, extent.e_pblk, extent.e_len, is_unwritten})) return;
    }
    if (error != EXT2_ET_EXTENT_NO_NEXT && error != EXT2_ET_NO_CURRENT_NODE) {
        collector.wrong = error_text(error);
    }
}

int visit_block(ext2_filsys /*fs*/, blk64_t* block, e2_blkcnt_t logical, blk64_t /*ref_block*/,
                int /*ref_offset*/, void* collector_of_file)
{
    auto& collector = *static_cast<Collector*>(collector_of_file);
    try {
        if (logical < 0) return collector.count_node() ? 0 : BLOCK_ABORT;
        const bool goes_on =
            collector.add({static_cast<std::uint64_t>(logical), *block, 1, /*is_unwritten=*/false});
        return goes_on ? 0 : BLOCK_ABORT;
    } catch (...) {
        collector.layout.runs.clear();  // no exception may cross the C library's frames
        return BLOCK_ABORT;
    }
}

void read_indirect(ext2_filsys fs, ext2_ino_t inode_number, Collector& collector)
{
    const errcode_t error = ext2fs_block_iterate3(fs, inode_number, BLOCK_FLAG_READ_ONLY, nullptr,
                                                  visit_block, &collector);
    const bool is_cut = collector.layout.block_count != 0 && collector.layout.runs.empty();
    if (collector.wrong.empty() && error != 0) collector.wrong = error_text(error);
    if (collector.wrong.empty() && is_cut) collector.wrong = "not enough memory";
}

}  // namespace

std::string read_layout(ext2_filsys fs, ext2_ino_t inode_number, ext2_inode& inode,
                        const MetadataZones& zones, Layout& layout)
{
    layout = Layout{};
    Collector collector{fs, zones, layout, {}};
    if ((inode.i_flags & EXT4_EXTENTS_FL) != 0) {
        read_extents(fs, inode_number, inode, collector);
    } else if (ext2fs_inode_has_valid_blocks2(fs, &inode) != 0) {
        read_indirect(fs, inode_number, collector);
    }
    return collector.wrong;
}

std::string MetadataZones::read(ext2_filsys fs)
{
    ext2fs_block_bitmap bitmap = nullptr;
    if (errcode_t error = ext2fs_allocate_subcluster_bitmap(fs, "metadata zones", &bitmap)) {
        return error_text(error);
    }
    zones_.reset(bitmap);
    for (dgrp_t group = 0; group < fs->group_desc_count; ++group) {
        (void)ext2fs_reserve_super_and_bgd(fs, group, bitmap);  // its result counts free blocks
        ext2fs_mark_block_bitmap2(bitmap, ext2fs_block_bitmap_loc(fs, group));
        ext2fs_mark_block_bitmap2(bitmap, ext2fs_inode_bitmap_loc(fs, group));
        ext2fs_mark_block_bitmap_range2(bitmap, ext2fs_inode_table_loc(fs, group),
                                        fs->inode_blocks_per_group);
    }
    const auto& super = *fs->super;
    if (ext2fs_has_feature_mmp(fs->super) != 0) {
        ext2fs_mark_block_bitmap2(bitmap, super.s_mmp_block);
    }
    std::string wrong;
    if (ext2fs_has_feature_journal(fs->super) != 0 && super.s_journal_inum != 0) {
        wrong = add_file(fs, super.s_journal_inum);
    }
    if (wrong.empty() && ext2fs_has_feature_orphan_file(fs->super) != 0) {
        wrong = add_file(fs, super.s_orphan_file_inum);
    }
    return wrong;
}

std::string MetadataZones::add_file(ext2_filsys fs, ext2_ino_t inode_number)
{
    ext2_inode inode{};
    if (errcode_t error = ext2fs_read_inode(fs, inode_number, &inode)) return error_text(error);
    Layout layout;
    if (std::string wrong = read_layout(fs, inode_number, inode, *this, layout); !wrong.empty()) {
        return "inode " + std::to_string(inode_number) + ": " + wrong;
    }
    for (const Run& run : layout.runs) {
        ext2fs_mark_block_bitmap_range2(zones_.get(), run.physical,
                                        static_cast<unsigned int>(run.count));
    }
    return {};
}

bool MetadataZones::touches(std::uint64_t first, std::uint64_t count) const noexcept
{
    constexpr std::uint64_t kStep = 1U << 30;  // the library counts in unsigned int
    for (std::uint64_t done = 0; done < count; done += kStep) {
        const auto step = static_cast<unsigned int>(std::min(kStep, count - done));
        if (ext2fs_test_block_bitmap_range2(zones_.get(), first + done, step) == 0) return true;
    }
    return false;
}

}  // namespace corvane::ext

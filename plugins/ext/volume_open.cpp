// Opens the volumes of the list and refuses those that nobody should touch as they are.
#include <ext2fs/ext2fs.h>

#include <cstring>

#include "plugins/ext/staged_io.hpp"
#include "plugins/ext/volume.hpp"

namespace corvane::ext {
namespace {

std::string explain_open_error(errcode_t error, const std::string& source)
{
    switch (error) {
        case EXT2_ET_BAD_MAGIC:
            return "no ext2, ext3 or ext4 file system; correct the path or make one with mke2fs";
        case EXT2_ET_UNSUPP_FEATURE:
        case EXT2_ET_RO_UNSUPP_FEATURE:
            return "it has features that libext2fs does not know; see dumpe2fs -h " + source;
        default:
            return error_text(error) + "; check it with e2fsck -f " + source;
    }
}

// What keeps a volume from being read at all: its records on disk are not the whole truth.
std::string check_is_clean(ext2_filsys fs, const VolumeLine& line)
{
    const auto& super = *fs->super;
    const std::string repair = "; run e2fsck -p " + line.source + ", then restart the daemon";
    if (ext2fs_has_feature_journal_dev(fs->super) != 0) return "it is a journal, not a volume";
    if (ext2fs_has_feature_journal_needs_recovery(fs->super) != 0) {
        return "its journal was not replayed" + repair;
    }
    if ((super.s_state & EXT2_ERROR_FS) != 0) return "it is marked as damaged" + repair;
    if ((super.s_state & EXT2_VALID_FS) == 0) return "it was not unmounted cleanly" + repair;
    if (super.s_last_orphan != 0 || ext2fs_has_feature_orphan_present(fs->super) != 0) {
        return "it holds files whose deletion was not finished" + repair;
    }
    return {};
}

// What keeps a sound volume from being changed by this plug-in.
std::string check_may_write(ext2_filsys fs)
{
    const ext2_super_block* const super = fs->super;
    const char* feature = nullptr;
    if (ext2fs_has_feature_bigalloc(fs->super) != 0) feature = "bigalloc";
    if (ext2fs_has_feature_quota(fs->super) != 0) feature = "quota";
    if (ext2fs_has_feature_mmp(fs->super) != 0) feature = "mmp";
    if (ext2fs_has_feature_shared_blocks(fs->super) != 0) feature = "shared_blocks";
    if (ext2fs_has_feature_readonly(fs->super) != 0) feature = "read-only";
    if (super->s_rev_level == EXT2_GOOD_OLD_REV) feature = "revision 0";
    if (feature == nullptr) return {};
    return std::string("its feature \"") + feature +
           "\" allows no changes from here; list it with \"ro\"";
}

std::string check_shape(const Volume& volume)
{
    const auto& super = *volume.fs->super;
    const std::uint64_t blocks = ext2fs_blocks_count(volume.fs->super);
    if (blocks > volume.source.size_bytes() / volume.block_bytes()) {
        return "the file system is larger than its source; the image is cut short";
    }
    if (volume.uuid == Uuid{}) {
        return "it has no UUID to know it by; give it one with tune2fs -U random " +
               volume.line.source;
    }
    if (super.s_inodes_per_group == 0) return "its superblock is damaged; run e2fsck";
    return {};
}

std::string read_records(Volume& volume)
{
    ext2_filsys fs = volume.fs.get();
    const std::string repair = "; run e2fsck -f " + volume.line.source;
    if (errcode_t error = ext2fs_check_desc(fs)) {
        return "group descriptors: " + error_text(error) + repair;
    }
    if (volume.line.writable) {
        if (errcode_t error = ext2fs_read_block_bitmap(fs)) {
            return "block bitmap: " + error_text(error) + repair;
        }
    }
    std::string wrong = volume.zones.read(fs);
    return wrong.empty() ? wrong : wrong + repair;
}

std::string open_parts(Volume& volume)
{
    const VolumeLine& line = volume.line;
    if (std::string wrong = volume.source.open(line.source, line.writable); !wrong.empty()) {
        return wrong;
    }
    ext2_filsys opened = nullptr;
    const int flags = EXT2_FLAG_64BITS | EXT2_FLAG_SKIP_MMP | (line.writable ? EXT2_FLAG_RW : 0);
    // Empty options, not null: otherwise a "?" in the path would begin options of its own.
    const errcode_t error =
        ext2fs_open2(line.source.c_str(), "", flags, 0, 0, StagedIo::manager(), &opened);
    volume.fs.reset(opened);
    if (error != 0) return explain_open_error(error, line.source);
    std::memcpy(volume.uuid.data(), volume.fs->super->s_uuid, volume.uuid.size());
    if (std::string wrong = check_is_clean(opened, line); !wrong.empty()) return wrong;
    if (std::string wrong = check_shape(volume); !wrong.empty()) return wrong;
    if (std::string wrong = line.writable ? check_may_write(opened) : ""; !wrong.empty()) {
        return wrong;
    }
    return read_records(volume);
}

}  // namespace

void Volume::report(const std::string& text) const
{
    log_line(line.mount_point() + " (" + line.source + "): " + text);
}

std::unique_ptr<Volume> open_volume(const VolumeLine& line, std::string& wrong)
{
    auto volume = std::make_unique<Volume>();
    volume->line = line;
    wrong = open_parts(*volume);
    return wrong.empty() ? std::move(volume) : nullptr;
}

}  // namespace corvane::ext

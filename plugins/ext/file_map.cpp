// Answers questions about volumes and files: the volume record, locked maps, unlocking.
#include <algorithm>
#include <climits>
#include <cstring>

#include "fsmdc/fs_plugin.h"
#include "plugins/common/map_record.hpp"
#include "plugins/ext/volume.hpp"

namespace corvane::ext {
namespace {

static_assert(sizeof(VolumeInfo) == 104 && sizeof(FSDisk) == 80, "layout");

constexpr std::int64_t kUuidPlace_bytes = 1024 + 104;  // in the superblock, from the source's start

const char* format_name(ext2_filsys fs)
{
    if (ext2fs_has_feature_extents(fs->super) != 0) return "ext4";
    return ext2fs_has_feature_journal(fs->super) != 0 ? "ext3" : "ext2";
}

// The daemon may call again for a map it handed out before, but only these calls can bring a new
// client.
bool may_be_new_holder(const MapRequest& request)
{
    const bool is_whole = request.start == 0 && request.length < 0;
    return is_whole && (request.flag & FS_M_FLAG_REMAP) == 0;
}

// One past the last block that a map covers: the file's end, or what was handed out for writing
// past it.
std::uint64_t map_end(const Layout& layout, std::span<const BlockRange> prepared,
                      const OpenFile& file, std::uint32_t block_bytes)
{
    std::uint64_t end = blocks_of(file.size_bytes(), block_bytes);
    if (!prepared.empty()) end = std::max(end, prepared.back().end());
    // Without extents blocks past the end are there only while somebody writes into them.
    if (!file.has_extents() && !layout.runs.empty()) end = std::max(end, layout.runs.back().end());
    return end;
}

std::uint64_t asked_end(const MapRequest& request, std::uint32_t block_bytes)
{
    if (request.length < 0 || request.start > INT64_MAX - request.length) return UINT64_MAX;
    return blocks_of(static_cast<std::uint64_t>(request.start + request.length), block_bytes);
}

void note_lock(Volume& volume, FileId file, const MapRequest& request,
               const std::shared_ptr<const Layout>& layout)
{
    const bool is_unlocked = (request.flag & FS_M_FLAG_UNLOCKED) != 0;
    // An unlocked map locks nothing, but whoever took it may also change sizes: others that
    // hold the file must be counted against that.
    if (is_unlocked && volume.locks.holders(file) == 0) return;
    volume.locks.lock(file, may_be_new_holder(request));
    volume.locks.keep_layout(file, layout);
}

}  // namespace

std::uint32_t load_file(Volume& volume, FileId id, OpenFile& file)
{
    const auto* super = volume.fs->super;
    const bool is_reserved = id.inode != EXT2_ROOT_INO && id.inode < EXT2_FIRST_INODE(super);
    if (id.inode == 0 || is_reserved || id.inode > super->s_inodes_count) return FS_E_BAD_FILE;
    if (errcode_t error = ext2fs_read_inode(volume.fs.get(), id.inode, &file.inode)) {
        volume.report("inode " + std::to_string(id.inode) + ": " + error_text(error));
        return to_result(error);
    }
    file.id = id;
    const bool is_same = file.inode.i_generation == id.generation && file.inode.i_links_count != 0;
    return is_same ? FS_E_SUCCESS : FS_E_BAD_FILE;
}

std::uint32_t check_direct_access(const OpenFile& file)
{
    constexpr std::uint32_t kOpaque = EXT4_INLINE_DATA_FL | EXT4_ENCRYPT_FL | EXT2_COMPR_FL |
                                      EXT2_COMPRBLK_FL | EXT4_VERITY_FL | EXT4_EA_INODE_FL |
                                      EXT4_SNAPFILE_FL;
    if (!LINUX_S_ISREG(file.inode.i_mode)) return FS_E_NO_DIRECT;
    return (file.inode.i_flags & kOpaque) != 0 ? FS_E_NO_DIRECT : FS_E_SUCCESS;
}

std::shared_ptr<const Layout> load_layout(Volume& volume, OpenFile& file)
{
    if (auto kept = volume.locks.layout(file.id)) return kept;
    auto layout = std::make_shared<Layout>();
    std::string wrong =
        read_layout(volume.fs.get(), file.id.inode, file.inode, volume.zones, *layout);
    if (file.size_bytes() > static_cast<std::uint64_t>(INT64_MAX) - volume.block_bytes()) {
        wrong = "its size is absurd";
    }
    if (wrong.empty()) return layout;
    volume.report("inode " + std::to_string(file.id.inode) + " is damaged: " + wrong +
                  "; run e2fsck -f");
    return nullptr;
}

std::uint32_t describe_volume(Volume& volume, void* record, std::uint32_t& room_bytes)
{
    const std::uint32_t room = room_bytes;
    room_bytes = 0;
    if (room < sizeof(VolumeInfo) + sizeof(FSDisk)) return FS_E_OUT_OF_MEMORY;
    room_bytes = sizeof(VolumeInfo) + sizeof(FSDisk);

    const std::scoped_lock guard(volume.io);
    VolumeInfo info{};
    info.msgLen = static_cast<std::int32_t>(room_bytes);
    info.FStype = EXT2_SUPER_MAGIC;
    info.nDisks = 1;
    info.BlockSize = static_cast<std::int32_t>(volume.block_bytes());
    std::memcpy(info.fsSystem, format_name(volume.fs.get()), 4);
    FSDisk disk{};
    std::memcpy(disk.DiskID, volume.uuid.data(), volume.uuid.size());
    disk.IDlength = static_cast<std::int32_t>(volume.uuid.size());
    disk.IDoffset = kUuidPlace_bytes;
    disk.nBlocks = static_cast<std::int64_t>(ext2fs_blocks_count(volume.fs->super));
    auto* const bytes = static_cast<std::byte*>(record);
    std::memcpy(bytes, &info, sizeof info);
    std::memcpy(bytes + sizeof info, &disk, sizeof disk);
    return FS_E_SUCCESS;
}

std::uint32_t map_file(Volume& volume, FileId id, const MapRequest& request, void* record,
                       std::uint32_t& room_bytes)
{
    const std::scoped_lock guard(volume.io);
    settle_returned(volume);
    const std::uint32_t block_bytes = volume.block_bytes();
    OpenFile file;
    std::uint32_t result = load_file(volume, id, file);
    if (result == FS_E_SUCCESS) result = check_direct_access(file);
    if (result != FS_E_SUCCESS) return result;
    if (request.start < 0 || request.start % block_bytes != 0) return FS_E_IVPARAM;
    const auto layout = load_layout(volume, file);
    if (layout == nullptr) return FS_E_MISC_ERROR;

    const auto prepared = volume.locks.prepared(id);
    const auto first = static_cast<std::uint64_t>(request.start) / block_bytes;
    const std::uint64_t end = std::max(
        first,
        std::min(asked_end(request, block_bytes), map_end(*layout, prepared, file, block_bytes)));
    const plugin::MapSource source{*layout, prepared, block_bytes, file.size_bytes()};
    result = plugin::write_map_record(source, first, end, record, room_bytes);
    if (result == FS_E_SUCCESS || result == FS_E_PARTIAL) note_lock(volume, id, request, layout);
    return result;
}

std::uint32_t unlock_file(Volume& volume, FileId file)
{
    return volume.locks.unlock(file) ? FS_E_SUCCESS : FS_E_NOT_LOCKED;
}

}  // namespace corvane::ext

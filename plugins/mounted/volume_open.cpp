// Examines mounted file systems and refuses those whose blocks no client could reach.
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statfs.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "fsmdc/fs_result.h"
#include "fsmdc/records.h"
#include "plugins/mounted/mount_table.hpp"
#include "plugins/mounted/volume.hpp"

namespace corvane::mounted {
namespace {

static_assert(sizeof(VolumeInfo) == 104 && sizeof(FSDisk) == 80, "layout");

// The call is of Linux 6.9; older headers do not know it, older kernels refuse it.
struct FileSystemUuid {
    std::uint8_t size = 0;
    std::array<std::uint8_t, 16> bytes{};
};
static_assert(sizeof(FileSystemUuid) == 17, "layout");
constexpr unsigned long kGetUuidCall = _IOR(0x15, 0, FileSystemUuid);

std::string check_mount(const MountEntry& mount)
{
    if (mount.type != "ext4" && mount.type != "xfs") {
        return "it is " + mount.type + "; only ext4 and xfs are served while mounted";
    }
    if (mount.has_option("data=journal")) {
        return "it is mounted with data=journal, which writes old data back at any time; mount it "
               "with data=ordered";
    }
    if (mount.has_option("rtdev=")) {
        return "it has a realtime device, whose blocks cannot be told from the others'";
    }
    if (mount.has_option("dax=always") || mount.has_option("dax")) {
        return "it is mounted with dax: local programs reach its blocks without the kernel";
    }
    return {};
}

std::string read_device(Volume& volume, const MountEntry& mount)
{
    if (std::string wrong = volume.tree.load(mount.device, this_system()); !wrong.empty()) {
        return wrong;
    }
    std::array<std::byte, kSuperblockRoom_bytes> start{};
    if (!volume.read(0, start)) return "its first blocks cannot be read from its disk";
    const auto super = read_superblock(start);
    const Format format = mount.type == "xfs" ? Format::kXfs : Format::kExt4;
    if (!super || super->format != format) return "its disk has no superblock of " + mount.type;
    if (super->has_realtime) return "it has a realtime section, which lies on another device";
    if (super->uuid == Uuid{}) return "it has no UUID to know it by";
    volume.super = *super;
    return {};
}

void place_slices(Volume& volume)
{
    volume.unit_bytes = volume.tree.grain_bytes(volume.block_bytes());
    for (const TreeDisk& disk : volume.tree.disks()) {
        volume.slice_starts.push_back(disk.first_byte - disk.first_byte % volume.unit_bytes);
    }
}

std::string open_parts(Volume& volume)
{
    const std::string path = volume.line.mount_point();
    const auto mount = find_mount(path);
    if (!mount) return "nothing is mounted there; mount it, then restart the daemon";
    if (std::string wrong = check_mount(*mount); !wrong.empty()) return wrong;
    volume.device = mount->device;
    if (std::string wrong = read_device(volume, *mount); !wrong.empty()) return wrong;
    place_slices(volume);
    Descriptor root;
    if (volume.open_root(root) != FS_E_SUCCESS) return "its root cannot be opened";
    struct statfs status {};
    if (fstatfs(root.get(), &status) != 0) return std::generic_category().message(errno);
    volume.magic = static_cast<std::uint64_t>(status.f_type);
    return find_signatures(volume.tree, volume.super, volume.signatures);
}

FSDisk disk_record(const Volume& volume, std::size_t disk_index)
{
    const Signature& signature = volume.signatures[disk_index];
    const std::uint64_t start = volume.slice_starts[disk_index];
    const std::uint64_t bytes = volume.tree.disks()[disk_index].end_byte - start;
    FSDisk disk{};
    std::copy(signature.bytes.begin(), signature.bytes.end(), disk.DiskID);
    disk.IDlength = static_cast<std::int32_t>(signature.bytes.size());
    disk.IDoffset = static_cast<std::int64_t>(signature.place);
    disk.BlockOffset = static_cast<std::int64_t>(start / volume.unit_bytes);
    disk.nBlocks = static_cast<std::int64_t>(bytes / volume.unit_bytes);
    return disk;
}

}  // namespace

void Volume::report(const std::string& text) const
{
    log_line(line.mount_point() + ": " + text);
}

bool Volume::has_same_disks() const
{
    BlockTree now;
    return now.load(device, this_system()).empty() && now == tree;
}

bool Volume::read(std::uint64_t place, std::span<std::byte> bytes) const
{
    std::size_t at = 0;
    return tree.split(place, bytes.size(), [&](const Piece& piece) {
        const auto part = bytes.subspan(at, piece.bytes);
        at += piece.bytes;
        return read_disk(tree.disks()[piece.disk_index].name, piece.byte, part);
    });
}

std::uint32_t Volume::open_root(Descriptor& root) const
{
    root.reset(open(line.mount_point().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat status {};
    bool is_same = root.is_open() && fstat(root.get(), &status) == 0 && status.st_dev == device;
    FileSystemUuid found;
    if (is_same && ioctl(root.get(), kGetUuidCall, &found) == 0) {
        is_same = found.size != found.bytes.size() || found.bytes == super.uuid;
    }
    if (is_same) return FS_E_SUCCESS;
    report("what was mounted there at the start is there no more; restart the daemon");
    return FS_E_MISC_ERROR;
}

std::unique_ptr<Volume> open_volume(const VolumeLine& line, std::string& wrong)
{
    auto volume = std::make_unique<Volume>();
    volume->line = line;
    wrong = open_parts(*volume);
    if (!wrong.empty()) volume.reset();
    return volume;
}

std::uint32_t describe_volume(const Volume& volume, void* record, std::uint32_t& room_bytes)
{
    const std::uint32_t room = room_bytes;
    const std::size_t disk_count = volume.tree.disks().size();
    const std::size_t bytes_needed = sizeof(VolumeInfo) + disk_count * sizeof(FSDisk);
    room_bytes = 0;
    if (room < bytes_needed) return FS_E_OUT_OF_MEMORY;
    room_bytes = static_cast<std::uint32_t>(bytes_needed);

    VolumeInfo info{};
    info.msgLen = static_cast<std::int32_t>(bytes_needed);
    info.FStype = static_cast<std::int32_t>(volume.magic);
    info.GlomType =
        disk_count > 1 ? 1 : 0;  // each extent names its disk; nothing is to be computed
    info.nDisks = static_cast<std::uint32_t>(disk_count);
    info.BlockSize = static_cast<std::int32_t>(volume.unit_bytes);
    const std::string format = volume.super.format == Format::kXfs ? "xfs" : "ext4";
    std::memcpy(info.fsSystem, format.data(), format.size());
    auto* const bytes = static_cast<std::byte*>(record);
    std::memcpy(bytes, &info, sizeof info);
    for (std::size_t i = 0; i < disk_count; ++i) {
        const FSDisk disk = disk_record(volume, i);
        std::memcpy(bytes + sizeof info + i * sizeof disk, &disk, sizeof disk);
    }
    return FS_E_SUCCESS;
}

}  // namespace corvane::mounted

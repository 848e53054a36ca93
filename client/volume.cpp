// Reads the volume record and judges whether disks may be touched by it.
#include "client/volume.hpp"

#include <algorithm>
#include <limits>

#include "client/failure.hpp"
#include "client/text.hpp"
#include "fsmdc/fs_result.h"
#include "fsmdc/messages.h"
#include "fsmdc/records.h"

namespace corvane {
namespace {

[[noreturn]] void refuse(const std::string& why)
{
    throw Failure(kBadReply,
                  "the volume cannot be used: " + why + "; check the controller's plug-in");
}

VolumeDisk read_disk(const std::byte* at)
{
    const auto record = load<FSDisk>(at);
    VolumeDisk disk;
    std::ranges::copy(record.DiskID, disk.signature.begin());
    disk.signature_bytes = record.IDlength;
    disk.signature_offset = record.IDoffset;
    disk.first_block = record.BlockOffset;
    disk.block_count = record.nBlocks;
    return disk;
}

void check_disk(const VolumeDisk& disk, std::size_t index, std::int64_t block_bytes)
{
    const std::string name = "disk " + std::to_string(index);
    if (disk.signature_bytes < 1 ||
        disk.signature_bytes > static_cast<std::int32_t>(disk.signature.size())) {
        refuse(name + " has a signature of " + std::to_string(disk.signature_bytes) + " bytes");
    }
    const std::int64_t last = std::numeric_limits<std::int64_t>::max();
    if (disk.signature_offset < 0 || disk.signature_offset > last - disk.signature_bytes) {
        refuse(name + " has its signature outside every disk");
    }
    const std::int64_t most_blocks = last / block_bytes;
    if (disk.first_block < 0 || disk.block_count < 0 || disk.first_block > most_blocks ||
        disk.block_count > most_blocks - disk.first_block) {
        refuse(name + " has a slice outside every disk");
    }
}

}  // namespace

std::string VolumeDisk::signature_text() const
{
    const auto count = std::clamp<std::int32_t>(signature_bytes, 0, 16);
    return hex_text(signature.data(), static_cast<std::size_t>(count));
}

std::int64_t Volume::slice_start(std::size_t disk_index) const
{
    return disks[disk_index].first_block * block_bytes;
}

std::int64_t Volume::slice_bytes(std::size_t disk_index) const
{
    return disks[disk_index].block_count * block_bytes;
}

Volume read_volume(const Reply& reply)
{
    const auto bytes = reply.from(SP_GET_VOLUME_RECORD);
    const auto record = load<VolumeInfo>(bytes.data());
    if (record.vendorStatus != 0) {
        throw Failure(FS_E_MISC_ERROR,
                      "the plug-in cannot describe the volume: " +
                          reply.error_text(SP_GET_VOLUME_RECORD + sizeof(VolumeInfo)) +
                          " (status " + std::to_string(record.vendorStatus) +
                          "); look into the controller's log");
    }
    Volume volume{record.FStype, record.GlomType, record.GlomInfo, record.BlockSize, {}};
    for (std::uint32_t i = 0; i < record.nDisks; ++i) {
        volume.disks.push_back(read_disk(bytes.data() + sizeof(VolumeInfo) + i * sizeof(FSDisk)));
    }
    return volume;
}

void check_usable(const Volume& volume)
{
    const std::int32_t block_bytes = volume.block_bytes;
    constexpr std::int32_t kSmallest = 512;
    const bool is_power_of_two = block_bytes > 0 && (block_bytes & (block_bytes - 1)) == 0;
    if (!is_power_of_two || block_bytes < kSmallest || block_bytes > kLargestBlockBytes) {
        refuse("its block size is " + std::to_string(block_bytes) + " bytes");
    }
    if (volume.disks.empty()) refuse("it has no disk");
    for (std::size_t i = 0; i < volume.disks.size(); ++i)
        check_disk(volume.disks[i], i, block_bytes);
}

}  // namespace corvane

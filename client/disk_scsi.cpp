// A disk behind a SCSI generic node: past the page cache and the block layer.
#include <scsi/sg.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "client/disk_node.hpp"
#include "client/failure.hpp"
#include "fsmdc/scsi_io.h"

namespace corvane {
namespace {

constexpr std::size_t kScsiSectorBytes = 512;
constexpr std::int64_t kMostSectors = std::int64_t{1} << 32;  // what 10-byte commands can address
constexpr const char* kCheckDisk = "check the disk and its cabling, then try again";

std::string reason(std::int32_t code)
{
    switch (code) {
        case SCSI_IO_NO_MEMORY:
            return "the driver has no memory for the command";
        case SCSI_IO_STATUS:
            return "the device reported an error";
        default:
            return "the command could not be submitted";
    }
}

}  // namespace

ScsiDisk::ScsiDisk(const std::string& path, Descriptor descriptor, std::int32_t blocks_per_command)
    : SectorDisk(path, kScsiSectorBytes),
      descriptor_(std::move(descriptor)),
      blocks_per_command_(blocks_per_command)
{
}

// The node does not tell; what can be addressed is the bound.
std::int64_t ScsiDisk::size_bytes() const
{
    return kMostSectors * static_cast<std::int64_t>(kScsiSectorBytes);
}

void ScsiDisk::move(bool is_write, std::int64_t offset, std::byte* bytes, std::size_t count)
{
    constexpr std::size_t kPieceBytes = 1U << 30;  // the count of blocks stays a 32-bit number
    while (count != 0) {
        const std::size_t piece = std::min(count, kPieceBytes);
        const std::int32_t code = scsi_io(
            descriptor_.get(), is_write ? 1 : 0, bytes,
            static_cast<std::int32_t>(piece / kScsiSectorBytes),
            static_cast<std::uint32_t>(offset / static_cast<std::int64_t>(kScsiSectorBytes)),
            blocks_per_command_);
        if (code < 0) {
            throw Failure(kDiskError, std::string(is_write ? "writing " : "reading ") + name() +
                                          " failed: " + reason(code) + "; " + kCheckDisk);
        }
        bytes += piece;
        offset += static_cast<std::int64_t>(piece);
        count -= piece;
    }
}

void ScsiDisk::read_sectors(std::int64_t offset, std::span<std::byte> bytes)
{
    move(/*is_write=*/false, offset, bytes.data(), bytes.size());
}

void ScsiDisk::write_sectors(std::int64_t offset, std::span<const std::byte> bytes)
{
    // The one buffer argument serves both directions; a write leaves it as it is.
    move(/*is_write=*/true, offset, const_cast<std::byte*>(bytes.data()), bytes.size());
}

// SYNCHRONIZE CACHE(10) over the whole disk.
void ScsiDisk::flush()
{
    std::array<unsigned char, 10> command{0x35};
    std::array<unsigned char, 64> sense{};
    constexpr unsigned int kTimeoutMs = 60000;
    sg_io_hdr_t header{};
    header.interface_id = 'S';
    header.dxfer_direction = SG_DXFER_NONE;
    header.cmd_len = static_cast<unsigned char>(command.size());
    header.cmdp = command.data();
    header.mx_sb_len = static_cast<unsigned char>(sense.size());
    header.sbp = sense.data();
    header.timeout = kTimeoutMs;
    if (ioctl(descriptor_.get(), SG_IO, &header) != 0) {
        fail_errno(kDiskError, "flushing " + name() + " failed", errno, kCheckDisk);
    }
    constexpr unsigned char kIllegalRequest = 5;
    const bool is_unknown_command =
        (sense[2] & 0x0F) == kIllegalRequest;  // such a disk has no cache
    if ((header.info & SG_INFO_OK_MASK) != SG_INFO_OK && !is_unknown_command) {
        throw Failure(kDiskError, "flushing " + name() + " failed: " + reason(SCSI_IO_STATUS) +
                                      "; " + kCheckDisk);
    }
}

}  // namespace corvane

// Reads and writes image files and block devices through ordinary descriptors.
#include "client/disk_node.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "client/failure.hpp"

namespace corvane {
namespace {

constexpr const char* kCheckDisk = "check the disk and its cabling, then try again";

void read_exactly(int descriptor, std::int64_t offset, std::span<std::byte> bytes, const Disk& disk)
{
    while (!bytes.empty()) {
        const ssize_t count = pread(descriptor, bytes.data(), bytes.size(), offset);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0)
            fail_errno(kDiskError, "reading " + disk.name() + " failed", errno, kCheckDisk);
        if (count == 0) {
            throw Failure(kDiskError, disk.name() +
                                          " ends before the volume does; check that it is "
                                          "the volume's disk");
        }
        bytes = bytes.subspan(static_cast<std::size_t>(count));
        offset += count;
    }
}

void write_exactly(int descriptor, std::int64_t offset, std::span<const std::byte> bytes,
                   const Disk& disk)
{
    while (!bytes.empty()) {
        const ssize_t count = pwrite(descriptor, bytes.data(), bytes.size(), offset);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0)
            fail_errno(kDiskError, "writing " + disk.name() + " failed", errno, kCheckDisk);
        bytes = bytes.subspan(static_cast<std::size_t>(count));
        offset += count;
    }
}

void flush_data(int descriptor, const Disk& disk)
{
    if (fdatasync(descriptor) != 0) {
        fail_errno(kDiskError, "flushing " + disk.name() + " failed", errno, kCheckDisk);
    }
}

}  // namespace

ImageDisk::ImageDisk(const std::string& path, Descriptor descriptor, std::int64_t size_bytes)
    : Disk(path), descriptor_(std::move(descriptor)), size_bytes_(size_bytes)
{
}

void ImageDisk::read(std::int64_t offset, std::span<std::byte> bytes)
{
    check_range(offset, bytes.size());
    read_exactly(descriptor_.get(), offset, bytes, *this);
}

void ImageDisk::write(std::int64_t offset, std::span<const std::byte> bytes)
{
    check_range(offset, bytes.size());
    write_exactly(descriptor_.get(), offset, bytes, *this);
}

void ImageDisk::flush()
{
    flush_data(descriptor_.get(), *this);
}

bool SectorDisk::is_aligned(std::int64_t offset, std::span<const std::byte> bytes) const
{
    const auto address = reinterpret_cast<std::uintptr_t>(bytes.data());
    return static_cast<std::size_t>(offset) % sector_bytes_ == 0 &&
           bytes.size() % sector_bytes_ == 0 && address % kDiskAlignment == 0;
}

void SectorDisk::read(std::int64_t offset, std::span<std::byte> bytes)
{
    check_range(offset, bytes.size());
    if (is_aligned(offset, bytes)) {
        read_sectors(offset, bytes);
    } else {
        read_around(offset, bytes);
    }
}

// Reads the whole sectors around `bytes` through a buffer of its own, piece by piece.
void SectorDisk::read_around(std::int64_t offset, std::span<std::byte> bytes)
{
    constexpr std::size_t kPieceBytes = 64U << 10;
    const std::size_t most = std::max(sector_bytes_, kPieceBytes);
    const AlignedBuffer buffer(most);
    while (!bytes.empty()) {
        const auto skipped = static_cast<std::size_t>(offset) % sector_bytes_;
        const std::size_t wanted = std::min(bytes.size(), most - skipped);
        const std::size_t sectors = (skipped + wanted + sector_bytes_ - 1) / sector_bytes_;
        const auto whole = buffer.bytes().first(sectors * sector_bytes_);
        check_range(offset - static_cast<std::int64_t>(skipped), whole.size());
        read_sectors(offset - static_cast<std::int64_t>(skipped), whole);
        std::memcpy(bytes.data(), whole.data() + skipped, wanted);
        bytes = bytes.subspan(wanted);
        offset += static_cast<std::int64_t>(wanted);
    }
}

void SectorDisk::write(std::int64_t offset, std::span<const std::byte> bytes)
{
    check_range(offset, bytes.size());
    if (!is_aligned(offset, bytes)) {
        throw Failure(kDiskError, name() + " has sectors of " + std::to_string(sector_bytes_) +
                                      " bytes, larger than the volume's blocks; check that it is "
                                      "the volume's disk");
    }
    write_sectors(offset, bytes);
}

BlockDisk::BlockDisk(const std::string& path, Descriptor descriptor, std::size_t sector_bytes,
                     std::int64_t size_bytes)
    : SectorDisk(path, sector_bytes), descriptor_(std::move(descriptor)), size_bytes_(size_bytes)
{
}

void BlockDisk::read_sectors(std::int64_t offset, std::span<std::byte> bytes)
{
    read_exactly(descriptor_.get(), offset, bytes, *this);
}

void BlockDisk::write_sectors(std::int64_t offset, std::span<const std::byte> bytes)
{
    write_exactly(descriptor_.get(), offset, bytes, *this);
}

void BlockDisk::flush()
{
    flush_data(descriptor_.get(), *this);
}

}  // namespace corvane

// The kinds of disks: image files, block devices, SCSI generic nodes.
#ifndef CORVANE_CLIENT_DISK_NODE_HPP
#define CORVANE_CLIENT_DISK_NODE_HPP

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "client/descriptor_owner.hpp"
#include "client/disk.hpp"

namespace corvane {

// An image file, through the page cache.
class ImageDisk final : public Disk {
public:
    ImageDisk(const std::string& path, Descriptor descriptor, std::int64_t size_bytes);
    void read(std::int64_t offset, std::span<std::byte> bytes) override;
    void write(std::int64_t offset, std::span<const std::byte> bytes) override;
    void flush() override;
    [[nodiscard]] std::int64_t size_bytes() const override { return size_bytes_; }

private:
    Descriptor descriptor_;
    std::int64_t size_bytes_;
};

// A disk that moves whole sectors only. Reads that begin or end inside one go through a buffer;
// such writes are refused, for they would bring back what another host has overwritten meanwhile.
class SectorDisk : public Disk {
public:
    void read(std::int64_t offset, std::span<std::byte> bytes) final;
    void write(std::int64_t offset, std::span<const std::byte> bytes) final;

protected:
    SectorDisk(const std::string& path, std::size_t sector_bytes)
        : Disk(path), sector_bytes_(sector_bytes)
    {
    }

    // Offset and size are whole sectors, inside the disk, and the memory is aligned.
    virtual void read_sectors(std::int64_t offset, std::span<std::byte> bytes) = 0;
    virtual void write_sectors(std::int64_t offset, std::span<const std::byte> bytes) = 0;

private:
    void read_around(std::int64_t offset, std::span<std::byte> bytes);
    [[nodiscard]] bool is_aligned(std::int64_t offset, std::span<const std::byte> bytes) const;

    std::size_t sector_bytes_;
};

// A block device, opened for direct I/O: other hosts write it, so nothing of it may be cached here.
class BlockDisk final : public SectorDisk {
public:
    BlockDisk(const std::string& path, Descriptor descriptor, std::size_t sector_bytes,
              std::int64_t size_bytes);
    void flush() override;
    [[nodiscard]] std::int64_t size_bytes() const override { return size_bytes_; }

protected:
    void read_sectors(std::int64_t offset, std::span<std::byte> bytes) override;
    void write_sectors(std::int64_t offset, std::span<const std::byte> bytes) override;

private:
    Descriptor descriptor_;
    std::int64_t size_bytes_;
};

// A disk behind a SCSI generic node, by READ(10) and WRITE(10): sectors of 512 bytes, the first 2
// TiB.
class ScsiDisk final : public SectorDisk {
public:
    ScsiDisk(const std::string& path, Descriptor descriptor, std::int32_t blocks_per_command);
    void flush() override;
    [[nodiscard]] std::int64_t size_bytes() const override;

protected:
    void read_sectors(std::int64_t offset, std::span<std::byte> bytes) override;
    void write_sectors(std::int64_t offset, std::span<const std::byte> bytes) override;

private:
    void move(bool is_write, std::int64_t offset, std::byte* bytes, std::size_t count);

    Descriptor descriptor_;
    std::int32_t blocks_per_command_;
};

}  // namespace corvane
#endif

// A disk that this host sees: a block device, an image file, or a SCSI generic node.
#ifndef CORVANE_CLIENT_DISK_HPP
#define CORVANE_CLIENT_DISK_HPP

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace corvane {

// Buffers at this alignment, offsets and sizes in multiples of it, are the fast way on every disk.
constexpr std::size_t kDiskAlignment = 4096;

enum class Access { kRead, kReadWrite };

// Offsets are bytes from the start of the disk. All operations throw Failure(kDiskError). Not for
// two threads at once.
class Disk {
public:
    explicit Disk(std::string name) : name_(std::move(name)) {}
    virtual ~Disk() = default;
    Disk(const Disk&) = delete;
    Disk& operator=(const Disk&) = delete;

    // Reads all of `bytes`, wherever they begin and end.
    virtual void read(std::int64_t offset, std::span<std::byte> bytes) = 0;

    // Writes all of `bytes`. Offset and size are multiples of the file system's block size, and so
    // of the disk's sectors; otherwise it is refused.
    virtual void write(std::int64_t offset, std::span<const std::byte> bytes) = 0;

    // Returns once everything written is on the medium.
    virtual void flush() = 0;

    // Size in bytes, or -1 when it is not known.
    [[nodiscard]] virtual std::int64_t size_bytes() const = 0;

    [[nodiscard]] const std::string& name() const { return name_; }

    // Throws unless [offset, offset + count) can exist on this disk.
    void check_range(std::int64_t offset, std::size_t count) const;

private:
    std::string name_;
};

// Opens the disk at `path` by what it is. `sg_chunk_blocks`: blocks of one SCSI command, 0 =
// default.
[[nodiscard]] std::unique_ptr<Disk> open_disk(const std::string& path, Access access,
                                              std::int32_t sg_chunk_blocks = 0);

// The device that a path names, so that two names of one disk count once.
struct DiskIdentity {
    dev_t device = 0;
    ino_t inode = 0;  // 0 for device nodes
    bool operator==(const DiskIdentity&) const = default;
};
[[nodiscard]] DiskIdentity disk_identity(const std::string& path);

// Memory at kDiskAlignment.
class AlignedBuffer {
public:
    explicit AlignedBuffer(std::size_t size_bytes);
    [[nodiscard]] std::span<std::byte> bytes() const { return {memory_.get(), size_bytes_}; }

private:
    struct Free {
        void operator()(std::byte* memory) const noexcept { ::free(memory); }
    };
    std::size_t size_bytes_;
    std::unique_ptr<std::byte, Free> memory_;
};

}  // namespace corvane
#endif

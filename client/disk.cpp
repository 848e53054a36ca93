// Opens a disk by what its path names.
#include "client/disk.hpp"

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/major.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <cstdlib>
#include <new>
#include <utility>

#include "client/descriptor_owner.hpp"
#include "client/disk_node.hpp"
#include "client/failure.hpp"

namespace corvane {
namespace {

struct stat status_of(const std::string& path)
{
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        fail_errno(kDiskError, "the disk " + path + " cannot be found", errno,
                   "check the name that was given with --disk");
    }
    return status;
}

Descriptor open_node(const std::string& path, Access access, int extra_flags)
{
    const int mode = access == Access::kRead ? O_RDONLY : O_RDWR;
    Descriptor descriptor(open(path.c_str(), mode | O_CLOEXEC | extra_flags));
    if (!descriptor.is_open()) {
        fail_errno(kDiskError, "the disk " + path + " cannot be opened", errno,
                   "run as a user with rights to it");
    }
    return descriptor;
}

std::unique_ptr<Disk> open_block_device(const std::string& path, Access access)
{
    Descriptor descriptor = open_node(path, access, O_DIRECT);
    std::uint64_t size_bytes = 0;
    int sector_bytes = 0;
    if (ioctl(descriptor.get(), BLKGETSIZE64, &size_bytes) != 0 ||
        ioctl(descriptor.get(), BLKSSZGET, &sector_bytes) != 0 || sector_bytes < 1) {
        fail_errno(kDiskError, "the size of " + path + " cannot be read", errno, "check the disk");
    }
    return std::make_unique<BlockDisk>(path, std::move(descriptor),
                                       static_cast<std::size_t>(sector_bytes),
                                       static_cast<std::int64_t>(size_bytes));
}

}  // namespace

void Disk::check_range(std::int64_t offset, std::size_t count) const
{
    const std::int64_t size = size_bytes();
    const auto wanted = static_cast<std::int64_t>(count);
    if (offset >= 0 && wanted >= 0 && (size < 0 || (offset <= size && wanted <= size - offset)))
        return;
    throw Failure(kDiskError,
                  name() + " ends before the volume does; check that it is the volume's disk");
}

std::unique_ptr<Disk> open_disk(const std::string& path, Access access,
                                std::int32_t sg_chunk_blocks)
{
    const struct stat status = status_of(path);
    if (S_ISBLK(status.st_mode)) return open_block_device(path, access);
    if (S_ISCHR(status.st_mode) && major(status.st_rdev) == SCSI_GENERIC_MAJOR) {
        // Commands are written to the node even when they read.
        return std::make_unique<ScsiDisk>(path, open_node(path, Access::kReadWrite, 0),
                                          sg_chunk_blocks);
    }
    if (S_ISREG(status.st_mode)) {
        return std::make_unique<ImageDisk>(path, open_node(path, access, 0), status.st_size);
    }
    throw Failure(kDiskError, path +
                                  " is no disk; give a block device, a SCSI generic node or an "
                                  "image file");
}

DiskIdentity disk_identity(const std::string& path)
{
    const struct stat status = status_of(path);
    if (S_ISBLK(status.st_mode) || S_ISCHR(status.st_mode)) return {status.st_rdev, 0};
    return {status.st_dev, status.st_ino};
}

AlignedBuffer::AlignedBuffer(std::size_t size_bytes) : size_bytes_(size_bytes)
{
    void* memory = nullptr;
    if (posix_memalign(&memory, kDiskAlignment, size_bytes) != 0) throw std::bad_alloc();
    memory_.reset(static_cast<std::byte*>(memory));
}

}  // namespace corvane

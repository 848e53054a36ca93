// Opens, claims and locks the source of a volume.
#include "plugins/ext/source.hpp"

#include <ext2fs/ext2fs.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <system_error>
#include <vector>

namespace corvane::ext {
namespace {

std::string errno_text()
{
    return std::generic_category().message(errno);
}

struct FreeBuffer {
    void operator()(void* buffer) const noexcept { std::free(buffer); }
};

std::string check_not_in_use(const std::string& path)
{
    int flags = 0;
    if (errcode_t error = ext2fs_check_if_mounted(path.c_str(), &flags)) {
        return std::string("cannot tell whether it is mounted: ") + error_message(error);
    }
    if ((flags & EXT2_MF_MOUNTED) != 0) return "it is mounted; unmount it, then restart the daemon";
    if ((flags & EXT2_MF_SWAP) != 0) return "it is swap space";
    if ((flags & EXT2_MF_BUSY) != 0) {
        return "the kernel says that it is in use; release it, then restart the daemon";
    }
    return {};
}

}  // namespace

Source::~Source()
{
    if (descriptor_ >= 0) ::close(descriptor_);
}

std::string Source::open(const std::string& path, bool is_writable)
{
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        return errno_text() + "; create it or correct its path";
    }
    is_device_ = S_ISBLK(status.st_mode);
    if (!is_device_ && !S_ISREG(status.st_mode)) {
        return "neither an image file nor a block device; correct its path";
    }
    if (std::string wrong = check_not_in_use(path); !wrong.empty()) return wrong;
    const int access = is_writable ? O_RDWR : O_RDONLY;
    descriptor_ = ::open(path.c_str(), access | O_CLOEXEC | O_NONBLOCK | (is_device_ ? O_EXCL : 0));
    if (descriptor_ < 0) {
        return errno_text() + (is_writable ? "; make it writable or list it with \"ro\"" : "");
    }
    int is_read_only = 0;
    if (is_device_ && is_writable && ::ioctl(descriptor_, BLKROGET, &is_read_only) == 0 &&
        is_read_only != 0) {
        return "the device is read-only; make it writable or list it with \"ro\"";
    }
    if (::flock(descriptor_, (is_writable ? LOCK_EX : LOCK_SH) | LOCK_NB) != 0) {
        return errno == EWOULDBLOCK ? "another program has locked it (a second daemon, or a second "
                                      "line of the list?)"
                                    : "cannot be locked: " + errno_text();
    }
    const off_t end = ::lseek(descriptor_, 0, SEEK_END);
    if (end < 0) return "its size cannot be read: " + errno_text();
    size_bytes_ = static_cast<std::uint64_t>(end);
    path_ = path;
    return {};
}

bool Source::zero_block_tail(std::uint64_t from, std::uint64_t block_end, std::uint32_t block_bytes)
{
    if (is_device_ && zero_tail_direct(from, block_end, block_bytes)) return true;
    const std::vector<char> zeros(block_end - from, '\0');
    if (is_device_) {
        // A sector larger than the block allows no direct access: have the page read anew instead.
        const auto block_begin = static_cast<off_t>(block_end - block_bytes);
        (void)::posix_fadvise(descriptor_, block_begin, block_bytes, POSIX_FADV_DONTNEED);
    }
    const ssize_t written =
        ::pwrite(descriptor_, zeros.data(), zeros.size(), static_cast<off_t>(from));
    return written == static_cast<ssize_t>(zeros.size());
}

bool Source::zero_tail_direct(std::uint64_t from, std::uint64_t block_end,
                              std::uint32_t block_bytes)
{
    const int direct = ::open(path_.c_str(), O_RDWR | O_CLOEXEC | O_DIRECT);
    if (direct < 0) return false;
    const std::unique_ptr<char, FreeBuffer> block(
        static_cast<char*>(std::aligned_alloc(block_bytes, block_bytes)));
    const std::uint64_t block_begin = block_end - block_bytes;
    const auto whole = static_cast<ssize_t>(block_bytes);
    const auto at = static_cast<off_t>(block_begin);
    bool is_done = block != nullptr && ::pread(direct, block.get(), block_bytes, at) == whole;
    if (is_done) {
        std::memset(block.get() + (from - block_begin), 0, block_end - from);
        is_done = ::pwrite(direct, block.get(), block_bytes, at) == whole;
    }
    ::close(direct);
    return is_done;
}

}  // namespace corvane::ext

// Opens files, lends them, and settles them when they come back.
#include "plugins/mounted/lent_file.hpp"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <system_error>
#include <thread>

#include "fsmdc/fs_result.h"
#include "plugins/common/runs.hpp"
#include "plugins/mounted/openers.hpp"
#include "plugins/mounted/page_cache.hpp"
#include "plugins/mounted/volume.hpp"

namespace corvane::mounted {
namespace {

constexpr int kLendAttempts = 3;
// Somebody else's lease (Samba keeps some) is asked back by opening the file, and given up soon.
constexpr int kOpenAttempts = 20;
constexpr std::chrono::milliseconds kOpenPause{50};

std::string error_text(int error)
{
    return std::generic_category().message(error);
}

std::string read_path(int descriptor)
{
    std::array<char, PATH_MAX> text{};
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    const ssize_t size = readlink(link.c_str(), text.data(), text.size() - 1);
    return size > 0 ? std::string(text.data(), static_cast<std::size_t>(size)) : "a file";
}

// Opens without waiting for somebody else's lease longer than need be.
template <class Open>
int open_patiently(Open open_once)
{
    for (int attempt = 1;; ++attempt) {
        const int descriptor = open_once();
        if (descriptor >= 0) {
            (void)fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) & ~O_NONBLOCK);
            return descriptor;
        }
        if (errno != EWOULDBLOCK || attempt == kOpenAttempts) return -1;
        std::this_thread::sleep_for(kOpenPause);
    }
}

std::uint32_t to_result(int error)
{
    switch (error) {
        case ESTALE:
        case ENOENT:
        case EINVAL:
            return FS_E_BAD_FILE;
        case EROFS:
        case EACCES:
        case EPERM:
            return FS_E_PRIVILEGE;
        case EWOULDBLOCK:
        case ETXTBSY:
            return FS_E_NO_DIRECT;
        case ENOMEM:
            return FS_E_OUT_OF_MEMORY;
        default:
            return FS_E_MISC_ERROR;
    }
}

}  // namespace

void LentFile::report(const std::string& text) const
{
    volume_.report(path_ + ": " + text);
}

std::uint32_t LentFile::refuse(std::uint32_t result, const std::string& why) const
{
    report("no map of it: " + why);
    return result;
}

// Says who has the file, too.
std::uint32_t LentFile::refuse_in_use(const std::string& why) const
{
    const std::string who = find_holders(inode_of(file_.get()));
    return refuse(FS_E_NO_DIRECT, why + (who.empty() ? "" : "; in use by " + who));
}

std::uint64_t LentFile::real_bytes() const
{
    struct stat status {};
    return fstat(file_.get(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

std::uint64_t LentFile::whole_blocks(std::uint64_t bytes) const
{
    return plugin::blocks_of(bytes, volume_.block_bytes()) * volume_.block_bytes();
}

std::uint32_t LentFile::open_by_handle(int flags, Descriptor& file) const
{
    Descriptor root;
    if (const auto result = volume_.open_root(root); result != FS_E_SUCCESS) return result;
    struct {
        file_handle head;
        std::array<unsigned char, FileId::kMostBytes> room;
    } handle{};
    handle.head.handle_bytes = id_.size;
    handle.head.handle_type = id_.type;
    std::memcpy(handle.head.f_handle, id_.handle.data(), id_.size);
    file.reset(open_patiently(
        [&] { return open_by_handle_at(root.get(), &handle.head, flags | O_CLOEXEC); }));
    return file.is_open() ? FS_E_SUCCESS : to_result(errno);
}

// Opens the same inode in another way, even if it has no name any more.
std::uint32_t LentFile::reopen(int flags, Descriptor& file) const
{
    const std::string link = "/proc/self/fd/" + std::to_string(keep_.get());
    file.reset(open_patiently([&] { return open(link.c_str(), flags | O_NONBLOCK | O_CLOEXEC); }));
    return file.is_open() ? FS_E_SUCCESS : to_result(errno);
}

std::uint32_t LentFile::open_first()
{
    if (const auto result = open_by_handle(O_PATH, keep_); result != FS_E_SUCCESS) return result;
    path_ = read_path(keep_.get());
    struct stat status {};
    if (fstat(keep_.get(), &status) != 0) return to_result(errno);
    // A device or a pipe would be more than looked at by opening it.
    if (!S_ISREG(status.st_mode)) return FS_E_NO_DIRECT;
    if (status.st_nlink == 0) return FS_E_BAD_FILE;
    const auto result = open_by_handle(O_RDONLY | O_NONBLOCK, file_);
    return result != FS_E_SUCCESS ? result : check_kind();
}

// Files whose bytes on disk are not simply the file's.
std::uint32_t LentFile::check_kind()
{
    constexpr std::uint64_t kOpaque =
        STATX_ATTR_COMPRESSED | STATX_ATTR_ENCRYPTED | STATX_ATTR_VERITY | STATX_ATTR_DAX;
    struct statx attributes {};
    if (statx(file_.get(), "", AT_EMPTY_PATH, STATX_BASIC_STATS, &attributes) != 0) {
        return to_result(errno);
    }
    if ((attributes.stx_attributes & kOpaque) != 0) {
        return refuse(FS_E_NO_DIRECT, "it is encrypted, compressed, verified or on DAX");
    }
    unsigned flags = 0;
    if (ioctl(file_.get(), FS_IOC_GETFLAGS, &flags) == 0 && (flags & FS_JOURNAL_DATA_FL) != 0) {
        return refuse(FS_E_NO_DIRECT, "its data is journalled");
    }
    fsxattr extended{};
    if (ioctl(file_.get(), FS_IOC_FSGETXATTR, &extended) == 0 &&
        (extended.fsx_xflags & FS_XFLAG_REALTIME) != 0) {
        return refuse(FS_E_NO_DIRECT, "it lies on the realtime device");
    }
    return FS_E_SUCCESS;
}

// After this the file is open, leased, out of the page cache, and `extents_` is true.
std::uint32_t LentFile::ensure_lent()
{
    if (!is_open()) {
        if (const auto result = open_first(); result != FS_E_SUCCESS) return result;
        return lend(LeaseKind::kRead);
    }
    if (lease_.is_held()) return FS_E_SUCCESS;
    const auto result = lend(is_writing_ ? LeaseKind::kWrite : LeaseKind::kRead);
    const std::uint64_t real = real_bytes();
    if (result == FS_E_SUCCESS && is_writing_ && real != last_real_) {
        // Whoever the kernel let in had the last word.
        report("somebody changed its size while it was lent; that size counts now");
        named_ = real;
        last_real_ = real;
    }
    return result;
}

std::uint32_t LentFile::lend(LeaseKind kind)
{
    if (!volume_.has_same_disks()) {
        return refuse(FS_E_MISC_ERROR, "the volume's disks or tables changed; restart the daemon");
    }
    for (int attempt = 0; attempt < kLendAttempts; ++attempt) {
        bool has_changed = false;
        const auto result = lend_once(kind, has_changed);
        if (result != FS_E_SUCCESS || !has_changed) return result;
    }
    return refuse_in_use("its blocks change");
}

// The blocks are asked for before and after the lease is taken: in between anybody may change them.
std::uint32_t LentFile::lend_once(LeaseKind kind, bool& has_changed)
{
    std::vector<FileExtent> before;
    std::uint32_t result = drop_pages();
    if (result == FS_E_SUCCESS) result = read_blocks(before);
    if (result != FS_E_SUCCESS) return result;
    const std::uint64_t size_before = real_bytes();
    const int error = take_lease(kind);
    if (error == EAGAIN) {
        return refuse_in_use(kind == LeaseKind::kRead ? "it is open for writing" : "it is open");
    }
    if (error != 0) return refuse(FS_E_NO_DIRECT, "no kernel lease: " + error_text(error));
    std::vector<FileExtent> after;
    result = drop_pages();
    if (result == FS_E_SUCCESS) result = read_blocks(after);
    has_changed = before != after || size_before != real_bytes();
    if (result != FS_E_SUCCESS || has_changed) {
        lease_.release();
        return result;
    }
    extents_ = std::move(after);
    return FS_E_SUCCESS;
}

int LentFile::take_lease(LeaseKind kind)
{
    return lease_.take(file_.get(), kind,
                       [volume = &volume_, path = path_](const std::string& text) {
                           volume->report(path + ": " + text);
                       });
}

std::uint32_t LentFile::drop_pages()
{
    if (write_back_and_drop(file_.get())) return FS_E_SUCCESS;
    if (errno == EBUSY) return refuse_in_use("its pages stay in this host's memory");
    return refuse(FS_E_MISC_ERROR, "it cannot be written back: " + error_text(errno));
}

std::uint32_t LentFile::read_blocks(std::vector<FileExtent>& extents)
{
    const ExtentBounds bounds{whole_blocks(real_bytes()), volume_.tree.size_bytes(),
                              volume_.block_bytes()};
    std::string wrong;
    const auto result = read_extents(file_.get(), bounds, extents, wrong);
    return result == FS_E_SUCCESS ? result : refuse(result, wrong);
}

// The lease for writing wants the only descriptor there is, one that can write. Between the two
// leases anybody may come: then the file stays lent for reading, if it still can be.
std::uint32_t LentFile::start_writing()
{
    if (is_writing_) return FS_E_SUCCESS;
    unsigned flags = 0;
    const bool is_guarded = ioctl(file_.get(), FS_IOC_GETFLAGS, &flags) == 0 &&
                            (flags & (FS_IMMUTABLE_FL | FS_APPEND_FL)) != 0;
    if (!volume_.line.writable || is_guarded) return FS_E_PRIVILEGE;
    // A refusal must not cost those who read their lease: it is given up only when nobody is there.
    if (lease_.is_held() && !lease_.could_write()) return refuse_in_use("it is open");
    lease_.release();
    file_.reset();
    std::uint32_t result = reopen(O_RDWR, file_);
    if (result == FS_E_SUCCESS) result = lend(LeaseKind::kWrite);
    if (result != FS_E_SUCCESS) {
        return_to_reading();
        return result;
    }
    is_writing_ = true;
    named_ = real_bytes();
    last_real_ = named_;
    allocated_end_ = 0;
    return FS_E_SUCCESS;
}

// A failure leaves the file open without a lease; the next call for it tries again.
void LentFile::return_to_reading()
{
    lease_.release();
    file_.reset();
    if (reopen(O_RDONLY, file_) != FS_E_SUCCESS) return;
    // Maps for reading are out, and what this host has in memory need not go for them: as long as
    // nobody writes, it is what the disk has.
    std::vector<FileExtent> now;
    const bool is_as_before =
        take_lease(LeaseKind::kRead) == 0 && read_blocks(now) == FS_E_SUCCESS && now == extents_;
    if (!is_as_before) (void)lend(LeaseKind::kRead);  // it logs why not
}

bool LentFile::adopt(const Loan& loan)
{
    std::uint32_t result = ensure_lent();
    const bool is_same =
        result == FS_E_SUCCESS && real_bytes() == loan.real && changed_ns() == loan.changed_ns;
    if (is_same) result = start_writing();
    if (!is_same || result != FS_E_SUCCESS) {
        report(
            "it was lent when the daemon was killed, and changed or is in use since; its size "
            "stays as it is");
        forget_loan(volume_.uuid(), id_);
        return false;
    }
    named_ = loan.named;
    report("it was lent when the daemon was killed, and is so again");
    return true;
}

std::int64_t LentFile::changed_ns() const
{
    struct stat status {};
    if (fstat(file_.get(), &status) != 0) return 0;
    return status.st_mtim.tv_sec * std::int64_t{1000000000} + status.st_mtim.tv_nsec;
}

// What the next daemon has to know if this one is killed.
void LentFile::note_sizes() const
{
    const std::uint64_t real = real_bytes();
    if (real != named_) {
        note_loan({volume_.uuid(), id_, named_, real, changed_ns()});
    } else {
        forget_loan(volume_.uuid(), id_);
    }
}

void LentFile::settle()
{
    if (is_open()) {
        if (is_writing_) settle_size();
        if (!write_back_and_drop(file_.get())) {
            report(
                "it came back, but its pages stay in this host's memory: what local programs "
                "read of it may be old");
        }
        lease_.release();
    }
    file_.reset();
    keep_.reset();
    is_writing_ = false;
    extents_.clear();
    filled_.clear();
}

void LentFile::settle_size()
{
    const std::uint64_t real = real_bytes();
    if (!lease_.is_held() && real != last_real_) {
        report("somebody changed its size while it was lent; it stays as it is");
        forget_loan(volume_.uuid(), id_);
        return;
    }
    std::uint32_t result = FS_E_SUCCESS;
    if (real != named_) result = resize(named_, /*keeps_tail=*/false);
    if (result != FS_E_SUCCESS) report("its size could not be set to " + std::to_string(named_));
    forget_loan(volume_.uuid(), id_);
    if (lease_.is_held()) give_back();
    // Clients wrote without the kernel's knowledge: others go by this time.
    (void)futimens(file_.get(), nullptr);
}

}  // namespace corvane::mounted

// Local input and output, interruptible where it may block.
#include "client/local_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <vector>

#include "client/failure.hpp"

namespace corvane {
namespace {

constexpr std::size_t kPieceBytes = 1U << 20;

void throw_if(const std::atomic<bool>* stop)
{
    if (stop != nullptr && stop->load()) {
        throw Failure(kInterrupted, "interrupted; run the command again");
    }
}

// Reads what there is, up to the room; 0 at the end.
std::size_t read_some(int descriptor, std::span<std::byte> room, const std::string& name,
                      const std::atomic<bool>* stop)
{
    for (;;) {
        throw_if(stop);
        const ssize_t count = ::read(descriptor, room.data(), room.size());
        if (count >= 0) return static_cast<std::size_t>(count);
        if (errno != EINTR) {
            fail_errno(kLocalFile, "reading " + name + " failed", errno, "check the input");
        }
    }
}

void write_exactly(int descriptor, std::span<const std::byte> bytes, const std::string& name,
                   const std::atomic<bool>* stop)
{
    while (!bytes.empty()) {
        throw_if(stop);
        const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0 && errno == EPIPE) throw OutputClosed();
        if (count < 0) {
            fail_errno(kLocalFile, "writing " + name + " failed", errno,
                       "make room or check its reader");
        }
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
}

std::string spool_directory()
{
    const char* const chosen = std::getenv("TMPDIR");
    return chosen != nullptr && *chosen != 0 ? chosen : "/var/tmp";
}

Descriptor nameless_file(const std::string& directory)
{
    constexpr mode_t kPrivate = 0600;
    Descriptor file(open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, kPrivate));
    if (file.is_open()) return file;
    // Not every file system knows nameless files.
    std::string name = directory + "/corvane.XXXXXX";
    file = Descriptor(mkostemp(name.data(), O_CLOEXEC));
    if (!file.is_open()) {
        fail_errno(kLocalFile, "no temporary file in " + directory, errno,
                   "set TMPDIR to a directory with room for the input");
    }
    (void)unlink(name.c_str());  // the descriptor keeps it; a left name would only be litter
    return file;
}

Descriptor spooled(int input, const std::string& name, const std::atomic<bool>* stop)
{
    const std::string directory = spool_directory();
    Descriptor spool = nameless_file(directory);
    std::vector<std::byte> piece(kPieceBytes);
    for (;;) {
        const std::size_t count = read_some(input, piece, name, stop);
        if (count == 0) return spool;
        write_exactly(spool.get(), std::span(piece).first(count),
                      "a temporary file in " + directory, stop);
    }
}

bool is_regular(int descriptor)
{
    struct stat status {};
    return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

DescriptorSink::DescriptorSink(int descriptor, std::string name, const std::atomic<bool>* stop)
    : descriptor_(descriptor), name_(std::move(name)), stop_(stop)
{
    struct stat status {};
    const bool has_status = fstat(descriptor, &status) == 0;
    const int flags = fcntl(descriptor, F_GETFL);
    may_skip_ = has_status && S_ISREG(status.st_mode) && status.st_size == 0 && flags != -1 &&
                (flags & O_APPEND) == 0 && lseek(descriptor, 0, SEEK_CUR) == 0;
}

void DescriptorSink::write(std::span<const std::byte> bytes)
{
    write_exactly(descriptor_, bytes, name_, stop_);
    position_ += static_cast<std::int64_t>(bytes.size());
}

void DescriptorSink::write_zeros(std::int64_t count)
{
    if (may_skip_) {
        position_ += count;
        if (lseek(descriptor_, position_, SEEK_SET) < 0) {
            fail_errno(kLocalFile, "writing " + name_ + " failed", errno, "make room for it");
        }
        return;
    }
    static constexpr std::array<std::byte, 65536> kZeros{};
    while (count > 0) {
        const auto step = std::min<std::int64_t>(count, kZeros.size());
        write(std::span(kZeros).first(static_cast<std::size_t>(step)));
        count -= step;
    }
}

void DescriptorSink::finish()
{
    if (may_skip_ && ftruncate(descriptor_, position_) != 0) {
        fail_errno(kLocalFile, "writing " + name_ + " failed", errno, "make room for it");
    }
}

Descriptor create_output(const std::string& path)
{
    constexpr mode_t kMode = 0666;
    Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kMode));
    if (!file.is_open()) {
        fail_errno(kLocalFile, "the output file " + path + " cannot be opened", errno,
                   "name another one with -o");
    }
    return file;
}

FileSource::FileSource(Descriptor descriptor, std::string name)
    : descriptor_(std::move(descriptor)), name_(std::move(name))
{
    struct stat status {};
    if (fstat(descriptor_.get(), &status) != 0) {
        fail_errno(kLocalFile, "reading " + name_ + " failed", errno, "check the input");
    }
    size_ = status.st_size;
}

void FileSource::read(std::span<std::byte> bytes)
{
    while (!bytes.empty()) {
        const ssize_t count = pread(descriptor_.get(), bytes.data(), bytes.size(), position_);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0)
            fail_errno(kLocalFile, "reading " + name_ + " failed", errno, "check the input");
        if (count == 0) {
            throw Failure(kLocalFile, name_ + " became shorter while it was read; let it rest");
        }
        position_ += count;
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
}

FileSource open_input(const std::string& path, const std::atomic<bool>* stop)
{
    const std::string name = path.empty() ? "standard input" : path;
    Descriptor file(path.empty() ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)
                                 : open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.is_open()) {
        fail_errno(kLocalFile, name + " cannot be opened", errno, "name another file with -i");
    }
    // Standard input counts from where it stands, so only a file at its start is read as it is.
    if (is_regular(file.get()) && lseek(file.get(), 0, SEEK_CUR) == 0) {
        return {std::move(file), name};
    }
    return {spooled(file.get(), name, stop), name};
}

}  // namespace corvane

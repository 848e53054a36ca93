// What the targets of message catalogues share: bytes as files in memory, diagnostics out of the
// way.
#ifndef CORVANE_FUZZ_NLS_SUPPORT_HPP
#define CORVANE_FUZZ_NLS_SUPPORT_HPP

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace corvane::fuzz {

class MemoryFile {
public:
    explicit MemoryFile(const void* bytes, std::size_t size)
        : fd_(memfd_create("fuzz", MFD_CLOEXEC))
    {
        if (fd_ < 0 || write(fd_, bytes, size) != static_cast<ssize_t>(size)) std::abort();
        rewind();
    }
    ~MemoryFile() { close(fd_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    void rewind() const { (void)lseek(fd_, 0, SEEK_SET); }
    [[nodiscard]] int fd() const { return fd_; }
    [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }
    [[nodiscard]] std::string contents() const
    {
        std::string bytes(static_cast<std::size_t>(lseek(fd_, 0, SEEK_END)), '\0');
        if (pread(fd_, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
            std::abort();
        return bytes;
    }

private:
    int fd_;
};

// Drops what is written to the standard streams; a sanitizer writes past them.
inline void silence()
{
    static std::FILE* const nowhere = std::fopen("/dev/null", "w");
    stdout = nowhere;
    stderr = nowhere;
}

}  // namespace corvane::fuzz
#endif

// Bounded reads of a catalogue file.
#include "nls/catalogue_file.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

// A writer may let sets share texts; nothing useful shares all of them more often than this.
constexpr std::uint64_t kTimesShared = 64;

// Bytes in the file; 0 when that cannot be told.
std::uint64_t size_of(int fd) noexcept
{
    struct stat status = {};
    if (fstat(fd, &status) != 0 || status.st_size < 0) return 0;
    return static_cast<std::uint64_t>(status.st_size);
}

}  // namespace

namespace corvane {

bool read_exactly(int fd, std::uint64_t offset, void* out, std::size_t size) noexcept
{
    auto* to = static_cast<char*>(out);
    while (size > 0) {
        const ssize_t got = pread(fd, to, size, static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        to += got;
        offset += static_cast<std::uint64_t>(got);
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

bool file_holds(int fd, std::uint64_t offset, std::uint64_t size) noexcept
{
    if (size == 0) return true;
    const std::uint64_t file_bytes = size_of(fd);
    return offset <= file_bytes && size <= file_bytes - offset;
}

bool is_fair_share(int fd, std::uint64_t bytes) noexcept
{
    return bytes <= kTimesShared * size_of(fd);
}

bool read_header(int fd, MCHeaderT& header) noexcept
{
    if (!read_exactly(fd, 0, &header, sizeof header)) return false;
    ntoh_MCHeaderT(&header);
    return std::memcmp(header.magic, MC_MAGIC, MC_MAGIC_BYTES) == 0;
}

SetChain::Step SetChain::next(MCSetT& set)
{
    while (next_ != 0) {
        // A record read twice would be read for ever: each offset counts once.
        if (next_ < sizeof(MCHeaderT) || !visited_.insert(next_).second) return Step::kCorrupt;
        if (!read_exactly(fd_, next_, &set, sizeof set)) return Step::kCorrupt;
        ntoh_MCSetT(&set);
        next_ = set.nextSet;
        if (set.invalid == 0) return Step::kRecord;
    }
    return Step::kEnd;
}

const char* block_text(const char* block, std::size_t block_bytes, std::uint32_t offset) noexcept
{
    if (offset >= block_bytes) return nullptr;
    const char* const text = block + offset;
    return std::memchr(text, 0, block_bytes - offset) == nullptr ? nullptr : text;
}

}  // namespace corvane

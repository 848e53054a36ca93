// Fills blocks with zeros by the device where it can, else by direct writes.
#include "plugins/mounted/zero_fill.hpp"

#include <fcntl.h>
#include <linux/falloc.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace corvane::mounted {
namespace {

constexpr std::size_t kStep_bytes = std::size_t{1} << 20;
constexpr std::size_t kAlignment = 4096;

// Of Linux 6.17: blocks become written zeros, and the device writes them by itself. Older headers
// do not know it; older kernels, and devices that cannot, refuse it.
constexpr int kWriteZeroes = 0x80;

struct Free {
    void operator()(std::byte* memory) const noexcept { std::free(memory); }
};
using Buffer = std::unique_ptr<std::byte, Free>;

Buffer zeros(std::size_t bytes)
{
    Buffer buffer(static_cast<std::byte*>(std::aligned_alloc(kAlignment, bytes)));
    if (buffer != nullptr) std::memset(buffer.get(), 0, bytes);
    return buffer;
}

// Direct I/O for one scope: the page cache knows whole pages, and its neighbours' bytes may be old.
class DirectScope {
public:
    explicit DirectScope(int descriptor)
        : descriptor_(descriptor), flags_(fcntl(descriptor, F_GETFL))
    {
        (void)fcntl(descriptor_, F_SETFL, flags_ | O_DIRECT);
    }
    ~DirectScope() { (void)fcntl(descriptor_, F_SETFL, flags_); }
    DirectScope(const DirectScope&) = delete;
    DirectScope& operator=(const DirectScope&) = delete;

private:
    int descriptor_;
    int flags_;
};

}  // namespace

std::uint64_t write_zeros(int descriptor, std::uint64_t from, std::uint64_t end,
                          std::uint32_t block_bytes, int& error)
{
    error = 0;
    const auto place = [](std::uint64_t at) { return static_cast<off_t>(at); };
    if (fallocate(descriptor, kWriteZeroes, place(from), place(end - from)) == 0) {
        return end - from;
    }
    // Together, so that the blocks lie together; when that fails, the writes take what there is.
    (void)fallocate(descriptor, FALLOC_FL_KEEP_SIZE, place(from), place(end - from));
    const Buffer buffer = zeros(std::max<std::size_t>(kStep_bytes, block_bytes));
    if (buffer == nullptr) {
        error = ENOMEM;
        return 0;
    }
    const DirectScope direct(descriptor);
    std::uint64_t at = from;
    std::size_t step = std::max<std::size_t>(kStep_bytes, block_bytes);
    while (at < end) {
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(step, end - at));
        const ssize_t got = pwrite(descriptor, buffer.get(), wanted, place(at));
        if (got > 0) {
            at += static_cast<std::uint64_t>(got);
            continue;
        }
        if (got < 0 && errno == EINTR) continue;
        if (got < 0 && errno != ENOSPC && errno != EDQUOT) {
            error = errno;
            break;
        }
        if (wanted <= block_bytes) {
            error = ENOSPC;
            break;
        }
        step = std::max<std::size_t>(block_bytes, wanted / 2 / block_bytes * block_bytes);
    }
    at -= (at - from) % block_bytes;
    return at - from;
}

bool is_all_zeros(int descriptor, std::uint64_t from, std::uint64_t end)
{
    const Buffer zero = zeros(kStep_bytes);
    const Buffer found = zeros(kStep_bytes);
    if (zero == nullptr || found == nullptr) return false;
    const DirectScope direct(descriptor);
    while (from < end) {
        const auto wanted =
            static_cast<std::size_t>(std::min<std::uint64_t>(kStep_bytes, end - from));
        const ssize_t got = pread(descriptor, found.get(), wanted, static_cast<off_t>(from));
        if (got <= 0) return got == 0;  // what lies behind the end is nobody's
        if (std::memcmp(found.get(), zero.get(), static_cast<std::size_t>(got)) != 0) return false;
        if (static_cast<std::size_t>(got) < wanted) return true;
        from += static_cast<std::uint64_t>(got);
    }
    return true;
}

bool punch_hole(int descriptor, std::uint64_t from, std::uint64_t end)
{
    return fallocate(descriptor, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
                     static_cast<off_t>(from), static_cast<off_t>(end - from)) == 0;
}

bool write_block(int descriptor, std::uint64_t at, std::span<const std::byte> block)
{
    const Buffer buffer = zeros((block.size() + kAlignment - 1) / kAlignment * kAlignment);
    if (buffer == nullptr) return false;
    std::memcpy(buffer.get(), block.data(), block.size());
    const DirectScope direct(descriptor);
    return pwrite(descriptor, buffer.get(), block.size(), static_cast<off_t>(at)) ==
           static_cast<ssize_t>(block.size());
}

}  // namespace corvane::mounted

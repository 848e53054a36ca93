// Empties the page cache of one file and verifies it.
#include "plugins/mounted/page_cache.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

namespace corvane::mounted {
namespace {

constexpr int kAttempts = 8;
constexpr std::chrono::milliseconds kFirstPause{1};

// The call is of Linux 6.5; older headers do not know it.
constexpr long kCachestatCall = 451;

struct CachestatRange {
    std::uint64_t offset = 0;
    std::uint64_t length = 0;  // 0: to the end
};

struct Cachestat {
    std::uint64_t cached = 0;
    std::uint64_t dirty = 0;
    std::uint64_t writeback = 0;
    std::uint64_t evicted = 0;
    std::uint64_t recently_evicted = 0;
};

// Asks page by page, through a mapping that is never touched.
std::optional<std::uint64_t> count_by_mincore(int descriptor)
{
    constexpr std::uint64_t kWindow_bytes = std::uint64_t{1} << 30;
    struct stat status {};
    if (fstat(descriptor, &status) != 0) return std::nullopt;
    const auto page_bytes = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    const auto size = static_cast<std::uint64_t>(status.st_size);
    std::uint64_t cached = 0;
    std::vector<unsigned char> pages;
    for (std::uint64_t at = 0; at < size; at += kWindow_bytes) {
        const std::uint64_t bytes = std::min(kWindow_bytes, size - at);
        void* const window =
            mmap(nullptr, bytes, PROT_READ, MAP_SHARED, descriptor, static_cast<off_t>(at));
        if (window == MAP_FAILED) return std::nullopt;
        pages.assign((bytes + page_bytes - 1) / page_bytes, 0);
        const int failed = mincore(window, bytes, pages.data());
        munmap(window, bytes);
        if (failed != 0) return std::nullopt;
        cached += static_cast<std::uint64_t>(std::count_if(
            pages.begin(), pages.end(), [](unsigned char page) { return (page & 1) != 0; }));
    }
    return cached;
}

}  // namespace

std::optional<std::uint64_t> count_cached_pages(int descriptor)
{
    CachestatRange range;
    Cachestat counts;
    if (syscall(kCachestatCall, descriptor, &range, &counts, 0) == 0) return counts.cached;
    return count_by_mincore(descriptor);
}

bool write_back_and_drop(int descriptor)
{
    if (fsync(descriptor) != 0) return false;
    auto pause = kFirstPause;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (const int error = posix_fadvise(descriptor, 0, 0, POSIX_FADV_DONTNEED); error != 0) {
            errno = error;
            return false;
        }
        const auto cached = count_cached_pages(descriptor);
        if (!cached || *cached == 0) return true;
        // A reader may hold a page for a moment, and the journal its buffers.
        std::this_thread::sleep_for(pause);
        pause *= 2;
        if (fsync(descriptor) != 0) return false;
    }
    errno = EBUSY;
    return false;
}

}  // namespace corvane::mounted

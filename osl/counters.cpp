// The counters' page: slots and buckets, publishing, and each thread's seat in it.
#include "osl/counters.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <limits>
#include <new>

#include "osl/descriptor.hpp"
#include "osl/shared_word.hpp"

static_assert(offsetof(CountersPage, started_s) == 32 && offsetof(CountersPage, blocks) == 2112);
static_assert(sizeof(CountersBlock) % 64 == 0, "blocks begin on cache lines");

namespace corvane {
namespace {

// The results that can come out of a request; all others share the last slot.
constexpr std::array<std::uint32_t, 27> kResults = {0,   1,   2,   3,   4,   5,   6,   7,   8,
                                                    100, 101, 102, 103, 104, 201, 202, 203, 300,
                                                    400, 404, 405, 406, 407, 408, 409, 16,  1106};
constexpr std::uint32_t kOtherResult = COUNTERS_RESULTS - 1;
static_assert(kResults.size() <= kOtherResult);

constexpr std::size_t kBlockWords = sizeof(CountersBlock) / sizeof(std::uint64_t);
constexpr unsigned kFirstOctave = 9;  // the first bucket ends at 2^9 ns

// Until a page is published, and in programs that are no daemon, counts go here.
alignas(64) CountersPage g_private_page;
CountersPage* g_page = &g_private_page;
std::uint32_t g_seats_taken = 0;

void fill_header(CountersPage& page, std::uint32_t port) noexcept
{
    page.version = COUNTERS_VERSION;
    page.page_bytes = sizeof(CountersPage);
    page.block_bytes = sizeof(CountersBlock);
    page.block_count = COUNTERS_BLOCKS;
    page.pid = getpid();
    page.port = port;
    page.started_s = std::time(nullptr);
    std::atomic_ref<std::uint32_t>(page.magic).store(COUNTERS_MAGIC, std::memory_order_release);
}

struct PageName {
    explicit PageName(std::uint32_t port) noexcept
    {
        (void)std::snprintf(text, sizeof text, COUNTERS_NAME, port);
    }
    char text[32];
};

// What was counted while the page was being made, into the block that is for everybody.
void take_over_private_counts(CountersPage& page) noexcept
{
    CountersBlock early;
    counters_sum(&g_private_page, &early);
    auto* const from = reinterpret_cast<std::uint64_t*>(&early);
    auto* const to = reinterpret_cast<std::uint64_t*>(&page.blocks[COUNTERS_BLOCKS - 1]);
    for (std::size_t i = 0; i < kBlockWords; ++i) {
        std::atomic_ref<std::uint64_t>(to[i]).fetch_add(from[i], std::memory_order_relaxed);
    }
}

bool is_ours(const CountersPage& page) noexcept
{
    return page.magic == COUNTERS_MAGIC && page.version == COUNTERS_VERSION &&
           page.page_bytes == sizeof(CountersPage) && page.block_bytes == sizeof(CountersBlock) &&
           page.block_count == COUNTERS_BLOCKS;
}

}  // namespace

CounterSeat counter_seat() noexcept
{
    constexpr std::uint32_t kLast = COUNTERS_BLOCKS - 1;
    thread_local const std::uint32_t number =
        std::atomic_ref<std::uint32_t>(g_seats_taken).fetch_add(1, std::memory_order_relaxed);
    // The page is looked up each time: a thread may have counted before it was published. Acquired,
    // so that its zeros are there before the first count is.
    CountersPage* const page =
        std::atomic_ref<CountersPage*>(g_page).load(std::memory_order_acquire);
    return {&page->blocks[std::min(number, kLast)], number >= kLast};
}

void count_request(std::int32_t function_code, std::uint32_t result,
                   std::uint64_t nanoseconds) noexcept
{
    const CounterSeat seat = counter_seat();
    const bool known = function_code > 0 && function_code < COUNTERS_FUNCTIONS;
    const auto function = known ? static_cast<unsigned>(function_code) : 0U;
    count_in(seat, seat.block->requests[function][counters_result_slot(result)]);
    count_in(seat, seat.block->latencies[function][counters_latency_bucket(nanoseconds)]);
}

void count_plugin_call(unsigned slot, unsigned call, bool refused) noexcept
{
    if (slot >= COUNTERS_PLUGINS || call >= COUNTERS_CALLS) return;
    const CounterSeat seat = counter_seat();
    count_in(seat, seat.block->plugin_calls[slot][call]);
    if (refused) count_in(seat, seat.block->plugin_errors[slot][call]);
}

void name_plugin(std::size_t slot, const char* path) noexcept
{
    if (slot >= COUNTERS_PLUGINS || path == nullptr) return;
    const char* const slash = std::strrchr(path, '/');
    (void)std::snprintf(g_private_page.plugin_names[slot], COUNTERS_NAME_BYTES, "%s",
                        slash != nullptr ? slash + 1 : path);  // a longer one is cut
}

std::uint64_t latency_clock() noexcept
{
    std::timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);  // cannot fail with this clock
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000U +
           static_cast<std::uint64_t>(now.tv_nsec);
}

}  // namespace corvane

uint32_t counters_result_slot(uint32_t result) noexcept
{
    if (result <= 8) return result;  // nearly every request, without a search
    const auto* const found = std::ranges::find(corvane::kResults, result);
    if (found == corvane::kResults.end()) return corvane::kOtherResult;
    return static_cast<uint32_t>(found - corvane::kResults.begin());
}

uint32_t counters_result_of_slot(uint32_t slot) noexcept
{
    return slot < corvane::kResults.size() ? corvane::kResults[slot]
                                           : std::numeric_limits<uint32_t>::max();
}

uint32_t counters_latency_bucket(uint64_t nanoseconds) noexcept
{
    const auto octave = static_cast<unsigned>(std::bit_width(nanoseconds));  // below 2^octave
    if (octave <= corvane::kFirstOctave) return 0;
    const auto upper_half = static_cast<unsigned>((nanoseconds >> (octave - 2)) & 1U);
    const unsigned bucket = 1 + (octave - corvane::kFirstOctave - 1) * 2 + upper_half;
    return std::min<unsigned>(bucket, COUNTERS_LATENCIES - 1);
}

uint64_t counters_latency_bound(uint32_t bucket) noexcept
{
    if (bucket >= COUNTERS_LATENCIES - 1) return std::numeric_limits<uint64_t>::max();
    if (bucket == 0) return uint64_t{1} << corvane::kFirstOctave;
    const unsigned octave = corvane::kFirstOctave + 1 + (bucket - 1) / 2;
    const uint64_t top = uint64_t{1} << octave;
    return bucket % 2 == 1 ? top - top / 4 : top;
}

int32_t counters_publish(uint32_t port) noexcept
{
    const corvane::PageName name(port);
    (void)shm_unlink(name.text);  // of a daemon that was killed; readers of it keep their mapping
    const corvane::Descriptor object(shm_open(name.text, O_RDWR | O_CREAT | O_EXCL, 0644));
    if (!object.is_open()) return errno;
    if (ftruncate(object.get(), sizeof(CountersPage)) != 0) return errno;
    void* const at =
        mmap(nullptr, sizeof(CountersPage), PROT_READ | PROT_WRITE, MAP_SHARED, object.get(), 0);
    if (at == MAP_FAILED) return errno;
    auto* const page = new (at) CountersPage{};
    std::memcpy(page->plugin_names, corvane::g_private_page.plugin_names,
                sizeof page->plugin_names);
    corvane::fill_header(*page, port);
    // Listener threads may be counting already: what was written above is theirs with the pointer.
    const CountersPage* const before =
        std::atomic_ref<CountersPage*>(corvane::g_page).exchange(page, std::memory_order_acq_rel);
    if (before == &corvane::g_private_page) corvane::take_over_private_counts(*page);
    return 0;
}

const CountersPage* counters_map(uint32_t port) noexcept
{
    const corvane::PageName name(port);
    const corvane::Descriptor object(shm_open(name.text, O_RDONLY, 0));
    if (!object.is_open()) return nullptr;
    struct stat state {};
    if (fstat(object.get(), &state) != 0) return nullptr;
    if (state.st_size != sizeof(CountersPage)) {
        errno = EPROTO;
        return nullptr;
    }
    void* const at = mmap(nullptr, sizeof(CountersPage), PROT_READ, MAP_SHARED, object.get(), 0);
    if (at == MAP_FAILED) return nullptr;
    const auto* const page = static_cast<const CountersPage*>(at);
    if (corvane::is_ours(*page)) return page;
    counters_unmap(page);
    errno = EPROTO;
    return nullptr;
}

void counters_unmap(const CountersPage* page) noexcept
{
    if (page != nullptr) (void)munmap(const_cast<CountersPage*>(page), sizeof(CountersPage));
}

void counters_sum(const CountersPage* page, CountersBlock* sum) noexcept
{
    *sum = {};
    auto* const total = reinterpret_cast<uint64_t*>(sum);
    for (const CountersBlock& block : page->blocks) {
        const auto* const words = reinterpret_cast<const uint64_t*>(&block);
        for (size_t i = 0; i < corvane::kBlockWords; ++i)
            total[i] += corvane::load_shared(words[i]);
    }
}

// Counting: a few instructions each, in the calling thread's own block.
#ifndef CORVANE_OSL_COUNTERS_HPP
#define CORVANE_OSL_COUNTERS_HPP

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "osl/counters.h"

namespace corvane {

// Where the calling thread counts. A thread that found no free block shares the last one.
struct CounterSeat {
    CountersBlock* block;
    bool is_shared;
};
[[nodiscard]] CounterSeat counter_seat() noexcept;

// One more in a counter of the seat's block. Alone on its block, a thread needs no locked
// instruction.
inline void count_in(const CounterSeat& seat, std::uint64_t& counter, std::uint64_t by = 1) noexcept
{
    const std::atomic_ref<std::uint64_t> word(counter);
    if (seat.is_shared) {
        word.fetch_add(by, std::memory_order_relaxed);
    } else {
        word.store(word.load(std::memory_order_relaxed) + by, std::memory_order_relaxed);
    }
}

inline void count_event(unsigned event, std::uint64_t by = 1) noexcept
{
    const CounterSeat seat = counter_seat();
    count_in(seat, seat.block->events[event], by);
}

// A request of `function_code` was answered with `result` after `nanoseconds`.
void count_request(std::int32_t function_code, std::uint32_t result,
                   std::uint64_t nanoseconds) noexcept;

// The plug-in in `slot` was called; `refused` when its result ends the request.
void count_plugin_call(unsigned slot, unsigned call, bool refused) noexcept;

// The plug-in in `slot` comes from this file. At start-up, before the page is published.
void name_plugin(std::size_t slot, const char* path) noexcept;

// Nanoseconds of the clock that latencies are measured with.
[[nodiscard]] std::uint64_t latency_clock() noexcept;

}  // namespace corvane
#endif

// The closed loop: every socket sends its next request as soon as its last one is answered.
#ifndef CORVANE_BENCH_LOAD_GENERATOR_LOOP_HPP
#define CORVANE_BENCH_LOAD_GENERATOR_LOOP_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "bench/load_generator_messages.hpp"

namespace corvane::bench {

// What a socket sends, over and over. Those that need a lease get one per socket before the count
// starts.
enum class Mix : std::uint8_t {
    kVolume,    // GetVolume by cookie
    kInitial,   // GetInitialMap, each of another file: leases pile up
    kExtended,  // GetExtendedMap
    kSetSize,
    kClose,  // of a key that nobody has: the error path
    kPair,   // GetInitialMap and Close in turn
    kAll,    // GetVolume, GetInitialMap, GetExtendedMap, SetSize, Close in turn
};
[[nodiscard]] std::optional<Mix> mix_by_name(const std::string& name);

struct Options {
    std::uint16_t port = 5501;
    std::uint32_t address = 0x7F000001;  // host order, in 127.0.0.0/8
    std::uint32_t sockets = 16;
    Mix mix = Mix::kPair;
    std::uint64_t requests = 100'000;
    std::uint32_t limit_s = 60;
    std::uint32_t repeat = 0;     // each request is sent so many times more, for its stored reply
    std::uint32_t window_ms = 0;  // not 0: also report the worst window of that length
    std::uint32_t first_file = 0;
    bool is_echo = false;  // the server only echoes: replies are matched, not judged
    Style style;
};

// Latencies by size, to about 3 percent.
class Histogram {
public:
    void add(std::uint64_t nanoseconds);
    void clear();
    [[nodiscard]] std::uint64_t count() const { return count_; }
    // The latency in nanoseconds that this share of all stays at or below.
    [[nodiscard]] std::uint64_t quantile(double share) const;

private:
    static constexpr std::size_t kSteps = 32;  // per doubling
    std::array<std::uint64_t, 64 * kSteps> slots_{};
    std::uint64_t count_ = 0;
};

struct Window {
    std::uint64_t requests = 0;
    std::uint64_t p999_ns = 0;
};

struct Report {
    std::uint64_t requests = 0;
    std::uint64_t failures = 0;  // replies that are not what they should be
    std::uint64_t resent = 0;    // sent again after a second of silence
    double seconds = 0;
    Histogram latency;
    std::vector<Window> windows;                    // in the order of time
    std::array<std::size_t, kKinds> reply_bytes{};  // the last seen of each kind
};

// Runs until the count or the time is reached. Throws std::runtime_error when the server cannot be
// used.
[[nodiscard]] Report run_load(const Options& options);

}  // namespace corvane::bench
#endif

// How many bytes one transfer moves, so that it ends within the time a lease can spare.
#ifndef CORVANE_CLIENT_PACE_HPP
#define CORVANE_CLIENT_PACE_HPP

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdint>

namespace corvane {

// What a transfer moves at most: large enough for the disk to stream.
constexpr std::int64_t kLongestStepBytes = 4 << 20;

// Judges a disk by its latest transfers: a slower one counts at once, a faster one by and by. For
// one thread.
class Pace {
public:
    // `block_bytes` is a power of two, at most kLongestStepBytes.
    explicit Pace(std::int64_t block_bytes) : block_bytes_(block_bytes) {}

    // Whole blocks, at least one.
    [[nodiscard]] std::int64_t step_bytes(std::chrono::nanoseconds budget) const
    {
        const double bytes =
            bytes_per_ns_ * static_cast<double>(std::max<std::int64_t>(budget.count(), 0));
        if (bytes >= static_cast<double>(kLongestStepBytes)) return kLongestStepBytes;
        if (bytes < static_cast<double>(block_bytes_)) return block_bytes_;
        return static_cast<std::int64_t>(std::bit_floor(static_cast<std::uint64_t>(bytes)));
    }

    // A transfer of so many bytes took so long.
    void took(std::int64_t bytes, std::chrono::nanoseconds duration)
    {
        if (bytes <= 0) return;
        const auto ns = static_cast<double>(std::max<std::int64_t>(duration.count(), 1));
        bytes_per_ns_ = std::min(static_cast<double>(bytes) / ns, bytes_per_ns_ * 2);
    }

private:
    std::int64_t block_bytes_;
    double bytes_per_ns_ = 8e6 / 1e9;  // a slow disk, until it has shown what it can do
};

}  // namespace corvane
#endif

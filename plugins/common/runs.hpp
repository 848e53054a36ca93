// Which blocks a file has, in the words that plug-ins share.
#ifndef CORVANE_PLUGINS_COMMON_RUNS_HPP
#define CORVANE_PLUGINS_COMMON_RUNS_HPP

#include <cstdint>
#include <vector>

namespace corvane::plugin {

// Consecutive blocks of a file that lie in consecutive blocks of one disk.
struct Run {
    std::uint64_t logical = 0;   // first block in the file
    std::uint64_t physical = 0;  // first block on the volume, or in its slice of the disk
    std::uint64_t count = 0;
    bool is_unwritten = false;  // reads as zeros, whatever the blocks hold
    std::uint32_t disk = 0;     // index of the disk record

    [[nodiscard]] std::uint64_t end() const noexcept { return logical + count; }
};

// A range of block numbers: a file's or the volume's, as its owner says.
struct BlockRange {
    std::uint64_t first = 0;
    std::uint64_t count = 0;

    [[nodiscard]] std::uint64_t end() const noexcept { return first + count; }
};

struct Layout {
    std::vector<Run> runs;  // ascending, disjoint, neighbours joined
    std::uint64_t block_count = 0;
};

// Blocks that `bytes` take, the last one counted whole.
constexpr std::uint64_t blocks_of(std::uint64_t bytes, std::uint64_t block_bytes) noexcept
{
    return bytes / block_bytes + (bytes % block_bytes != 0 ? 1 : 0);
}

}  // namespace corvane::plugin

#endif

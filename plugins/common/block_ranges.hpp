// Sums and cuts of block ranges.
#ifndef CORVANE_PLUGINS_COMMON_BLOCK_RANGES_HPP
#define CORVANE_PLUGINS_COMMON_BLOCK_RANGES_HPP

#include <algorithm>
#include <cstdint>
#include <vector>

#include "plugins/common/runs.hpp"

namespace corvane::plugin {

// Adds a range to an ascending list and joins what meets.
inline void add_range(std::vector<BlockRange>& ranges, BlockRange added)
{
    if (added.count == 0) return;
    ranges.push_back(added);
    std::sort(ranges.begin(), ranges.end(),
              [](const BlockRange& a, const BlockRange& b) { return a.first < b.first; });
    std::vector<BlockRange> joined;
    for (const BlockRange& range : ranges) {
        if (!joined.empty() && joined.back().end() >= range.first) {
            joined.back().count = std::max(joined.back().end(), range.end()) - joined.back().first;
        } else {
            joined.push_back(range);
        }
    }
    ranges.swap(joined);
}

// Returns what of `ranges` lies from `first` up to `end`.
inline std::vector<BlockRange> clip_ranges(const std::vector<BlockRange>& ranges,
                                           std::uint64_t first, std::uint64_t end)
{
    std::vector<BlockRange> clipped;
    for (const BlockRange& range : ranges) {
        const std::uint64_t from = std::max(first, range.first);
        const std::uint64_t to = std::min(end, range.end());
        if (from < to) clipped.push_back({from, to - from});
    }
    return clipped;
}

// Returns what lies from `first` up to `end` and in none of the (ascending) ranges.
inline std::vector<BlockRange> gaps_between(const std::vector<BlockRange>& ranges,
                                            std::uint64_t first, std::uint64_t end)
{
    std::vector<BlockRange> gaps;
    for (const BlockRange& range : clip_ranges(ranges, first, end)) {
        if (range.first > first) gaps.push_back({first, range.first - first});
        first = range.end();
    }
    if (first < end) gaps.push_back({first, end - first});
    return gaps;
}

// The blocks of the file that its runs take: all of them, or the unwritten ones alone.
inline std::vector<BlockRange> ranges_of(const std::vector<Run>& runs, bool only_unwritten)
{
    std::vector<BlockRange> ranges;
    for (const Run& run : runs) {
        if (only_unwritten && !run.is_unwritten) continue;
        ranges.push_back({run.logical, run.count});
    }
    return ranges;
}

}  // namespace corvane::plugin

#endif

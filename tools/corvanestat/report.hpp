// One reading of the counters as a table for people, JSON, or metrics.
#ifndef CORVANE_TOOLS_CORVANESTAT_REPORT_HPP
#define CORVANE_TOOLS_CORVANESTAT_REPORT_HPP

#include <cstdint>
#include <string>

#include "tools/corvanestat/statistics.hpp"

namespace corvane::stat {

[[nodiscard]] std::string table(const Page& page, const CountersBlock& block);
[[nodiscard]] std::string json(const Page& page, const CountersBlock& block);

// The text exposition format, for a textfile collector.
[[nodiscard]] std::string prometheus(const Page& page, const CountersBlock& block);

// "850 ns", "1.5 us", "23 ms"; "-" for 0.
[[nodiscard]] std::string time_text(std::uint64_t nanoseconds);

}  // namespace corvane::stat
#endif

// The full-screen view: rates, percentiles and the busiest files of the last interval.
#ifndef CORVANE_TOOLS_CORVANESTAT_WATCH_HPP
#define CORVANE_TOOLS_CORVANESTAT_WATCH_HPP

#include "tools/corvanestat/statistics.hpp"

namespace corvane::stat {

// Shows the counters of the daemon on `port` every `interval_s` seconds until q or an interrupt.
void watch(const Page& page, std::uint32_t port, double interval_s);

}  // namespace corvane::stat
#endif

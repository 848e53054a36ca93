// The full-screen view: rates and percentiles of the last interval.
#ifndef CORVANE_TOOLS_CORVANESTAT_WATCH_HPP
#define CORVANE_TOOLS_CORVANESTAT_WATCH_HPP

#include "tools/corvanestat/statistics.hpp"

namespace corvane::stat {

// Shows the counters every `interval_s` seconds until q or an interrupt.
void watch(const Page& page, double interval_s);

}  // namespace corvane::stat
#endif

// Reading a daemon's counters, and what can be worked out from two readings.
#ifndef CORVANE_TOOLS_CORVANESTAT_STATISTICS_HPP
#define CORVANE_TOOLS_CORVANESTAT_STATISTICS_HPP

#include <chrono>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "osl/counters.h"

namespace corvane::stat {

// What stands in the way, in one line that says what to do.
struct Refusal : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A daemon's page, mapped read-only for as long as this lives.
class Page {
public:
    // Throws Refusal when no daemon counts on `port`.
    explicit Page(std::uint32_t port);

    [[nodiscard]] std::int32_t pid() const { return page_->pid; }
    [[nodiscard]] std::int64_t started_s() const { return page_->started_s; }
    [[nodiscard]] bool daemon_runs() const;
    // The plug-in's file; what could trouble a terminal or a metric shows as "_". Empty: none.
    [[nodiscard]] std::string plugin_name(unsigned slot) const;
    [[nodiscard]] CountersBlock read() const;

private:
    struct Unmap {
        void operator()(const CountersPage* page) const { counters_unmap(page); }
    };
    std::unique_ptr<const CountersPage, Unmap> page_;
};

// All numbers of `now` less those of `before`.
[[nodiscard]] CountersBlock difference(const CountersBlock& now, const CountersBlock& before);

[[nodiscard]] std::uint64_t requests_of(const CountersBlock& block, unsigned function);
[[nodiscard]] std::uint64_t live_leases(const CountersBlock& block);
[[nodiscard]] std::uint64_t live_files(const CountersBlock& block);

// Upper bound in nanoseconds of the time within which `share` (0 to 1) of the requests were
// answered; 0 when there were none.
[[nodiscard]] std::uint64_t latency_percentile(const CountersBlock& block, unsigned function,
                                               double share);

}  // namespace corvane::stat
#endif

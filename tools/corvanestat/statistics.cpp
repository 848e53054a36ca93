// Readings of the counters, differences, percentiles.
#include "tools/corvanestat/statistics.hpp"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <numeric>
#include <string>
#include <string_view>

namespace corvane::stat {

Page::Page(std::uint32_t port) : page_(counters_map(port))
{
    if (page_) return;
    const int reason = errno;
    const std::string where = "port " + std::to_string(port);
    if (reason == ENOENT) {
        throw Refusal("no daemon counts on " + where + ": start corvaned, or name its --port");
    }
    if (reason == EPROTO) {
        throw Refusal("the counters of " + where +
                      " are another version's: use the corvanestat that came "
                      "with that daemon");
    }
    throw Refusal("the counters of " + where + " cannot be read: " + std::strerror(reason));
}

bool Page::daemon_runs() const
{
    return kill(page_->pid, 0) == 0 || errno == EPERM;
}

std::string Page::plugin_name(unsigned slot) const
{
    const char* const text = page_->plugin_names[slot];
    std::string name(text, strnlen(text, COUNTERS_NAME_BYTES));
    constexpr std::string_view kPlain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-+";
    for (std::size_t at = 0; (at = name.find_first_not_of(kPlain, at)) != std::string::npos; ++at) {
        name[at] = '_';
    }
    return name;
}

CountersBlock Page::read() const
{
    CountersBlock sum;
    counters_sum(page_.get(), &sum);
    return sum;
}

CountersBlock difference(const CountersBlock& now, const CountersBlock& before)
{
    constexpr std::size_t kWords = sizeof(CountersBlock) / sizeof(std::uint64_t);
    CountersBlock result = now;
    auto* const words = reinterpret_cast<std::uint64_t*>(&result);
    const auto* const less = reinterpret_cast<const std::uint64_t*>(&before);
    for (std::size_t i = 0; i < kWords; ++i) words[i] -= less[i];
    return result;
}

std::uint64_t requests_of(const CountersBlock& block, unsigned function)
{
    const auto& results = block.requests[function];
    return std::accumulate(std::begin(results), std::end(results), std::uint64_t{0});
}

std::uint64_t live_leases(const CountersBlock& block)
{
    return block.events[COUNTERS_EVENT_LEASE_GRANTED] - block.events[COUNTERS_EVENT_LEASE_CLOSED] -
           block.events[COUNTERS_EVENT_LEASE_EXPIRED] - block.events[COUNTERS_EVENT_LEASE_RELEASED];
}

std::uint64_t live_files(const CountersBlock& block)
{
    return block.events[COUNTERS_EVENT_FILE_LOCKED] - block.events[COUNTERS_EVENT_FILE_UNLOCKED];
}

std::uint64_t latency_percentile(const CountersBlock& block, unsigned function, double share)
{
    const auto& buckets = block.latencies[function];
    const auto all = std::accumulate(std::begin(buckets), std::end(buckets), std::uint64_t{0});
    if (all == 0) return 0;
    const auto wanted = static_cast<std::uint64_t>(share * static_cast<double>(all - 1)) + 1;
    std::uint64_t seen = 0;
    for (unsigned bucket = 0; bucket < COUNTERS_LATENCIES; ++bucket) {
        seen += buckets[bucket];
        if (seen >= wanted) return counters_latency_bound(bucket);
    }
    return counters_latency_bound(COUNTERS_LATENCIES - 1);
}

}  // namespace corvane::stat

// The counters in the text exposition format.
#include <limits>
#include <string>

#include "tools/corvanestat/names.hpp"
#include "tools/corvanestat/report.hpp"

namespace corvane::stat {
namespace {

void head(std::string& text, const std::string& name, const char* type, std::string_view help)
{
    text += "# HELP " + name + " ";
    text += help;
    text += "\n# TYPE " + name + " " + type + "\n";
}

void sample(std::string& text, const std::string& name, const std::string& labels,
            std::uint64_t value)
{
    text += name;
    if (!labels.empty()) text += "{" + labels + "}";
    text += " " + std::to_string(value) + "\n";
}

std::string label(const char* name, std::string_view value)
{
    return std::string(name) + "=\"" + std::string(value) + "\"";
}

void requests(std::string& text, const CountersBlock& block)
{
    const std::string name = "corvane_requests_total";
    head(text, name, "counter", "Requests answered, by function and result code.");
    for (unsigned f = 0; f < COUNTERS_FUNCTIONS; ++f) {
        for (unsigned r = 0; r < COUNTERS_RESULTS; ++r) {
            if (r != 0 && block.requests[f][r] == 0) continue;
            sample(text, name,
                   label("function", function_name(f)) + "," + label("result", result_code(r)),
                   block.requests[f][r]);
        }
    }
}

std::string seconds(std::uint64_t nanoseconds)
{
    char text[32];
    (void)std::snprintf(text, sizeof text, "%.9g", static_cast<double>(nanoseconds) / 1e9);
    return text;
}

// Buckets are cumulative here, with their upper bounds; the last one holds everything.
void latencies(std::string& text, const CountersBlock& block)
{
    const std::string name = "corvane_request_seconds";
    head(text, name, "histogram", "Time from the receipt of a request to its reply.");
    for (unsigned f = 0; f < COUNTERS_FUNCTIONS; ++f) {
        const std::string function = label("function", function_name(f));
        std::uint64_t all = 0;
        double sum = 0;
        for (unsigned b = 0; b < COUNTERS_LATENCIES; ++b) {
            all += block.latencies[f][b];
            const std::uint64_t bound = counters_latency_bound(b);
            const bool last = bound == std::numeric_limits<std::uint64_t>::max();
            if (!last)
                sum += static_cast<double>(block.latencies[f][b]) * static_cast<double>(bound);
            sample(text, name + "_bucket",
                   function + "," + label("le", last ? "+Inf" : seconds(bound)), all);
        }
        // An upper bound: the page keeps buckets, not sums.
        text += name;
        text += "_sum{";
        text += function;
        text += "} ";
        text += seconds(static_cast<std::uint64_t>(sum));
        text += '\n';
        sample(text, name + "_count", function, all);
    }
}

void plugin_names(std::string& text, const Page& page)
{
    const std::string name = "corvane_plugin_info";
    head(text, name, "gauge", "Which plug-in has which slot.");
    for (unsigned p = 0; p < COUNTERS_PLUGINS; ++p) {
        const std::string file = page.plugin_name(p);
        if (file.empty()) continue;
        sample(text, name, label("slot", std::to_string(p)) + "," + label("plugin", file), 1);
    }
}

void plugins(std::string& text, const CountersBlock& block, const std::string& name,
             std::string_view help,
             const std::uint64_t (&counters)[COUNTERS_PLUGINS][COUNTERS_CALLS])
{
    head(text, name, "counter", help);
    for (unsigned p = 0; p < COUNTERS_PLUGINS; ++p) {
        for (unsigned c = 0; c < COUNTERS_CALLS; ++c) {
            if (block.plugin_calls[p][c] == 0) continue;
            sample(text, name, label("slot", std::to_string(p)) + "," + label("call", call_name(c)),
                   counters[p][c]);
        }
    }
}

}  // namespace

std::string prometheus(const Page& page, const CountersBlock& block)
{
    std::string text;
    head(text, "corvane_up", "gauge", "1 while the daemon runs.");
    sample(text, "corvane_up", "", page.daemon_runs() ? 1 : 0);
    head(text, "corvane_start_time_seconds", "gauge", "When the daemon started.");
    sample(text, "corvane_start_time_seconds", "", static_cast<std::uint64_t>(page.started_s()));
    head(text, "corvane_leases", "gauge", "Leases that run.");
    sample(text, "corvane_leases", "", live_leases(block));
    head(text, "corvane_files", "gauge", "Files with a map out.");
    sample(text, "corvane_files", "", live_files(block));
    requests(text, block);
    latencies(text, block);
    plugin_names(text, page);
    plugins(text, block, "corvane_plugin_calls_total", "Calls of plug-in entry points.",
            block.plugin_calls);
    plugins(text, block, "corvane_plugin_refusals_total", "Calls that refused the request.",
            block.plugin_errors);
    std::size_t count = 0;
    const EventName* names = event_names(count);
    for (std::size_t i = 0; i < count; ++i) {
        const std::string name = "corvane_" + std::string(names[i].name) + "_total";
        head(text, name, "counter", names[i].meaning);
        sample(text, name, "", block.events[names[i].event]);
    }
    return text;
}

}  // namespace corvane::stat

// The table for people and the JSON.
#include "tools/corvanestat/report.hpp"

#include <array>
#include <cstdio>
#include <ctime>
#include <limits>
#include <nlohmann/json.hpp>

#include "tools/corvanestat/names.hpp"

namespace corvane::stat {
namespace {

template <class... Arguments>
std::string line(const char* format, Arguments... arguments)
{
    std::array<char, 256> text{};
    (void)std::snprintf(text.data(), text.size(), format, arguments...);
    return text.data();
}

// "1 lease", "2 leases".
std::string counted(std::uint64_t number, const char* noun)
{
    return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

std::string requests_table(const CountersBlock& block)
{
    std::string text = line("%-16s %14s %12s %12s %12s\n", "REQUESTS", "answered", "half within",
                            "99% within", "99.9% within");
    for (unsigned f = 0; f < COUNTERS_FUNCTIONS; ++f) {
        const auto at = [&](double share) {
            return time_text(latency_percentile(block, f, share));
        };
        text += line("%-16s %14llu %12s %12s %12s\n", std::string(function_name(f)).c_str(),
                     static_cast<unsigned long long>(requests_of(block, f)), at(0.5).c_str(),
                     at(0.99).c_str(), at(0.999).c_str());
        for (unsigned r = 1; r < COUNTERS_RESULTS; ++r) {
            if (block.requests[f][r] == 0) continue;
            text += line("  %-44s %12llu\n", result_text(r).c_str(),
                         static_cast<unsigned long long>(block.requests[f][r]));
        }
    }
    return text;
}

std::string calls_table(const CountersBlock& block, unsigned plugin)
{
    std::string text;
    for (unsigned c = 0; c < COUNTERS_CALLS; ++c) {
        if (block.plugin_calls[plugin][c] == 0) continue;
        text += line("       %-18s %14llu %14llu\n", std::string(call_name(c)).c_str(),
                     static_cast<unsigned long long>(block.plugin_calls[plugin][c]),
                     static_cast<unsigned long long>(block.plugin_errors[plugin][c]));
    }
    return text;
}

std::string plugins_table(const Page& page, const CountersBlock& block)
{
    std::string text;
    for (unsigned p = 0; p < COUNTERS_PLUGINS; ++p) {
        const std::string name = page.plugin_name(p);
        const std::string calls = calls_table(block, p);
        if (!name.empty() || !calls.empty()) text += line("%-4u %s\n", p, name.c_str()) + calls;
    }
    if (text.empty()) return text;
    return line("\n%-4s %-20s %14s %14s\n", "SLOT", "PLUG-IN", "calls", "refused") + text;
}

}  // namespace

std::string time_text(std::uint64_t nanoseconds)
{
    if (nanoseconds == 0) return "-";
    if (nanoseconds == std::numeric_limits<std::uint64_t>::max()) return "longer";
    const auto value = static_cast<double>(nanoseconds);
    if (value < 1e3) return line("%.0f ns", value);
    if (value < 1e6) return line("%.3g us", value / 1e3);
    if (value < 1e9) return line("%.3g ms", value / 1e6);
    return line("%.3g s", value / 1e9);
}

std::string table(const Page& page, const CountersBlock& block)
{
    const std::time_t started = page.started_s();
    std::tm local{};
    localtime_r(&started, &local);
    std::array<char, 64> when{};
    (void)std::strftime(when.data(), when.size(), "%F %T", &local);
    std::string text = line("corvaned, process %d, %s since %s\n%s on %s\n\n", page.pid(),
                            page.daemon_runs() ? "running" : "gone; ran", when.data(),
                            counted(live_leases(block), "lease").c_str(),
                            counted(live_files(block), "file").c_str());
    text += requests_table(block) + plugins_table(page, block) + "\n";
    std::size_t count = 0;
    const EventName* names = event_names(count);
    for (std::size_t i = 0; i < count; ++i) {
        text += line("%-52s %14llu\n", std::string(names[i].meaning).c_str(),
                     static_cast<unsigned long long>(block.events[names[i].event]));
    }
    return text;
}

std::string json(const Page& page, const CountersBlock& block)
{
    nlohmann::json all = {{"pid", page.pid()},
                          {"running", page.daemon_runs()},
                          {"started", page.started_s()},
                          {"live_leases", live_leases(block)},
                          {"live_files", live_files(block)},
                          {"requests", nlohmann::json::object()},
                          {"plugins", nlohmann::json::array()}};
    for (unsigned f = 0; f < COUNTERS_FUNCTIONS; ++f) {
        nlohmann::json results = nlohmann::json::object();
        for (unsigned r = 0; r < COUNTERS_RESULTS; ++r) {
            if (block.requests[f][r] != 0) results[result_code(r)] = block.requests[f][r];
        }
        all["requests"][std::string(function_name(f))] = {
            {"answered", requests_of(block, f)},
            {"results", results},
            {"p50_ns", latency_percentile(block, f, 0.5)},
            {"p99_ns", latency_percentile(block, f, 0.99)},
            {"p999_ns", latency_percentile(block, f, 0.999)}};
    }
    for (unsigned p = 0; p < COUNTERS_PLUGINS; ++p) {
        nlohmann::json calls = nlohmann::json::object();
        for (unsigned c = 0; c < COUNTERS_CALLS; ++c) {
            if (block.plugin_calls[p][c] == 0) continue;
            calls[std::string(call_name(c))] = {{"calls", block.plugin_calls[p][c]},
                                                {"refused", block.plugin_errors[p][c]}};
        }
        const std::string name = page.plugin_name(p);
        if (name.empty() && calls.empty()) continue;
        all["plugins"].push_back({{"slot", p}, {"name", name}, {"calls", calls}});
    }
    std::size_t count = 0;
    const EventName* names = event_names(count);
    for (std::size_t i = 0; i < count; ++i) {
        all[std::string(names[i].name)] = block.events[names[i].event];
    }
    return all.dump(2) + "\n";
}

}  // namespace corvane::stat

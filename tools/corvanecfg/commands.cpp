// The subcommands: settings as a table or JSON, changes, the log ring, the language.
#include "tools/corvanecfg/commands.hpp"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <thread>

#include "osl/shared_word.hpp"
#include "tools/corvanecfg/settings.hpp"

namespace corvane::cfg {
namespace {

constexpr const char* kLanguageFile = "/usr/Corvane/lang.txt";

const char* effect(const Setting& setting)
{
    switch (setting.access) {
        case Access::kReadOnly:
            return "read-only";
        case Access::kNow:
            return "at once";
        case Access::kNextStart:
            return "at the next start";
    }
    return "";
}

nlohmann::json json_value(const CorvaneSegment& segment, const Setting& setting)
{
    const std::string value = value_of(segment, setting);
    if (setting.kind == Kind::kNumber) return std::stol(value);
    return value;
}

// JSON must be UTF-8; a text of another code set shows its odd bytes as replacement characters.
std::string to_text(const nlohmann::json& json)
{
    return json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
}

// The ring's text as it stands; other processes may be writing to it.
std::string ring_text(const CorvaneSegment& segment)
{
    return {segment.shmLog, strnlen(segment.shmLog, sizeof segment.shmLog)};
}

// What `now` has beyond `before`. When the ring dropped its older half, the rest is found by the
// tail of what was printed; when even that is gone, all of it is new.
std::string added(const std::string& before, const std::string& now)
{
    if (now.starts_with(before)) return now.substr(before.size());
    const std::string tail = before.substr(before.size() > 512 ? before.size() - 512 : 0);
    const auto found = tail.empty() ? std::string::npos : now.rfind(tail);
    return found == std::string::npos ? now : now.substr(found + tail.size());
}

}  // namespace

void show(const CorvaneSegment& segment, bool json)
{
    if (json) {
        nlohmann::json list = nlohmann::json::array();
        for (const Setting& setting : all_settings()) {
            list.push_back({{"name", setting.name},
                            {"value", json_value(segment, setting)},
                            {"default", setting.default_text},
                            {"takesEffect", effect(setting)},
                            {"meaning", setting.meaning}});
        }
        std::cout << to_text(list) << '\n';
        return;
    }
    std::printf("%-14s %-20s %-20s %s\n", "NAME", "VALUE", "DEFAULT", "MEANING");
    for (const Setting& setting : all_settings()) {
        const std::string value = value_of(segment, setting);
        std::printf("%-14s %-20s %-20s %s\n", std::string(setting.name).c_str(),
                    value.empty() ? "-" : value.c_str(),
                    setting.default_text.empty() ? "-" : std::string(setting.default_text).c_str(),
                    std::string(setting.meaning).c_str());
    }
}

void get(const CorvaneSegment& segment, const std::string& name, bool json)
{
    const Setting& setting = find_setting(name);
    if (json) {
        std::cout << to_text({{name, json_value(segment, setting)}}) << '\n';
    } else {
        std::cout << value_of(segment, setting) << '\n';
    }
}

void set(CorvaneSegment& segment, const std::string& name, const std::string& value)
{
    const Setting& setting = find_setting(name);
    const std::string before = value_of(segment, setting);
    change(segment, setting, value);
    std::cout << name << ": " << (before.empty() ? "-" : before) << " -> "
              << value_of(segment, setting) << " (takes effect " << effect(setting) << ")\n";
}

void reset()
{
    fused_setDefaults();
    std::cout << "all settings have their defaults; the log ring is empty\n";
}

void log_ring(const CorvaneSegment& segment, bool follow)
{
    std::string printed = ring_text(segment);
    std::cout << printed << std::flush;
    while (follow && std::cout) {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        const std::string now = ring_text(segment);
        std::cout << added(printed, now) << std::flush;
        printed = now;
    }
}

void show_language(const CorvaneSegment& segment, bool json)
{
    constexpr std::string_view kNames[] = {"langName",     "nlsPath",      "langFromFile",
                                           "thousandsSep", "decimalPoint", "nlsEnabled"};
    nlohmann::json all;
    for (const std::string_view name : kNames) {
        const Setting& setting = find_setting(name);
        all[std::string(name)] = json_value(segment, setting);
        if (json) continue;
        const std::string value = value_of(segment, setting);
        std::printf("%-14s %-40s %s\n", std::string(name).c_str(),
                    value.empty() ? "-" : value.c_str(), std::string(setting.meaning).c_str());
    }
    if (json) std::cout << to_text(all) << '\n';
}

void clear_language()
{
    if (std::remove(kLanguageFile) != 0 && errno != ENOENT) {
        throw Refusal(std::string(kLanguageFile) + " cannot be removed: " + std::strerror(errno));
    }
    std::cout << kLanguageFile << " is gone; programs follow their locale from their next start\n";
}

void force_language(const std::string& path)
{
    if (!path.starts_with('/') || path.size() >= kTextBytes ||
        path.find('\n') != std::string::npos) {
        throw Refusal("a catalogue path is absolute, of one line and at most 255 bytes long");
    }
    std::ofstream file(kLanguageFile);
    file << path << '\n' << std::flush;
    if (!file) {
        throw Refusal(std::string(kLanguageFile) + " cannot be written: " + std::strerror(errno));
    }
    std::cout << kLanguageFile << " names " << path << "; programs read it at their next start\n";
}

}  // namespace corvane::cfg

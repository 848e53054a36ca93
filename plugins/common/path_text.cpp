// Reads FSUNI paths: UTF-16 into UTF-8, and sign-widened bytes back into bytes.
#include "plugins/common/path_text.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace corvane::plugin {
namespace {

constexpr std::size_t kPathLimit_units = 4096;

bool is_high_surrogate(FSUNI unit)
{
    return unit >= 0xD800 && unit <= 0xDBFF;
}

bool is_low_surrogate(FSUNI unit)
{
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

void append_utf8(std::uint32_t code, std::string& out)
{
    const auto put = [&out](std::uint32_t byte) { out.push_back(static_cast<char>(byte)); };
    if (code < 0x80) {
        put(code);
    } else if (code < 0x800) {
        put(0xC0 | (code >> 6));
        put(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        put(0xE0 | (code >> 12));
        put(0x80 | ((code >> 6) & 0x3F));
        put(0x80 | (code & 0x3F));
    } else {
        put(0xF0 | (code >> 18));
        put(0x80 | ((code >> 12) & 0x3F));
        put(0x80 | ((code >> 6) & 0x3F));
        put(0x80 | (code & 0x3F));
    }
}

std::optional<std::string> read_utf16(std::span<const FSUNI> units)
{
    std::string text;
    for (std::size_t i = 0; i < units.size(); ++i) {
        std::uint32_t code = units[i];
        if (is_low_surrogate(units[i])) return std::nullopt;
        if (is_high_surrogate(units[i])) {
            if (i + 1 == units.size() || !is_low_surrogate(units[i + 1])) return std::nullopt;
            code = 0x10000 + ((code - 0xD800) << 10) + (units[++i] - 0xDC00U);
        }
        append_utf8(code, text);
    }
    return text;
}

std::optional<std::string> read_widened_bytes(std::span<const FSUNI> units)
{
    std::string text;
    bool is_widened = false;
    for (const FSUNI unit : units) {
        if (unit >= 0x80 && unit < 0xFF80) return std::nullopt;
        is_widened = is_widened || unit >= 0xFF80;
        text.push_back(static_cast<char>(unit & 0xFF));
    }
    return is_widened ? std::optional(text) : std::nullopt;
}

}  // namespace

bool PathName::is(const std::string& name) const
{
    return utf8 == name || bytes == name;
}

std::optional<std::vector<PathName>> split_path(const FSUNI* path)
{
    if (path == nullptr) return std::nullopt;
    std::vector<PathName> names;
    std::vector<FSUNI> units;
    for (std::size_t i = 0; i < kPathLimit_units; ++i) {
        FSUNI unit = 0;
        std::memcpy(&unit, path + i, sizeof unit);
        if (i == 0 && unit != '/') return std::nullopt;
        if (unit != 0 && unit != '/') {
            units.push_back(unit);
            continue;
        }
        if (!units.empty() && !(units.size() == 1 && units[0] == '.')) {
            names.push_back({read_utf16(units), read_widened_bytes(units)});
        }
        units.clear();
        if (unit == 0) return names;
    }
    return std::nullopt;
}

std::vector<PathName> split_target(const std::string& target)
{
    std::vector<PathName> names;
    for (std::size_t at = 0; at < target.size();) {
        const std::size_t end = std::min(target.find('/', at), target.size());
        const auto name = target.substr(at, end - at);
        if (!name.empty() && name != ".") names.push_back({name, std::nullopt});
        at = end + 1;
    }
    return names;
}

std::optional<std::size_t> match_mount_point(std::span<const PathName> path,
                                             std::span<const std::string> mount_names)
{
    if (path.size() < mount_names.size()) return std::nullopt;
    for (std::size_t i = 0; i < mount_names.size(); ++i) {
        if (!path[i].is(mount_names[i])) return std::nullopt;
    }
    return mount_names.size();
}

}  // namespace corvane::plugin

// Reads volumes.conf: mount point, kind, source and options of each volume, one a line.
#include "plugins/common/volumes_file.hpp"

#include <charconv>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>
#include <string_view>

#include "plugins/common/log.hpp"

namespace corvane::plugin {
namespace {

constexpr std::size_t kLineLimit_bytes = 8192;
// The daemon multiplies by 1000 in 32 bits; what does not fit would silently become a day.
constexpr std::int32_t kLeaseLimit_s = 2147483;

bool is_octal(char c)
{
    return c >= '0' && c <= '7';
}

// A blank in a path is written "\040", as in fstab: backslash and three octal digits are one byte.
std::string unescape(std::string_view text)
{
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size() && text[i + 1] <= '3' && is_octal(text[i + 1]) &&
            is_octal(text[i + 2]) && is_octal(text[i + 3])) {
            const int byte =
                (text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0');
            plain.push_back(static_cast<char>(byte));
            i += 3;
        } else {
            plain.push_back(text[i]);
        }
    }
    return plain;
}

// Returns what is wrong, or an empty text.
std::string read_mount_point(const std::string& text, VolumeLine& line)
{
    if (text.empty() || text[0] != '/') return "the mount point must begin with \"/\"";
    std::istringstream names(text);
    for (std::string name; std::getline(names, name, '/');) {
        if (name.empty() || name == ".") continue;
        if (name == "..") return "the mount point must not contain \"..\"";
        line.mount_names.push_back(name);
    }
    if (line.mount_names.empty()) return "\"/\" cannot be served: name the volume's mount point";
    return {};
}

std::string read_seconds(std::string_view digits, std::int32_t& seconds)
{
    std::int32_t value = -1;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value);
    if (error != std::errc{} || stop != end || value < 0 || value > kLeaseLimit_s) {
        return "a lease is a number of seconds from 0 to " + std::to_string(kLeaseLimit_s);
    }
    seconds = value;
    return {};
}

std::string read_options(const std::string& text, VolumeLine& line)
{
    bool seen_ro = false;
    bool seen_rw = false;
    std::istringstream options(text);
    for (std::string option; std::getline(options, option, ',');) {
        std::string wrong;
        if (option == "ro") {
            seen_ro = true;
        } else if (option == "rw") {
            seen_rw = true;
        } else if (option.starts_with("maxread=")) {
            wrong = read_seconds(std::string_view(option).substr(8), line.max_read_s);
        } else if (option.starts_with("maxwrite=")) {
            wrong = read_seconds(std::string_view(option).substr(9), line.max_write_s);
        } else {
            wrong = "unknown option \"" + option + "\" (ro, rw, maxread=, maxwrite=)";
        }
        if (!wrong.empty()) return wrong;
    }
    if (seen_ro && seen_rw) return "\"ro\" and \"rw\" exclude each other";
    line.writable = seen_rw;
    return {};
}

std::vector<std::string> split_fields(const std::string& text)
{
    std::vector<std::string> fields;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        if (word[0] == '#') break;  // a comment runs to the end of the line
        fields.push_back(word);
    }
    return fields;
}

std::string usage(const LineKind& kind)
{
    return "MOUNTPOINT " + kind.name + (kind.has_source ? " SOURCE" : "");
}

std::string read_fields(const std::vector<std::string>& fields, const LineKind& kind,
                        VolumeLine& line)
{
    const std::size_t required = kind.has_source ? 3 : 2;
    if (fields.size() < required) return "expected: " + usage(kind) + " [OPTIONS]";
    if (fields.size() > required + 1) {
        return std::string("more than ") + (kind.has_source ? "four" : "three") +
               " fields (write a blank in a path as \\040)";
    }
    if (std::string wrong = read_mount_point(unescape(fields[0]), line); !wrong.empty()) {
        return wrong;
    }
    if (kind.has_source) line.source = unescape(fields[2]);
    if (kind.has_source && line.source[0] != '/') return "the source must be an absolute path";
    return fields.size() > required ? read_options(fields[required], line) : std::string{};
}

std::optional<VolumeLine> read_line(const std::string& text, const std::string& where,
                                    const LineKind& kind)
{
    const auto fields = split_fields(text);
    if (fields.empty()) return std::nullopt;
    if (fields.size() > 1 && fields[1] != kind.name) return std::nullopt;
    VolumeLine line;
    line.where = where;
    std::string wrong =
        text.size() > kLineLimit_bytes ? "the line is too long" : read_fields(fields, kind, line);
    if (!wrong.empty()) {
        log_line(where + ": " + wrong + "; this line is left out");
        return std::nullopt;
    }
    return line;
}

}  // namespace

std::string VolumeLine::mount_point() const
{
    std::string path;
    for (const auto& name : mount_names) path += "/" + name;
    return path;
}

std::string volumes_file_path()
{
    // Read once, at start-up, before the daemon has threads. NOLINTNEXTLINE(concurrency-mt-unsafe)
    const char* const path = std::getenv("CORVANE_VOLUMES_FILE");
    return path != nullptr && path[0] != '\0' ? path : "/usr/Corvane/volumes.conf";
}

std::vector<VolumeLine> read_volumes_file(const std::string& path, const LineKind& kind)
{
    std::vector<VolumeLine> volumes;
    std::ifstream file(path);
    if (!file) {
        log_line(path + ": cannot be read; no " + kind.name +
                 " volume is served. List the volumes there, one a line: " + usage(kind) +
                 " [ro|rw,maxread=S,maxwrite=S]");
        return volumes;
    }
    std::size_t number = 0;
    for (std::string text; std::getline(file, text);) {
        const std::string where = path + ":" + std::to_string(++number);
        auto line = read_line(text, where, kind);
        if (!line) continue;
        bool is_new = true;
        for (const auto& other : volumes) {
            if (other.mount_names != line->mount_names) continue;
            log_line(where + ": " + line->mount_point() + " is listed at " + other.where +
                     " already; this line is left out");
            is_new = false;
        }
        if (is_new) volumes.push_back(std::move(*line));
    }
    return volumes;
}

}  // namespace corvane::plugin

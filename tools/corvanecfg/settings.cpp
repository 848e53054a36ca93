// The table of settings, and reading and checked writing by it.
#include "tools/corvanecfg/settings.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <limits>

#include "osl/shared_word.hpp"

namespace corvane::cfg {
namespace {

constexpr std::int32_t kMax = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kMin = std::numeric_limits<std::int32_t>::min();

#define AT(field) #field, offsetof(CorvaneSegment, field)
constexpr std::array kSettings = {
    Setting{AT(segmentSize), Kind::kNumber, Access::kReadOnly, 0, kMax, "computed",
            "size of the segment in bytes"},
    Setting{AT(maxVolumes), Kind::kNumber, Access::kReadOnly, 0, kMax, "32",
            "volumes the segment was made for (CORVANEVOLS of its creator)"},
    Setting{AT(initialised), Kind::kNumber, Access::kReadOnly, 0, 1, "1",
            "1 once the defaults were written"},
    Setting{AT(logLevel), Kind::kNumber, Access::kNow, 0, 99, "0",
            "0 operator messages and warnings, 1 print output, 3 and more debug output"},
    Setting{AT(logMode), Kind::kNumber, Access::kNow, 0, 2, "1",
            "1 log file, 0 standard output, 2 the ring in the segment (0 and 2 from level 1 on)"},
    Setting{AT(logMaxSize), Kind::kNumber, Access::kNow, 1, kMax, "204800",
            "bytes past which the log file is rotated"},
    Setting{AT(numLogs), Kind::kNumber, Access::kNow, 1, 1000, "1", "number of rotating log files"},
    Setting{AT(logCount), Kind::kNumber, Access::kNow, 0, kMax, "saved count", "rotations so far"},
    Setting{AT(logBaseName), Kind::kText, Access::kNow, 0, 0, "/usr/Corvane/mclog",
            "path of the log files; the number of the file is put behind it"},
    Setting{AT(mdcPort), Kind::kNumber, Access::kNextStart, 1, 65535, "5501",
            "UDP port of the metadata service"},
    Setting{AT(dgramThreads), Kind::kNumber, Access::kNextStart, 1, 1024, "5",
            "threads that answer datagrams"},
    Setting{AT(optionalDir), Kind::kText, Access::kNow, 0, 0, "",
            "optional directory; - clears it"},
    Setting{AT(shmLogUsed), Kind::kNumber, Access::kReadOnly, 0, kMax, "0",
            "bytes used in the log ring"},
    Setting{AT(rawAlignment), Kind::kNumber, Access::kNow, 1, 1 << 20, "512",
            "alignment of raw disk transfers in bytes"},
    Setting{AT(mapDrv), Kind::kNumber, Access::kNow, kMin, kMax, "0", "map-driver setting"},
    Setting{AT(nlsEnabled), Kind::kNumber, Access::kNow, 0, 1, "1",
            "1 texts from the catalogues, 0 built-in texts"},
    Setting{AT(langName), Kind::kText, Access::kReadOnly, 0, 0, "",
            "locale of the program that attached last with another one"},
    Setting{AT(nlsPath), Kind::kText, Access::kReadOnly, 0, 0, "computed",
            "catalogue in force (change it with: corvanecfg lang)"},
    Setting{AT(spBufferSize), Kind::kNumber, Access::kNow, 1, 65536, "65536",
            "buffer of the metadata service in bytes"},
    Setting{AT(sysName), Kind::kNumber, Access::kReadOnly, 0, 3, "0", "operating-system code"},
    Setting{AT(langFromFile), Kind::kNumber, Access::kReadOnly, 0, 1, "0",
            "1 when nlsPath came from the language file"},
    Setting{AT(thousandsSep), Kind::kCharacter, Access::kNow, 0, 0, ",", "thousands separator"},
    Setting{AT(decimalPoint), Kind::kCharacter, Access::kNow, 0, 0, ".", "decimal point"},
    Setting{AT(nlsReady), Kind::kNumber, Access::kReadOnly, kMin, kMax, "-1",
            "-1 once the creator finished the language set-up"},
    Setting{AT(logopPrivate), Kind::kNumber, Access::kNow, 0, 1, "0",
            "1: files made through the descriptor service get 0600, else 0666"},
};
#undef AT

const std::byte* place(const CorvaneSegment& segment, const Setting& setting)
{
    return reinterpret_cast<const std::byte*>(&segment) + setting.offset;
}

// The segment is page-aligned and every word lies at a multiple of 4.
std::int32_t& word(CorvaneSegment& segment, const Setting& setting)
{
    return *reinterpret_cast<std::int32_t*>(reinterpret_cast<std::byte*>(&segment) +
                                            setting.offset);
}

std::string text_at(const std::byte* at)
{
    const char* text = reinterpret_cast<const char*>(at);
    return {text, strnlen(text, kTextBytes)};
}

std::int32_t parse_number(const Setting& setting, const std::string& value)
{
    std::int32_t number = 0;
    const char* end = value.data() + value.size();
    const auto [stop, error] = std::from_chars(value.data(), end, number);
    if (error != std::errc{} || stop != end || number < setting.lowest ||
        number > setting.highest) {
        throw Refusal(std::string(setting.name) + " takes a whole number from " +
                      std::to_string(setting.lowest) + " to " + std::to_string(setting.highest) +
                      ", not '" + value + "'");
    }
    return number;
}

void change_text(CorvaneSegment& segment, const Setting& setting, const std::string& value)
{
    const bool clears = setting.name == "optionalDir" && value == "-";
    if (!clears && !value.starts_with('/')) {
        throw Refusal(std::string(setting.name) + " takes an absolute path, not '" + value + "'");
    }
    if (value.size() >= kTextBytes) {
        throw Refusal(std::string(setting.name) + " holds at most " +
                      std::to_string(kTextBytes - 1) + " bytes; this path has " +
                      std::to_string(value.size()));
    }
    char* at = reinterpret_cast<char*>(&segment) + setting.offset;
    std::strncpy(at, clears ? "" : value.c_str(), kTextBytes);  // fills the rest with zeros
}

}  // namespace

std::span<const Setting> all_settings()
{
    return kSettings;
}

const Setting& find_setting(std::string_view name)
{
    const auto* found = std::ranges::find(kSettings, name, &Setting::name);
    if (found == kSettings.end()) {
        throw Refusal("there is no setting '" + std::string(name) +
                      "'; 'corvanecfg show' lists their names");
    }
    return *found;
}

std::string value_of(const CorvaneSegment& segment, const Setting& setting)
{
    if (setting.kind == Kind::kText) return text_at(place(segment, setting));
    const auto& at = *reinterpret_cast<const std::int32_t*>(place(segment, setting));
    const std::int32_t value = load_shared(at);
    if (setting.kind == Kind::kCharacter && value > ' ' && value < 127) {
        return {static_cast<char>(value)};
    }
    return std::to_string(value);
}

void change(CorvaneSegment& segment, const Setting& setting, const std::string& value)
{
    if (setting.access == Access::kReadOnly) {
        throw Refusal(std::string(setting.name) +
                      " is kept by the programs themselves and cannot be set");
    }
    if (setting.kind == Kind::kText) {
        change_text(segment, setting, value);
    } else if (setting.kind == Kind::kCharacter) {
        if (value.size() != 1 || value[0] <= ' ' || value[0] > '~') {
            throw Refusal(std::string(setting.name) + " takes one visible ASCII character");
        }
        store_shared(word(segment, setting), value[0]);
    } else {
        store_shared(word(segment, setting), parse_number(setting, value));
    }
}

}  // namespace corvane::cfg

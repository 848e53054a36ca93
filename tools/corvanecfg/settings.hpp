// The settings of the shared segment by name: where each lies, what it may hold, what it means.
#ifndef CORVANE_TOOLS_CORVANECFG_SETTINGS_HPP
#define CORVANE_TOOLS_CORVANECFG_SETTINGS_HPP

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "mdcmain/segment.h"

namespace corvane::cfg {

// What a person did wrong or what stands in the way, in one line that says what to do.
struct Refusal : std::runtime_error {
    using std::runtime_error::runtime_error;
};

enum class Kind { kNumber, kText, kCharacter };
enum class Access { kReadOnly, kNow, kNextStart };  // when a change takes effect

struct Setting {
    std::string_view name;
    std::size_t offset;
    Kind kind;
    Access access;
    std::int32_t lowest;  // bounds of a number
    std::int32_t highest;
    std::string_view default_text;  // empty for texts that start empty; "computed" where it depends
    std::string_view meaning;
};

constexpr std::size_t kTextBytes = 256;  // room of every text, its zero included

[[nodiscard]] std::span<const Setting> all_settings();

// Throws Refusal when there is no such setting.
[[nodiscard]] const Setting& find_setting(std::string_view name);

[[nodiscard]] std::string value_of(const CorvaneSegment& segment, const Setting& setting);

// Checks `value` and stores it; throws Refusal and changes nothing when it does not fit.
void change(CorvaneSegment& segment, const Setting& setting, const std::string& value);

}  // namespace corvane::cfg
#endif

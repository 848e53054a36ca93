// What the counters are called, in tables, JSON and metrics alike.
#ifndef CORVANE_TOOLS_CORVANESTAT_NAMES_HPP
#define CORVANE_TOOLS_CORVANESTAT_NAMES_HPP

#include <string>
#include <string_view>

#include "osl/counters.h"

namespace corvane::stat {

[[nodiscard]] std::string_view function_name(unsigned function);
[[nodiscard]] std::string_view call_name(unsigned call);

struct EventName {
    unsigned event;
    std::string_view name;     // as JSON key and metric
    std::string_view meaning;  // one phrase
};
[[nodiscard]] const EventName* event_names(std::size_t& count);

// The text of the result that a slot counts, with its code.
[[nodiscard]] std::string result_text(unsigned slot);

// The code as a word: "405", or "other".
[[nodiscard]] std::string result_code(unsigned slot);

}  // namespace corvane::stat
#endif

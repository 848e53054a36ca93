// The printf conversions of a message text.
#ifndef CORVANE_TOOLS_CORVANEMSG_CONVERSIONS_HPP
#define CORVANE_TOOLS_CORVANEMSG_CONVERSIONS_HPP

#include <string>
#include <string_view>
#include <vector>

namespace corvane::msg {

// What one argument must be, in the order in which the text takes them: length modifier and letter
// ("d", "lld", "s"), "*" for a width or precision taken from the arguments, and the whole directive
// where it is none that a message may use. "%%" takes nothing. Widths and flags do not matter.
[[nodiscard]] std::vector<std::string> conversions(std::string_view text);

// The same for a reader: "%s %d", or "none".
[[nodiscard]] std::string listed(const std::vector<std::string>& conversions);

}  // namespace corvane::msg
#endif

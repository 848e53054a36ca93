// Comparing a translation with its source.
#ifndef CORVANE_TOOLS_CORVANEMSG_CHECK_HPP
#define CORVANE_TOOLS_CORVANEMSG_CHECK_HPP

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace corvane::msg {

// Texts by set and message number.
using Texts = std::map<std::pair<std::int32_t, std::int32_t>, std::string>;

// What the catalogue in memory holds.
[[nodiscard]] Texts texts_in_memory();

struct Finding {
    std::int32_t set;
    std::int32_t message;
    std::string kind;   // "missing", "superfluous", "conversions", "identifier", "end of line"
    std::string words;  // the same for a reader
};

// Everything in which `translation` would not serve in the place of `source`, in ascending order.
[[nodiscard]] std::vector<Finding> compare(const Texts& source, const Texts& translation);

}  // namespace corvane::msg
#endif

// What a table file holds, for people and programs.
#ifndef CORVANE_TOOLS_CORVANETAB_SUMMARY_HPP
#define CORVANE_TOOLS_CORVANETAB_SUMMARY_HPP

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "codeset/table_layout.hpp"
#include "tools/corvanetab/table_check.hpp"

namespace corvane::tab {

// Bytes of one class that stand side by side.
struct ClassRange {
    unsigned first;
    unsigned last;
    unsigned byte_class;
};

struct Summary {
    std::size_t bytes = 0;
    std::uint16_t type = 0;
    std::uint16_t encoding_scheme = 0;
    std::uint16_t value_a = 0;
    std::uint16_t value_b = 0;
    std::uint32_t data_area = 0;
    std::uint16_t substitution_character = 0;
    std::uint8_t substitution_byte = 0;
    std::vector<ClassRange> classes;
    unsigned written = 0;    // characters of the BMP that have a code
    unsigned read_back = 0;  // and whose code reads as the same character
    unsigned blocks = 0;     // blocks of 256 that hold at least one of them
};

// `file` must have a header.
[[nodiscard]] Summary summarize(Bytes file);
[[nodiscard]] std::string to_text(const Summary& summary);
[[nodiscard]] nlohmann::json to_json(const Summary& summary);

}  // namespace corvane::tab
#endif

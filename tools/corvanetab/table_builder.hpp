// Builds the image of a table file from a mapping.
#ifndef CORVANE_TOOLS_CORVANETAB_TABLE_BUILDER_HPP
#define CORVANE_TOOLS_CORVANETAB_TABLE_BUILDER_HPP

#include <cstdint>
#include <vector>

#include "tools/corvanetab/data_area.hpp"
#include "tools/corvanetab/mapping.hpp"

namespace corvane::tab {

// The fixed part of a table file. The data area follows it.
class Header {
public:
    explicit Header(const Mapping& mapping);

    void put16(std::size_t at, std::uint16_t value);
    void put32(std::size_t at, std::uint32_t value);
    void put_page(std::size_t high_byte, std::uint16_t value);
    void put_byte_value(std::size_t byte, std::uint16_t value);
    void put_class(std::size_t byte, std::uint8_t byte_class);
    void put_substitution(std::uint16_t character, std::uint8_t byte);

    // The whole file: this header and `data`.
    [[nodiscard]] std::vector<std::uint8_t> with(const std::vector<std::uint8_t>& data) const;

private:
    std::vector<std::uint8_t> bytes_;
};

// Throws std::runtime_error when the mapping does not fit.
[[nodiscard]] std::vector<std::uint8_t> build_table(const Mapping& mapping);

// The families: single bytes, rows and pages of 16 bits, nodes and prefix records, ranges.
[[nodiscard]] std::vector<std::uint8_t> build_sbcs(const Mapping& mapping);
[[nodiscard]] std::vector<std::uint8_t> build_dbcs(const Mapping& mapping);
[[nodiscard]] std::vector<std::uint8_t> build_mbcs(const Mapping& mapping);
[[nodiscard]] std::vector<std::uint8_t> build_gb18030(const Mapping& mapping);

// True for a character that the family's converter never looks up.
[[nodiscard]] bool is_built_in(const Mapping& mapping, std::size_t character);

// The value of a code of one or two bytes.
[[nodiscard]] std::uint16_t code_value(const std::string& code);

}  // namespace corvane::tab
#endif

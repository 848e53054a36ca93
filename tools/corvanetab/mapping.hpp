// The mapping of a code set as the C library knows it, and the family of tables that it fits.
#ifndef CORVANE_TOOLS_CORVANETAB_MAPPING_HPP
#define CORVANE_TOOLS_CORVANETAB_MAPPING_HPP

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace corvane::tab {

inline constexpr std::size_t kBmpSize = 0x10000;

// Everything that a table can hold. Code-set sequences are bytes in order; shift bytes are left
// out.
struct Mapping {
    std::string name;
    std::uint16_t type = 0;                          // KEL_TYPE_*
    std::map<std::string, char16_t> characters;      // by sequence: one BMP character each
    std::array<std::uint8_t, 256> length_by_lead{};  // 0 where no sequence begins
    std::vector<std::string> codes;                  // by BMP character; empty where unmapped
    std::vector<std::string> notes;                  // what the tables cannot do as the set does
};

// Asks the C library. Throws std::runtime_error when no family of tables can hold the set.
[[nodiscard]] Mapping read_mapping(const std::string& name);

// GB18030's four-byte code number `number`, counted from 81 30 81 30.
[[nodiscard]] std::string four_byte_code(std::uint32_t number);

}  // namespace corvane::tab
#endif

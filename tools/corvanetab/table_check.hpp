// Verifies a table file: every offset, row, page, node, prefix record and range.
#ifndef CORVANE_TOOLS_CORVANETAB_TABLE_CHECK_HPP
#define CORVANE_TOOLS_CORVANETAB_TABLE_CHECK_HPP

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace corvane::tab {

using Bytes = std::span<const std::uint8_t>;

inline constexpr std::size_t kMostComplaints = 100;

// What is wrong with a table, in the order in which it was found.
class Complaints {
public:
    // Takes printf's arguments. Past kMostComplaints only the number grows.
    [[gnu::format(printf, 2, 3)]] void add(const char* format, ...);
    [[nodiscard]] const std::vector<std::string>& texts() const { return texts_; }
    [[nodiscard]] std::size_t count() const { return count_; }

private:
    std::vector<std::string> texts_;
    std::size_t count_ = 0;
};

// Appends what is wrong with the table in `file`; nothing when it is sound.
void check_table(Bytes file, Complaints& complaints);

// The parts that belong to GB18030.
void check_ranges(Bytes file, Complaints& complaints);

[[nodiscard]] std::uint16_t word_at(Bytes file, std::size_t at);
[[nodiscard]] std::uint32_t long_at(Bytes file, std::size_t at);

// The type that the library gives an object of this table.
[[nodiscard]] std::uint16_t type_of(Bytes file);

// The name of a family for people; null when the type passes bytes through.
[[nodiscard]] const char* family_name(std::uint16_t type);

}  // namespace corvane::tab
#endif

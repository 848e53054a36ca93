// The converters written a second time, plainly and slowly, as an oracle: whole texts, one
// character after the other, every read of a table checked.
#ifndef CORVANE_TESTS_CODESET_NAIVE_HPP
#define CORVANE_TESTS_CODESET_NAIVE_HPP

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::test {

// Characters before they are written, and how the reading ended.
struct Characters {
    std::int32_t result = 0;
    std::u32string text;
};

class Naive {
public:
    Naive(std::uint16_t type, std::string image) : type_(type), image_(std::move(image)) {}

    // Reads code-set text from the initial state.
    [[nodiscard]] Characters read(std::string_view text) const;

    // Writes characters from the initial state, and closes an open double-byte run.
    [[nodiscard]] std::string write(std::u32string_view characters) const;

    // The interchange forms as this type's converters read them.
    [[nodiscard]] Characters read_ucs2(std::u16string_view text) const;
    [[nodiscard]] Characters read_utf8(std::string_view text) const;

private:
    [[nodiscard]] long byte(long at) const;  // -1 outside the image
    [[nodiscard]] long word(long at) const;
    [[nodiscard]] long data_area() const;
    [[nodiscard]] long entry(long value, long index) const;
    [[nodiscard]] char32_t read_sequence(std::string_view sequence) const;
    [[nodiscard]] std::size_t sequence_length(std::string_view rest) const;
    [[nodiscard]] char32_t read_node(std::string_view sequence) const;
    [[nodiscard]] char32_t read_linear(std::int64_t linear) const;
    [[nodiscard]] Characters read_shifted(std::string_view text) const;
    [[nodiscard]] std::string write_one(char32_t character) const;
    [[nodiscard]] std::string write_byte(char32_t character, char replacement) const;
    [[nodiscard]] std::string write_long(char32_t character) const;
    [[nodiscard]] std::string write_ranged(char32_t character) const;
    [[nodiscard]] std::string write_shifted(std::u32string_view characters) const;

    std::uint16_t type_;
    std::string image_;
};

}  // namespace corvane::test
#endif

// What the code-set tests share: the built tables, owned code sets, and conversions into C++
// strings.
#ifndef CORVANE_TESTS_CODESET_SUPPORT_HPP
#define CORVANE_TESTS_CODESET_SUPPORT_HPP

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "codeset/kel.h"

namespace corvane::test {

struct CsFree {
    void operator()(kel_cs_t* cs) const noexcept { (void)kel_cs_free(cs); }
};
using CsPtr = std::unique_ptr<kel_cs_t, CsFree>;

// The code set `name` of the tables that the build made; null if there is none.
[[nodiscard]] CsPtr open_built(const std::string& name);

// A line of the list of shipped code sets.
struct ListedSet {
    std::string table;
    std::string iconv_name;
    std::vector<std::string> aliases;
};
[[nodiscard]] std::vector<ListedSet> listed_sets();
void PrintTo(const ListedSet& set, std::ostream* out);

// A result code and what came before it.
struct Units {
    std::int32_t result = 0;
    std::u16string text;
    bool operator==(const Units&) const = default;
};
struct Bytes {
    std::int32_t result = 0;
    std::string text;
    bool operator==(const Bytes&) const = default;
};

// Resumable conversions of a whole text on a fresh copy of `cs`, with ample room; those from UCS-2
// and UTF-8 are flushed, and the result code is the text's own.
[[nodiscard]] Units to_ucs2(const kel_cs_t& cs, std::string_view text);
[[nodiscard]] Bytes to_utf8(const kel_cs_t& cs, std::string_view text);
[[nodiscard]] Bytes from_ucs2(const kel_cs_t& cs, std::u16string_view text);
[[nodiscard]] Bytes from_utf8(const kel_cs_t& cs, std::string_view text);

// Plain encoders, written apart from the library's.
[[nodiscard]] std::string utf8_of(char32_t character);
[[nodiscard]] std::u16string utf16_of(char32_t character);
[[nodiscard]] std::string utf8_of_units(std::u16string_view text);

[[nodiscard]] std::string hex(std::string_view bytes);
[[nodiscard]] std::string hex(std::u16string_view units);

// The folder that holds the folder "codeset" of built tables.
[[nodiscard]] const char* tables_folder();

}  // namespace corvane::test
#endif

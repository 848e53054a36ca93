// What the code-set tests share.
#include "tests/codeset/support.hpp"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace corvane::test {
namespace {

template <class Text>
[[nodiscard]] std::string hex_of(const Text& text, int digits)
{
    std::string result;
    char buffer[16];
    for (const auto element : text) {
        using Element =
            std::make_unsigned_t<std::conditional_t<sizeof(element) == 1, char, std::int16_t>>;
        (void)std::snprintf(buffer, sizeof buffer, "%s%0*X", result.empty() ? "" : " ", digits,
                            static_cast<unsigned>(static_cast<Element>(element)));
        result += buffer;
    }
    return result;
}

// Room for whatever one element of input becomes: a shift-in, a shift-out and four bytes.
constexpr std::size_t kMostOut = 8;

}  // namespace

const char* tables_folder()
{
    return CORVANE_TABLES_DIR;
}

CsPtr open_built(const std::string& name)
{
    setenv("CORKELDIR", tables_folder(), /*overwrite=*/1);
    return CsPtr(kel_cs_new(name.c_str()));
}

std::vector<ListedSet> listed_sets()
{
    std::vector<ListedSet> sets;
    std::ifstream list(CORVANE_CODE_SETS_LIST);
    for (std::string line; std::getline(list, line);) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream words(line);
        ListedSet set;
        words >> set.table >> set.iconv_name;
        for (std::string alias; words >> alias;) set.aliases.push_back(alias);
        sets.push_back(set);
    }
    return sets;
}

void PrintTo(const ListedSet& set, std::ostream* out)
{
    *out << set.table;
}

Units to_ucs2(const kel_cs_t& cs, std::string_view text)
{
    kel_cs_t copy = cs;
    Units out;
    out.text.resize(text.size() + 8);
    const char* from = text.data();
    auto from_left = static_cast<std::uint32_t>(text.size());
    std::vector<std::uint16_t> units(text.size() + 8);
    std::uint16_t* to = units.data();
    auto to_left = static_cast<std::uint32_t>(units.size());
    out.result = kel_to_ucs2_r(&copy, &from, &from_left, &to, &to_left);
    out.text.assign(units.data(), to);
    return out;
}

Bytes to_utf8(const kel_cs_t& cs, std::string_view text)
{
    kel_cs_t copy = cs;
    Bytes out;
    out.text.resize(3 * text.size() + 8);
    const char* from = text.data();
    auto from_left = static_cast<std::uint32_t>(text.size());
    char* to = out.text.data();
    auto to_left = static_cast<std::uint32_t>(out.text.size());
    out.result = kel_to_utf8_r(&copy, &from, &from_left, &to, &to_left);
    out.text.resize(out.text.size() - to_left);
    return out;
}

Bytes from_ucs2(const kel_cs_t& cs, std::u16string_view text)
{
    kel_cs_t copy = cs;
    const std::vector<std::uint16_t> units(text.begin(), text.end());
    Bytes out;
    out.text.resize(kMostOut * (text.size() + 1));
    const std::uint16_t none = 0;
    const std::uint16_t* from = units.empty() ? &none : units.data();
    auto from_left = static_cast<std::uint32_t>(units.size());
    char* to = out.text.data();
    auto to_left = static_cast<std::uint32_t>(out.text.size());
    out.result = kel_from_ucs2_r(&copy, &from, &from_left, &to, &to_left);
    from = nullptr;
    (void)kel_from_ucs2_r(&copy, &from, &from_left, &to, &to_left);
    out.text.resize(out.text.size() - to_left);
    return out;
}

Bytes from_utf8(const kel_cs_t& cs, std::string_view text)
{
    kel_cs_t copy = cs;
    Bytes out;
    out.text.resize(kMostOut * (text.size() + 1));
    const char* from = text.data();
    auto from_left = static_cast<std::uint32_t>(text.size());
    char* to = out.text.data();
    auto to_left = static_cast<std::uint32_t>(out.text.size());
    out.result = kel_from_utf8_r(&copy, &from, &from_left, &to, &to_left);
    from = nullptr;
    (void)kel_from_utf8_r(&copy, &from, &from_left, &to, &to_left);
    out.text.resize(out.text.size() - to_left);
    return out;
}

std::string utf8_of(char32_t character)
{
    const auto byte = [](char32_t value) { return static_cast<char>(value); };
    if (character < 0x80) return {byte(character)};
    const char last = byte(0x80 | (character & 0x3F));
    if (character < 0x800) return {byte(0xC0 | character >> 6), last};
    const char third = byte(0x80 | (character >> 6 & 0x3F));
    if (character < 0x10000) return {byte(0xE0 | character >> 12), third, last};
    return {byte(0xF0 | character >> 18), byte(0x80 | (character >> 12 & 0x3F)), third, last};
}

std::u16string utf16_of(char32_t character)
{
    if (character < 0x10000) return {static_cast<char16_t>(character)};
    const char32_t offset = character - 0x10000;
    return {static_cast<char16_t>(0xD800 + offset / 0x400),
            static_cast<char16_t>(0xDC00 + offset % 0x400)};
}

std::string utf8_of_units(std::u16string_view text)
{
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t character = text[i];
        const bool is_pair = character >= 0xD800 && character < 0xDC00 && i + 1 < text.size() &&
                             text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000;
        if (is_pair) character = 0x10000 + (character - 0xD800) * 0x400 + (text[++i] - 0xDC00U);
        bytes += utf8_of(character);
    }
    return bytes;
}

std::string hex(std::string_view bytes)
{
    return hex_of(bytes, 2);
}
std::string hex(std::u16string_view units)
{
    return hex_of(units, 4);
}

}  // namespace corvane::test

// The header of a table file, and the families whose codes have one or two bytes.
#include "tools/corvanetab/table_builder.hpp"

#include <algorithm>
#include <stdexcept>

#include "codeset/kel_cs.h"
#include "codeset/kel_family.h"
#include "codeset/table_layout.hpp"

namespace corvane::tab {
namespace {

using namespace corvane::kel;

constexpr std::uint8_t kSubstituteAscii = 0x1A;   // U+001A has a code of its own in every set, and
constexpr std::uint8_t kSubstituteEbcdic = 0x3F;  // no converter looks it up: the byte is free

[[nodiscard]] bool is_ebcdic(const Mapping& mapping)
{
    return mapping.type == KEL_TYPE_EBCDIC_SBCS || mapping.type == KEL_TYPE_EBCDIC_DBCS;
}

[[nodiscard]] std::uint16_t character_of(const Mapping& mapping, const std::string& bytes)
{
    const auto found = mapping.characters.find(bytes);
    return found != mapping.characters.end() ? found->second : kUnmapped;
}

[[nodiscard]] std::string text(std::initializer_list<std::size_t> bytes)
{
    std::string result;
    for (const std::size_t byte : bytes) result += static_cast<char>(byte);
    return result;
}

// The row of a lead byte: an entry for every second byte.
[[nodiscard]] Piece lead_row(const Mapping& mapping, std::size_t lead)
{
    Piece row;
    for (std::size_t second = 0; second < 256; ++second) {
        append_word(row, character_of(mapping, text({lead, second})));
    }
    return row;
}

// The row of the single bytes; entries of other bytes, and of what is built in, are not read.
[[nodiscard]] Piece single_row(const Mapping& mapping)
{
    Piece row;
    for (std::size_t byte = 0; byte < 256; ++byte) {
        const bool is_read = is_ebcdic(mapping) ? invar_eb_to_ucs[byte] == 0 && byte != 0x0E
                                                : byte >= 0x80 && mapping.length_by_lead[byte] == 1;
        append_word(row,
                    is_read ? std::optional(character_of(mapping, text({byte}))) : std::nullopt);
    }
    return row;
}

// A page of single bytes: the substitution byte stands wherever nothing is mapped.
[[nodiscard]] Piece byte_page(const Mapping& mapping, std::size_t high_byte)
{
    const std::uint8_t substitute = is_ebcdic(mapping) ? kSubstituteEbcdic : kSubstituteAscii;
    Piece page;
    for (std::size_t character = high_byte << 8; character >> 8 == high_byte; ++character) {
        const std::string& code = mapping.codes[character];
        if (is_built_in(mapping, character)) {
            page.emplace_back(std::nullopt);
        } else if (code.empty()) {
            page.emplace_back(substitute);
        } else {
            page.emplace_back(static_cast<std::uint8_t>(code[0]));
            if (page.back() == substitute) {
                throw std::runtime_error("a character needs the substitution byte");
            }
        }
    }
    return page;
}

[[nodiscard]] Piece code_page(const Mapping& mapping, std::size_t high_byte)
{
    Piece page;
    for (std::size_t character = high_byte << 8; character >> 8 == high_byte; ++character) {
        const std::string& code = mapping.codes[character];
        const std::uint16_t value = code.empty() ? kUnmapped : code_value(code);
        append_word(page, is_built_in(mapping, character) ? std::nullopt : std::optional(value));
    }
    return page;
}

}  // namespace

bool is_built_in(const Mapping& mapping, std::size_t character)
{
    return is_ebcdic(mapping) ? character < 0x100 && invar_ucs_to_eb[character] != 0
                              : character < 0x80;
}

std::uint16_t code_value(const std::string& code)
{
    std::uint16_t value = 0;
    for (const char byte : code) {
        value = static_cast<std::uint16_t>(value << 8 | static_cast<std::uint8_t>(byte));
    }
    return value;
}

Header::Header(const Mapping& mapping) : bytes_(kLeastTableSize)
{
    put32(kDataAreaAt, kLeastTableSize);
    std::copy(std::begin(kMagic), std::end(kMagic), bytes_.begin() + kMagicAt);
    put16(kTypeAt, mapping.type);
    put16(kEncodingSchemeAt, mapping.type == KEL_TYPE_EBCDIC_SBCS ? kSchemeEbcdicSbcs : 0);
    const bool is_eb = is_ebcdic(mapping);
    put_substitution(0x1A, is_eb ? kSubstituteEbcdic : kSubstituteAscii);
    for (std::size_t byte = 0; byte < 256; ++byte) {
        put_byte_value(byte, character_of(mapping, text({byte})));
        const std::uint8_t length = mapping.length_by_lead[byte];
        put_class(byte, length != 0 ? length : kClassInvalid);
    }
}

void Header::put16(std::size_t at, std::uint16_t value)
{
    bytes_[at] = static_cast<std::uint8_t>(value);
    bytes_[at + 1] = static_cast<std::uint8_t>(value >> 8);
}

void Header::put32(std::size_t at, std::uint32_t value)
{
    put16(at, static_cast<std::uint16_t>(value));
    put16(at + 2, static_cast<std::uint16_t>(value >> 16));
}

void Header::put_page(std::size_t high_byte, std::uint16_t value)
{
    put16(kPagesAt + 2 * high_byte, value);
}

void Header::put_byte_value(std::size_t byte, std::uint16_t value)
{
    put16(kByteValuesAt + 2 * byte, value);
}

void Header::put_class(std::size_t byte, std::uint8_t byte_class)
{
    bytes_[kByteClassesAt + byte] = byte_class;
}

void Header::put_substitution(std::uint16_t character, std::uint8_t byte)
{
    put16(kSubstitutionCharAt, character);
    bytes_[kSubstitutionByteAt] = byte;
}

std::vector<std::uint8_t> Header::with(const std::vector<std::uint8_t>& data) const
{
    std::vector<std::uint8_t> file = bytes_;
    file.insert(file.end(), data.begin(), data.end());
    return file;
}

std::vector<std::uint8_t> build_sbcs(const Mapping& mapping)
{
    Header header(mapping);
    DataArea data;
    std::vector<Piece> pages;
    for (std::size_t high_byte = 0; high_byte < 256; ++high_byte) {
        pages.push_back(byte_page(mapping, high_byte));
    }
    const std::vector<std::uint16_t> places = data.place_all(pages, kScale);
    for (std::size_t page = 0; page < 256; ++page) header.put_page(page, places[page]);
    return header.with(data.bytes());
}

std::vector<std::uint8_t> build_dbcs(const Mapping& mapping)
{
    Header header(mapping);
    DataArea data;
    std::vector<Piece> pieces;
    for (std::size_t high_byte = 0; high_byte < 256; ++high_byte) {
        pieces.push_back(code_page(mapping, high_byte));
    }
    std::vector<std::size_t> leads = {0};
    pieces.push_back(single_row(mapping));
    for (std::size_t lead = 1; lead < 256; ++lead) {
        const bool is_lead = mapping.type == KEL_TYPE_EBCDIC_DBCS
                                 ? lead >= 0x40 && lead < 0xFF
                                 : mapping.length_by_lead[lead] == 2;
        if (!is_lead) continue;
        leads.push_back(lead);
        pieces.push_back(lead_row(mapping, lead));
    }
    const std::vector<std::uint16_t> places = data.place_all(pieces, kScale);
    for (std::size_t page = 0; page < 256; ++page) header.put_page(page, places[page]);
    for (std::size_t i = 0; i < leads.size(); ++i) header.put_byte_value(leads[i], places[256 + i]);
    return header.with(data.bytes());
}

std::vector<std::uint8_t> build_table(const Mapping& mapping)
{
    switch (mapping.type) {
        case KEL_TYPE_ASCII_SBCS:
        case KEL_TYPE_EBCDIC_SBCS:
            return build_sbcs(mapping);
        case KEL_TYPE_ASCII_DBCS:
        case KEL_TYPE_EBCDIC_DBCS:
            return build_dbcs(mapping);
        case KEL_TYPE_ASCII_MBCS:
            return build_mbcs(mapping);
        case KEL_TYPE_GB18030:
            return build_gb18030(mapping);
        default:
            throw std::runtime_error("no family of tables holds this code set");
    }
}

}  // namespace corvane::tab

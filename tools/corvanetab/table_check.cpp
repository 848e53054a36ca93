// Verifies the header of a table file and the rows, pages, nodes and records of its family.
#include "tools/corvanetab/table_check.hpp"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <set>
#include <utility>

#include "codeset/kel_cs.h"
#include "codeset/kel_family.h"
#include "codeset/table_image.hpp"
#include "codeset/table_layout.hpp"

namespace corvane::tab {
namespace {

using namespace corvane::kel;

class TableChecker {
public:
    TableChecker(Bytes file, Complaints& complaints)
        : file_(file), complaints_(complaints), data_at_(long_at(file, kDataAreaAt))
    {
    }

    void check_sbcs()
    {
        check_classes(1);
        check_pages(256);
    }

    void check_ascii_dbcs()
    {
        check_classes(2);
        check_rows([this](unsigned byte) { return byte >= 0x80 && class_of(byte) == kClassLead; });
        bool has_singles = false;
        for (unsigned byte = 0x80; byte < 256; ++byte) has_singles |= class_of(byte) == 1;
        if (has_singles) check_row(0);
        check_pages(512);
        check_codes();
    }

    void check_ebcdic_dbcs()
    {
        check_rows([](unsigned byte) { return byte == 0 || (byte >= 0x40 && byte < 0xFF); });
        check_pages(512);
        check_codes();
    }

    void check_mbcs()
    {
        check_classes(254);
        for (unsigned byte = 0x80; byte < 256; ++byte) {
            const unsigned length = class_of(byte);
            if (length >= 2 && length != kClassInvalid) check_node(byte_value(byte), length - 1);
        }
        check_pages(1024);
        for (unsigned page = 0; page < 256; ++page) check_prefixes(page);
    }

private:
    [[nodiscard]] unsigned class_of(unsigned byte) const { return file_[kByteClassesAt + byte]; }
    [[nodiscard]] std::uint16_t byte_value(unsigned byte) const
    {
        return word_at(file_, kByteValuesAt + 2U * byte);
    }
    [[nodiscard]] std::uint16_t page_value(unsigned page) const
    {
        return word_at(file_, kPagesAt + 2U * page);
    }
    [[nodiscard]] std::size_t place(std::uint16_t value) const
    {
        return data_at_ + std::size_t{kScale} * value;
    }
    [[nodiscard]] bool is_inside(std::size_t at, std::size_t size) const
    {
        return at + size <= file_.size();
    }

    void check_classes(unsigned longest)
    {
        for (unsigned byte = 0; byte < 256; ++byte) {
            const unsigned byte_class = class_of(byte);
            if (byte_class == 0 || (byte_class > longest && byte_class != kClassInvalid)) {
                complaints_.add("byte 0x%02X has class %u, which this family does not know", byte,
                                byte_class);
            }
        }
    }

    void check_row(unsigned byte)
    {
        if (!is_inside(place(byte_value(byte)), 512)) {
            complaints_.add("the row of byte 0x%02X (value %u) ends outside the file", byte,
                            unsigned{byte_value(byte)});
        }
    }

    template <class IsLead>
    void check_rows(IsLead is_lead)
    {
        for (unsigned byte = 0; byte < 256; ++byte) {
            if (is_lead(byte)) check_row(byte);
        }
    }

    void check_pages(std::size_t size)
    {
        for (unsigned page = 0; page < 256; ++page) {
            if (!is_inside(place(page_value(page)), size)) {
                complaints_.add("page 0x%02X (value %u) ends outside the file", page,
                                unsigned{page_value(page)});
            }
        }
    }

    // A code of two bytes needs a lead byte, a code of one a byte that stands alone.
    void check_codes()
    {
        const bool is_ebcdic = type_of(file_) == KEL_TYPE_EBCDIC_DBCS;
        for (unsigned character = is_ebcdic ? 0 : 0x80; character < 0x10000; ++character) {
            const std::size_t at = place(page_value(character >> 8)) + 2UL * (character & 0xFF);
            if (!is_inside(at, 2)) continue;  // the page has been named
            const unsigned code = word_at(file_, at);
            const unsigned lead = code >> 8;
            if (code == kUnmapped || (is_ebcdic && is_invariant(character))) continue;
            const bool is_sound = is_ebcdic ? code < 0x100 || (lead >= 0x40 && lead < 0xFF)
                                            : class_of(code < 0x100 ? code : lead) ==
                                                  (code < 0x100 ? kClassSingle : kClassLead);
            if (!is_sound) {
                complaints_.add("U+%04X has code 0x%02X, which cannot be read back", character,
                                code);
            }
        }
    }

    [[nodiscard]] static bool is_invariant(unsigned character)
    {
        return character < 0x100 && invar_ucs_to_eb[character] != 0;
    }

    // Checks a node and what hangs under it, `depth` bytes before the character. Each node is
    // looked at once for a depth, so a file that shares or loops its nodes costs no more than its
    // size.
    void check_node(std::uint16_t value, unsigned depth)
    {
        if (value == kUnmapped || !seen_.insert({value, depth}).second) return;
        const std::size_t at = place(value);
        if (!is_inside(at, 4)) {
            complaints_.add("node %u lies outside the file", unsigned{value});
            return;
        }
        const unsigned count = word_at(file_, at);
        const unsigned lowest = word_at(file_, at + 2);
        if (lowest + count > 256) {
            complaints_.add("node %u covers bytes %u to %u", unsigned{value}, lowest,
                            lowest + count - 1);
        }
        if (!is_inside(at + 4, 2UL * count)) {
            complaints_.add("node %u (%u entries) ends outside the file", unsigned{value}, count);
            return;
        }
        for (unsigned i = 0; depth > 1 && i < count; ++i) {
            check_node(word_at(file_, at + 4 + 2UL * i), depth - 1);
        }
    }

    void check_prefixes(unsigned page)
    {
        for (unsigned low = page == 0 ? 0x80 : 0; low < 256; ++low) {
            const std::size_t at = place(page_value(page)) + 4UL * low;
            if (!is_inside(at, 4)) return;  // the page has been named
            const unsigned prefix = word_at(file_, at);
            if (word_at(file_, at + 2) <= 0xFF || prefix == kUnmapped) continue;
            if (prefixes_.insert(prefix).second) check_prefix(prefix, page << 8 | low);
        }
    }

    void check_prefix(unsigned prefix, unsigned character)
    {
        const std::size_t at = data_at_ + std::size_t{kPrefixRecordSize} * prefix;
        if (!is_inside(at, kPrefixRecordSize)) {
            complaints_.add("prefix record %u (of U+%04X) ends outside the file", prefix,
                            character);
        } else if (word_at(file_, at + kPrefixRoom) > kPrefixRoom) {
            complaints_.add("prefix record %u (of U+%04X) has %u bytes, more than %u", prefix,
                            character, unsigned{word_at(file_, at + kPrefixRoom)}, kPrefixRoom);
        }
    }

    Bytes file_;
    Complaints& complaints_;
    std::size_t data_at_;
    std::set<std::pair<std::uint16_t, unsigned>> seen_;
    std::set<unsigned> prefixes_;
};

// Says whether the file has a header at all.
[[nodiscard]] bool check_header(Bytes file, Complaints& complaints)
{
    if (file.size() < kLeastTableSize) {
        complaints.add("%zu bytes are fewer than the %u of a table: this is an alias file",
                       file.size(), kLeastTableSize);
        return false;
    }
    if (std::memcmp(file.data() + kMagicAt, kMagic, sizeof kMagic) != 0) {
        complaints.add("no \"ucv\" at offset %u: this is an alias file", kMagicAt);
        return false;
    }
    if (family_name(type_of(file)) == nullptr) {
        complaints.add("type %u has no family: the set would pass bytes through",
                       unsigned{type_of(file)});
        return false;
    }
    if (long_at(file, kDataAreaAt) > file.size()) {
        complaints.add("the data area begins at %u, behind the file's %zu bytes",
                       long_at(file, kDataAreaAt), file.size());
    }
    return true;
}

}  // namespace

void Complaints::add(const char* format, ...)
{
    ++count_;
    if (texts_.size() == kMostComplaints) return;
    std::array<char, 256> text{};
    va_list arguments;
    va_start(arguments, format);
    (void)std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    texts_.emplace_back(text.data());
}

std::uint16_t word_at(Bytes file, std::size_t at)
{
    return load_le16(&file[at]);
}
std::uint32_t long_at(Bytes file, std::size_t at)
{
    return at + 4 <= file.size() ? load_le32(&file[at]) : 0;
}

std::uint16_t type_of(Bytes file)
{
    const bool is_ebcdic = word_at(file, kEncodingSchemeAt) == kSchemeEbcdicSbcs;
    return is_ebcdic ? std::uint16_t{KEL_TYPE_EBCDIC_SBCS} : word_at(file, kTypeAt);
}

const char* family_name(std::uint16_t type)
{
    switch (type) {
        case KEL_TYPE_ASCII_SBCS:
            return "ASCII single-byte";
        case KEL_TYPE_ASCII_DBCS:
            return "ASCII double-byte";
        case KEL_TYPE_ASCII_MBCS:
            return "ASCII multi-byte";
        case KEL_TYPE_EBCDIC_DBCS:
            return "EBCDIC double-byte with shift-out and shift-in";
        case KEL_TYPE_EBCDIC_SBCS:
            return "EBCDIC single-byte";
        case KEL_TYPE_GB18030:
            return "GB18030";
        default:
            return nullptr;
    }
}

void check_table(Bytes file, Complaints& complaints)
{
    if (!check_header(file, complaints)) return;
    TableChecker checker(file, complaints);
    switch (type_of(file)) {
        case KEL_TYPE_ASCII_SBCS:
        case KEL_TYPE_EBCDIC_SBCS:
            checker.check_sbcs();
            break;
        case KEL_TYPE_ASCII_DBCS:
            checker.check_ascii_dbcs();
            break;
        case KEL_TYPE_ASCII_MBCS:
            checker.check_mbcs();
            break;
        case KEL_TYPE_EBCDIC_DBCS:
            checker.check_ebcdic_dbcs();
            break;
        default:
            check_ranges(file, complaints);
            break;
    }
}

}  // namespace corvane::tab

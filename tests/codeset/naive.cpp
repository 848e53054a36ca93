// The converters written a second time, as an oracle.
#include "tests/codeset/naive.hpp"

#include "codeset/kel.h"

namespace corvane::test {
namespace {

constexpr long kMiss = 0xFFFF;
constexpr long kFourByteBase = 24067;

[[nodiscard]] std::uint8_t at(std::string_view text, std::size_t i)
{
    return static_cast<std::uint8_t>(text[i]);
}

[[nodiscard]] char32_t question_if_missing(long value)
{
    return value == kMiss || value < 0 ? U'?' : static_cast<char32_t>(value);
}

[[nodiscard]] std::string bytes_of(std::initializer_list<long> values)
{
    std::string bytes;
    for (const long value : values) bytes += static_cast<char>(value);
    return bytes;
}

[[nodiscard]] std::string four_bytes(long number)
{
    const long b3 = number % 10;
    const long b2 = number / 10 % 126;
    const long b1 = number / 10 / 126 % 10;
    const long b0 = number / 10 / 126 / 10;
    return bytes_of({b0 + 0x81, b1 + 0x30, b2 + 0x81, b3 + 0x30});
}

}  // namespace

long Naive::byte(long at) const
{
    const bool is_table = image_.size() >= 1760;
    return is_table && at >= 0 && at < static_cast<long>(image_.size())
               ? static_cast<std::uint8_t>(image_[static_cast<std::size_t>(at)])
               : -1;
}

long Naive::word(long at) const
{
    const long low = byte(at);
    const long high = byte(at + 1);
    return low < 0 || high < 0 ? -1 : high * 256 + low;
}

long Naive::data_area() const
{
    return word(2) * 65536 + word(0);
}

// Entry `index` of the row or page of words at `value`.
long Naive::entry(long value, long index) const
{
    const long found = word(data_area() + 4 * value + 2 * index);
    return found < 0 ? kMiss : found;
}

// The bytes of the sequence that `rest` begins with, as far as they tell; more than there are if it
// is cut.
std::size_t Naive::sequence_length(std::string_view rest) const
{
    const std::uint8_t lead = at(rest, 0);
    if (type_ == KEL_TYPE_GB18030) {
        if (lead <= 0x80 || lead == 0xFF) return 1;
        if (rest.size() < 2) return 2;
        return at(rest, 1) >= 0x30 && at(rest, 1) <= 0x3F ? 4 : 2;
    }
    if (type_ == KEL_TYPE_UTF8) {
        if (lead >= 0xC0 && lead < 0xE0) return 2;
        if (lead >= 0xE0 && lead < 0xF0) return 3;
        return lead >= 0xF0 && lead < 0xF8 ? 4 : 1;
    }
    if (lead < 0x80) return 1;
    const long byte_class = byte(1248 + lead);
    if (type_ == KEL_TYPE_ASCII_DBCS) return byte_class == 2 ? 2 : 1;
    if (type_ != KEL_TYPE_ASCII_MBCS || byte_class < 1 || byte_class > 254) return 1;
    return static_cast<std::size_t>(byte_class);
}

char32_t Naive::read_node(std::string_view sequence) const
{
    long value = word(736 + 2 * at(sequence, 0));
    for (std::size_t i = 1; i < sequence.size() && value != kMiss && value >= 0; ++i) {
        const long node = data_area() + 4 * value;
        const long count = word(node);
        const long lowest = word(node + 2);
        const long offset = at(sequence, i) - lowest;
        value = count < 0 || lowest < 0 || offset < 0 || offset >= count
                    ? kMiss
                    : word(node + 4 + 2 * offset);
    }
    return question_if_missing(value);
}

char32_t Naive::read_linear(std::int64_t linear) const
{
    if (linear >= 213067 && linear <= 1261642) return static_cast<char32_t>(linear - 147531);
    if (linear < 0 || linear >= 65535) return U'?';
    const long block = word(38);
    const auto base = [&](long bases_at) {
        return word(block + bases_at + 2) * 65536 + word(block + bases_at);
    };
    const auto block_word = [&](long number) {
        // Word numbers are bounded so that their places cannot leave any image that there is.
        return number < 0x100000000 ? word(block + 32 + 2 * number) : -1;
    };
    if (block < 0 || byte(block + 31) < 0) return U'?';
    long number = block_word(base(20) + linear / 512);
    if (number < 0) return U'?';
    long character = kMiss;
    for (;; ++number) {
        const long range = base(16) + 4 * number;
        const long first = block_word(range);
        const long last = block_word(range + 1);
        const long kind = block_word(range + 2);
        const long parameter = block_word(range + 3);
        if (parameter < 0 || first > linear) break;
        if (linear > last) continue;
        if (kind == 2) character = linear - first + parameter;
        if (kind != 1) continue;
        const long listed = block_word(base(24) + parameter + linear - first);
        if (listed >= 0) character = listed;
    }
    return question_if_missing(character);
}

char32_t Naive::read_sequence(std::string_view sequence) const
{
    const long lead = at(sequence, 0);
    const auto trail = [&](std::size_t i) { return static_cast<long>(at(sequence, i)); };
    if (type_ == KEL_TYPE_EBCDIC_SBCS) {
        return invar_eb_to_ucs[lead] != 0 ? def_eb_to_ucs[lead]
                                          : question_if_missing(word(736 + 2 * lead));
    }
    if (lead < 0x80) return static_cast<char32_t>(lead);
    switch (type_) {
        case KEL_TYPE_ASCII_SBCS:
            return question_if_missing(word(736 + 2 * lead));
        case KEL_TYPE_ASCII_DBCS:
            if (sequence.size() == 2) {
                return question_if_missing(entry(word(736 + 2 * lead), trail(1)));
            }
            return byte(1248 + lead) == 1 ? question_if_missing(entry(word(736), lead)) : U'?';
        case KEL_TYPE_ASCII_MBCS: {
            const long byte_class = byte(1248 + lead);
            return byte_class < 1 || byte_class > 254 ? U'?' : read_node(sequence);
        }
        case KEL_TYPE_GB18030:
            if (sequence.size() == 1) return U'?';
            if (sequence.size() == 2)
                return read_linear((lead - 0x81) * 191 + (trail(1) - 0x40) + 1);
            return read_linear((((lead & 0x7F) * 10 + trail(1)) * 126 + trail(2)) * 10 + trail(3) -
                               50351);
        default:  // UTF-8
            if (sequence.size() == 1) return U'?';
            char32_t value = static_cast<char32_t>(lead) & (0x7FU >> sequence.size());
            for (std::size_t i = 1; i < sequence.size(); ++i)
                value = value * 64 + (static_cast<char32_t>(trail(i)) & 0x3F);
            return value;
    }
}

Characters Naive::read_shifted(std::string_view text) const
{
    Characters out;
    bool is_double = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const long first = at(text, i);
        if (!is_double && first == 0x0E) {
            is_double = true;
        } else if (!is_double) {
            out.text += invar_eb_to_ucs[first] != 0 ? def_eb_to_ucs[first]
                                                    : question_if_missing(entry(word(736), first));
        } else if (first >= 0x40 && first <= 0xFE) {
            if (i + 1 == text.size()) {
                out.result = KEL_INCOMPLETE;
                return out;
            }
            out.text += question_if_missing(entry(word(736 + 2 * first), at(text, ++i)));
        } else if (first == 0x0F) {
            is_double = false;
        } else {
            out.text.push_back(def_eb_to_ucs[first]);
        }
    }
    return out;
}

Characters Naive::read(std::string_view text) const
{
    if (type_ == KEL_TYPE_EBCDIC_DBCS) return read_shifted(text);
    Characters out;
    while (!text.empty()) {
        const std::size_t length = type_ == KEL_TYPE_EBCDIC_SBCS ? 1 : sequence_length(text);
        if (length > text.size()) {
            out.result = KEL_INCOMPLETE;
            return out;
        }
        out.text += read_sequence(text.substr(0, length));
        text.remove_prefix(length);
    }
    return out;
}

Characters Naive::read_ucs2(std::u16string_view text) const
{
    Characters out;
    const bool has_pairs = type_ == KEL_TYPE_UTF8 || type_ == KEL_TYPE_GB18030;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char32_t unit = text[i];
        if (!has_pairs || unit < 0xD800 || unit > 0xDFFF) {
            out.text += unit;
        } else if (unit >= 0xDC00) {
            out.text += U'?';
        } else if (i + 1 == text.size()) {
            out.result = KEL_INCOMPLETE;
            return out;
        } else {
            const char32_t partner = text[++i];
            const bool is_pair = partner >= 0xDC00 && partner <= 0xDFFF;
            out.text += is_pair ? 0x10000 + (unit - 0xD800) * 0x400 + (partner - 0xDC00) : U'?';
        }
    }
    return out;
}

Characters Naive::read_utf8(std::string_view text) const
{
    if (type_ == KEL_TYPE_UTF8 || type_ == KEL_TYPE_GB18030) {
        return Naive(KEL_TYPE_UTF8, {}).read(text);
    }
    Characters out;
    while (!text.empty()) {
        const std::uint8_t lead = at(text, 0);
        const std::size_t length = lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : 3;
        if (length > text.size()) {
            out.result = KEL_INCOMPLETE;
            return out;
        }
        if (length == 1) {
            out.text += lead < 0x80 ? char32_t{lead} : U'?';
        } else if (length == 2) {
            out.text.push_back((lead & 0x1FU) * 64U + (at(text, 1) & 0x3FU));
        } else {
            out.text.push_back((lead & 0x0FU) * 4096U + (at(text, 1) & 0x3FU) * 64U +
                               (at(text, 2) & 0x3FU));
        }
        text.remove_prefix(length);
    }
    return out;
}

std::string Naive::write_byte(char32_t character, char replacement) const
{
    const long page = word(224 + 2 * static_cast<long>(character >> 8));
    const long code =
        page < 0 ? -1 : byte(data_area() + 4 * page + static_cast<long>(character & 0xFF));
    const bool is_substitute =
        code == byte(60) && (static_cast<long>(character) != word(58) || character == 0xFFFF);
    return code < 0 || is_substitute ? std::string(1, replacement) : bytes_of({code});
}

std::string Naive::write_long(char32_t character) const
{
    const long page = data_area() + 4 * word(224 + 2 * static_cast<long>(character >> 8));
    const long prefix = word(page + 4 * static_cast<long>(character & 0xFF));
    const long code = word(page + 4 * static_cast<long>(character & 0xFF) + 2);
    if (prefix < 0 || code < 0) return "?";
    if (code <= 0xFF) return bytes_of({code});
    const long record = data_area() + 16 * prefix;
    const long length = word(record + 14);
    if (prefix == kMiss || length < 0 || length > 14) return "?";
    std::string bytes;
    for (long i = 0; i < length; ++i) bytes += static_cast<char>(byte(record + i));
    return bytes + bytes_of({code >> 8, code & 0xFF});
}

std::string Naive::write_ranged(char32_t character) const
{
    if (character > 0x10FFFF) return "?";
    if (character > 0xFFFF) return four_bytes(static_cast<long>(character) + 123464);
    const long key = static_cast<long>(character);
    const long block = word(38);
    if (block < 0 || byte(block + 31) < 0) return "?";
    const auto base = [&](long bases_at) {
        return word(block + bases_at + 2) * 65536 + word(block + bases_at);
    };
    const auto block_word = [&](long number) { return word(block + 32 + 2 * number); };
    long number = block_word(base(4) + key / 512);
    if (number < 0) return "?";
    for (;; ++number) {
        const long range = base(0) + 4 * number;
        const long first = block_word(range);
        const long last = block_word(range + 1);
        const long kind = block_word(range + 2);
        const long parameter = block_word(range + 3);
        if (parameter < 0 || first > key) return "?";
        if (key > last) continue;
        long code = 0;
        if (kind == 1) code = block_word(base(8) + parameter + key - first);
        if (kind == 2) code = key - first + parameter;
        if (kind > 2 || code < 0) return "?";
        if (code == 0) return bytes_of({(key - first + parameter) % 256});
        if (code >= kFourByteBase) return four_bytes(code - kFourByteBase);
        return bytes_of({(code - 1) / 191 + 0x81, (code - 1) % 191 + 0x40});
    }
}

std::string Naive::write_one(char32_t character) const
{
    if (type_ == KEL_TYPE_EBCDIC_SBCS) {
        const bool is_invariant = character < 0x100 && invar_ucs_to_eb[character] != 0;
        return is_invariant ? bytes_of({def_ucs_to_eb[character]}) : write_byte(character, '\x6F');
    }
    if (character < 0x80) return bytes_of({static_cast<long>(character)});
    switch (type_) {
        case KEL_TYPE_ASCII_SBCS:
            return write_byte(character, '?');
        case KEL_TYPE_ASCII_DBCS: {
            const long code = entry(word(224 + 2 * static_cast<long>(character >> 8)),
                                    static_cast<long>(character & 0xFF));
            if (code == kMiss) return "?";
            return code > 0xFF ? bytes_of({code >> 8, code & 0xFF}) : bytes_of({code});
        }
        case KEL_TYPE_ASCII_MBCS:
            return write_long(character);
        default:
            return write_ranged(character);
    }
}

std::string Naive::write_shifted(std::u32string_view characters) const
{
    std::string out;
    bool is_double = false;
    for (const char32_t character : characters) {
        const bool is_invariant = character < 0x100 && invar_ucs_to_eb[character] != 0;
        long code = is_invariant ? def_ucs_to_eb[character]
                                 : entry(word(224 + 2 * static_cast<long>(character >> 8)),
                                         static_cast<long>(character & 0xFF));
        if (code == kMiss) code = 0x6F;
        if (code > 0xFF) {
            if (!is_double) out += '\x0E';
            out += bytes_of({code >> 8, code & 0xFF});
            is_double = true;
        } else {
            if (is_double) out += '\x0F';
            out += bytes_of({code});
            is_double = is_invariant && character == 0x0E;
        }
    }
    return is_double ? out + '\x0F' : out;
}

std::string Naive::write(std::u32string_view characters) const
{
    if (type_ == KEL_TYPE_EBCDIC_DBCS) return write_shifted(characters);
    std::string out;
    for (const char32_t character : characters) out += write_one(character);
    return out;
}

}  // namespace corvane::test

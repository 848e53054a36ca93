// Reads a code set's mapping from the C library and picks the family of its tables.
#include "tools/corvanetab/mapping.hpp"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "codeset/kel_cs.h"
#include "codeset/kel_family.h"
#include "codeset/table_layout.hpp"
#include "tools/corvanetab/iconv_codec.hpp"

namespace corvane::tab {
namespace {

constexpr std::size_t kLongestSequence = 4;
constexpr char kShiftOut = 0x0E;
constexpr char kShiftIn = 0x0F;

// What cannot be in a table, counted for the notes.
struct Losses {
    std::size_t beyond_bmp = 0;
    std::size_t several_characters = 0;
    std::size_t ascii_bytes = 0;
    std::size_t composed = 0;
};

class MappingReader {
public:
    explicit MappingReader(const std::string& name) : codec_(name)
    {
        mapping_.name = name;
        mapping_.codes.resize(kBmpSize);
    }

    [[nodiscard]] Mapping read()
    {
        refuse_built_in();
        is_ebcdic_ = codec_.encode(U'A') == "\xC1";
        is_gb18030_ = codec_.encode(U'\U00010000') == "\x90\x30\x81\x30";
        read_sequences();
        if (is_gb18030_) read_four_byte_codes();
        if (is_ebcdic_) read_shifted_pairs();
        pick_family();
        read_codes();
        note_losses();
        if (is_ebcdic_) note_overridden();
        return std::move(mapping_);
    }

private:
    void refuse_built_in() const
    {
        if (codec_.encode(U'\u20AC') == "\xE2\x82\xAC" && codec_.encode(U'\u00FF') == "\xC3\xBF") {
            throw std::runtime_error("'" + mapping_.name + "' is built into the library");
        }
    }

    // Enters a whole sequence, unless its characters do not fit a table.
    void enter(const std::string& bytes, const std::u32string& characters)
    {
        if (characters.size() != 1) {
            ++losses_.several_characters;
        } else if (characters[0] >= kBmpSize) {
            ++losses_.beyond_bmp;
        } else if (characters[0] != kel::kUnmapped) {
            mapping_.characters[bytes] = static_cast<char16_t>(characters[0]);
        }
    }

    void read_sequences()
    {
        for (unsigned byte = 0; byte < 256; ++byte) {
            if (!is_ebcdic_ && byte < 0x80) {
                read_ascii(static_cast<char>(byte));
            } else if (!(is_ebcdic_ && (byte == kShiftOut || byte == kShiftIn))) {
                extend(std::string(1, static_cast<char>(byte)));
            }
        }
    }

    void read_ascii(char byte)
    {
        std::u32string characters;
        mapping_.length_by_lead[static_cast<std::uint8_t>(byte)] = 1;
        mapping_.characters[std::string(1, byte)] = static_cast<char16_t>(byte);
        if (codec_.decode(std::string(1, byte), characters) != Decoding::kWhole) {
            throw std::runtime_error("'" + mapping_.name + "' is neither ASCII- nor EBCDIC-based");
        }
        if (characters != std::u32string(1, static_cast<char32_t>(byte))) ++losses_.ascii_bytes;
    }

    // Tries `bytes`, and while the set wants more, every byte behind it.
    void extend(const std::string& bytes)
    {
        std::u32string characters;
        const Decoding decoding = codec_.decode(bytes, characters);
        if (decoding == Decoding::kInvalid) return;
        std::uint8_t& length = mapping_.length_by_lead[static_cast<std::uint8_t>(bytes[0])];
        if (decoding == Decoding::kWhole) {
            length = std::max(length, static_cast<std::uint8_t>(bytes.size()));
            enter(bytes, characters);
            return;
        }
        if (bytes.size() == (is_gb18030_ ? 2 : kLongestSequence)) return;
        for (unsigned next = 0; next < 256; ++next) {
            extend(bytes + static_cast<char>(next));
        }
    }

    // GB18030's longer codes by their numbers: trying every sequence would take minutes.
    void read_four_byte_codes()
    {
        std::u32string characters;
        for (std::uint32_t linear = kel::kFourByteBase; linear < kel::kRangeKeyLimit; ++linear) {
            const std::string bytes = four_byte_code(linear - kel::kFourByteBase);
            if (codec_.decode(bytes, characters) == Decoding::kWhole) enter(bytes, characters);
        }
        for (std::size_t lead = 0x81; lead < 0xFF; ++lead) {
            mapping_.length_by_lead[lead] = kLongestSequence;
        }
    }

    void read_shifted_pairs()
    {
        std::u32string characters;
        const std::string shifts{kShiftOut, kShiftIn};  // a set without modes has characters there
        if (codec_.decode(shifts, characters) != Decoding::kWhole || !characters.empty()) return;
        for (unsigned first = 0x40; first < 0xFF; ++first) {
            for (unsigned second = 0; second < 256; ++second) {
                const std::string pair{static_cast<char>(first), static_cast<char>(second)};
                if (codec_.decode(kShiftOut + pair + kShiftIn, characters) == Decoding::kWhole) {
                    enter(pair, characters);
                }
            }
        }
    }

    void pick_family()
    {
        std::size_t longest = 0;
        for (const auto& [bytes, character] : mapping_.characters) {
            longest = std::max(longest, bytes.size());
        }
        if (is_ebcdic_) {
            mapping_.type = longest > 1 ? KEL_TYPE_EBCDIC_DBCS : KEL_TYPE_EBCDIC_SBCS;
        } else if (is_gb18030_) {
            mapping_.type = KEL_TYPE_GB18030;
        } else if (longest > 2) {
            mapping_.type = KEL_TYPE_ASCII_MBCS;
        } else {
            mapping_.type = longest == 2 ? KEL_TYPE_ASCII_DBCS : KEL_TYPE_ASCII_SBCS;
        }
    }

    void read_codes()
    {
        for (std::size_t character = is_ebcdic_ ? 0 : 0x80; character < kBmpSize; ++character) {
            std::string code = codec_.encode(static_cast<char32_t>(character));
            if (is_ebcdic_ && code.size() == 4 && code[0] == kShiftOut) code = code.substr(1, 2);
            if (!is_code(code)) {
                if (!code.empty()) ++losses_.composed;
                continue;
            }
            mapping_.codes[character] = code;
        }
    }

    // Some sets write one character as two codes; a table has one code for each.
    [[nodiscard]] bool is_code(const std::string& code) const
    {
        if (code.empty()) return false;
        if (is_ebcdic_) return code.size() <= 2;
        const auto lead = static_cast<std::uint8_t>(code[0]);
        if (mapping_.type == KEL_TYPE_GB18030) return true;
        return lead < 0x80 ? code.size() == 1 : code.size() == mapping_.length_by_lead[lead];
    }

    void note(std::size_t count, const char* what)
    {
        if (count != 0) mapping_.notes.push_back(std::to_string(count) + " " + what);
    }

    void note_losses()
    {
        if (mapping_.type == KEL_TYPE_GB18030) return;  // what lies beyond the BMP is computed
        note(losses_.ascii_bytes, "bytes below 0x80 are not ASCII; they pass as ASCII");
        note(losses_.beyond_bmp, "codes stand for characters beyond the BMP; they read as '?'");
        note(losses_.several_characters, "codes stand for several characters; they read as '?'");
        note(losses_.composed, "characters need more than one code; they are written as '?'");
    }

    // The invariant characters are built in: a set that has others in their places loses those.
    void note_overridden()
    {
        std::string bytes;
        for (unsigned byte = 0; byte < 256; ++byte) {
            const auto found = mapping_.characters.find(std::string(1, static_cast<char>(byte)));
            if (invar_eb_to_ucs[byte] == 0) continue;
            if (found != mapping_.characters.end() && found->second == def_eb_to_ucs[byte])
                continue;
            if (byte == kShiftOut || byte == kShiftIn) continue;
            std::array<char, 8> text{};
            (void)std::snprintf(text.data(), text.size(), " 0x%02X", byte);
            bytes += text.data();
        }
        if (!bytes.empty()) {
            mapping_.notes.push_back("bytes that the invariant set overrides:" + bytes);
        }
    }

    IconvCodec codec_;
    Mapping mapping_;
    Losses losses_;
    bool is_ebcdic_ = false;
    bool is_gb18030_ = false;
};

}  // namespace

std::string four_byte_code(std::uint32_t number)
{
    return {static_cast<char>(0x81 + number / 12600), static_cast<char>(0x30 + number / 1260 % 10),
            static_cast<char>(0x81 + number / 10 % 126), static_cast<char>(0x30 + number % 10)};
}

Mapping read_mapping(const std::string& name)
{
    return MappingReader(name).read();
}

}  // namespace corvane::tab

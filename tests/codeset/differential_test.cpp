// Every shipped code set against the C library's iconv: every character of the BMP (of GB18030,
// every character), every sequence of one and two bytes, and the longer ones by their lead bytes.
// Conversions through UCS-2 are compared with iconv, those through UTF-8 with those through UCS-2.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <optional>
#include <set>

#include "tests/codeset/iconv_oracle.hpp"
#include "tests/codeset/known_differences.hpp"
#include "tests/codeset/support.hpp"

namespace {

using namespace corvane::test;

constexpr std::size_t kMostPrinted = 8;
constexpr char kShiftOut = 0x0E;
constexpr char kShiftIn = 0x0F;

using Decoded = std::optional<std::u32string>;

[[nodiscard]] std::u16string units_of(const std::u32string& characters)
{
    std::u16string units;
    for (const char32_t character : characters) units += utf16_of(character);
    return units;
}

[[nodiscard]] std::uint8_t byte_at(const std::string& bytes, std::size_t i)
{
    return static_cast<std::uint8_t>(bytes[i]);
}

// One code set beside iconv's. Each difference is either one of the rules or a failure.
class Comparison {
public:
    explicit Comparison(const ListedSet& set)
        : name_(set.table), oracle_(set.iconv_name), cs_(open_built(set.table))
    {
        if (cs_ == nullptr) throw std::runtime_error("no table of " + name_);
        is_shifted_ = cs_->type == KEL_TYPE_EBCDIC_DBCS;
        is_ebcdic_ = is_shifted_ || cs_->type == KEL_TYPE_EBCDIC_SBCS;
        is_gb18030_ = cs_->type == KEL_TYPE_GB18030;
    }

    void run()
    {
        for (unsigned byte = 0; byte < 256; ++byte) read_single(static_cast<char>(byte));
        for (unsigned pair = 0; pair < 0x10000; ++pair) {
            read_pair(static_cast<char>(pair >> 8), static_cast<char>(pair));
        }
        if (is_shifted_) read_shifted_pairs();
        if (cs_->type == KEL_TYPE_ASCII_MBCS) read_triples();
        if (is_gb18030_) read_quadruples();
        read_longer();
        for (char32_t character = 0; character < 0x10000; ++character) write_bmp(character);
        if (!is_gb18030_) return;
        for (char32_t character = 0x10000; character < 0x110000; ++character) write(character);
    }

    [[nodiscard]] const std::set<Rule>& seen() const { return seen_; }
    [[nodiscard]] std::size_t unexplained() const { return unexplained_; }

private:
    void differ(std::optional<Rule> rule, const std::string& what)
    {
        if (rule) {
            seen_.insert(*rule);
        } else if (++unexplained_ <= kMostPrinted) {
            ADD_FAILURE() << name_ << ": " << what;
        }
    }

    [[nodiscard]] Units read_ours(const std::string& bytes)
    {
        const Units ours = to_ucs2(*cs_, bytes);
        const Bytes as_utf8 = to_utf8(*cs_, bytes);
        if (as_utf8.result != ours.result || as_utf8.text != utf8_of_units(ours.text)) {
            differ(std::nullopt, hex(bytes) + " reads as UTF-8 " + hex(as_utf8.text));
        }
        return ours;
    }

    // Reads one sequence. What iconv refuses must leave a "?" or be unfinished.
    void read(const std::string& bytes)
    {
        const Units ours = read_ours(bytes);
        const Decoded theirs = oracle_.read(bytes);
        const bool is_same =
            theirs ? ours.result == KEL_DONE && units_of(*theirs) == ours.text
                   : ours.result == KEL_INCOMPLETE || ours.text.find(u'?') != std::u16string::npos;
        if (is_same) return;
        differ(rule_of_read(bytes, theirs, ours.text),
               hex(bytes) + " reads as " + hex(ours.text) + ", not " +
                   (theirs ? hex(units_of(*theirs)) : "refused"));
    }

    [[nodiscard]] std::optional<Rule> rule_of_read(const std::string& bytes, const Decoded& theirs,
                                                   const std::u16string& ours) const
    {
        const unsigned first = byte_at(bytes, 0);
        const bool is_lost = theirs && ours == u"?";
        if (is_lost && theirs->size() > 1) return Rule::kSeveralCharacters;
        if (is_lost && theirs->front() > 0xFFFF) return Rule::kBeyondBmp;
        if (is_lost && *theirs == U"\uFFFF") return Rule::kNoFFFF;
        if (is_ebcdic_) return rule_of_ebcdic_read(bytes, ours);
        if (is_gb18030_)
            return is_overflowing(bytes) ? std::optional(Rule::kLinearOverflow) : std::nullopt;
        const bool is_copied = bytes.size() == 1 && first < 0x80 && ours[0] == first;
        return is_copied ? std::optional(Rule::kAsciiPasses) : std::nullopt;
    }

    [[nodiscard]] std::optional<Rule> rule_of_ebcdic_read(const std::string& bytes,
                                                          const std::u16string& ours) const
    {
        const unsigned first = byte_at(bytes, 0);
        if (is_shifted_ && bytes.size() > 1 && first == kShiftOut) {
            const unsigned second = byte_at(bytes, 1);
            const bool is_lead = second >= 0x40 && second < 0xFF;
            return is_lead ? std::nullopt : std::optional(Rule::kControlInPairs);
        }
        if (is_shifted_ && bytes.find(kShiftIn) != std::string::npos &&
            ours.find(char16_t{kShiftIn}) != std::u16string::npos) {
            return Rule::kShiftAlone;
        }
        if (bytes.size() != 1 || invar_eb_to_ucs[first] == 0 || ours[0] != def_eb_to_ucs[first]) {
            return std::nullopt;
        }
        return ours[0] == u'\n' ? Rule::kLineFeed : Rule::kInvariant;
    }

    // A byte outside the range that GB18030 has at its place.
    [[nodiscard]] static bool is_overflowing(const std::string& bytes)
    {
        const auto is_digit = [&](std::size_t i) {
            return byte_at(bytes, i) >= 0x30 && byte_at(bytes, i) <= 0x39;
        };
        const auto is_high = [&](std::size_t i) {
            return byte_at(bytes, i) >= 0x81 && byte_at(bytes, i) <= 0xFE;
        };
        if (bytes.size() == 2) return byte_at(bytes, 1) < 0x40 || byte_at(bytes, 1) == 0xFF;
        return bytes.size() == 4 && !(is_digit(1) && is_high(2) && is_digit(3));
    }

    void read_single(char byte)
    {
        const std::string bytes(1, byte);
        read(bytes);
        ours_[byte_at(bytes, 0)] = to_ucs2(*cs_, bytes).text;
        theirs_[byte_at(bytes, 0)] = oracle_.read(bytes);
    }

    // Two bytes that are a character each read as those; everything else is one sequence.
    void read_pair(char first, char second)
    {
        const std::string bytes{first, second};
        const Decoded& left = theirs_[byte_at(bytes, 0)];
        const Decoded& right = theirs_[byte_at(bytes, 1)];
        if (!left || !right || (is_shifted_ && first == kShiftOut)) {
            read(bytes);
            return;
        }
        const Units ours = read_ours(bytes);
        if (ours.text != ours_[byte_at(bytes, 0)] + ours_[byte_at(bytes, 1)]) {
            differ(std::nullopt, hex(bytes) + " reads as " + hex(ours.text));
        }
        const Decoded together = oracle_.read(bytes);
        if (together != *left + *right) {
            differ(
                together && together->size() == 1 ? std::optional(Rule::kComposes) : std::nullopt,
                hex(bytes) + " is neither two characters nor one");
        }
    }

    void read_shifted_pairs()
    {
        for (unsigned first = 0x40; first < 0xFF; ++first) {
            for (unsigned second = 0; second < 256; ++second) {
                const std::string pair{static_cast<char>(first), static_cast<char>(second)};
                const std::string bytes = kShiftOut + pair + kShiftIn;
                if (second != kShiftIn) {
                    read_shifted(bytes);
                }
            }
        }
    }

    void read_shifted(const std::string& bytes)
    {
        const Units ours = read_ours(bytes);
        const Decoded theirs = oracle_.read(bytes);
        if (theirs ? units_of(*theirs) == ours.text : ours.text == u"?") return;
        const bool is_lost = theirs && ours.text == u"?";
        std::optional<Rule> rule;
        if (is_lost && theirs->size() > 1) rule = Rule::kSeveralCharacters;
        if (is_lost && theirs->front() > 0xFFFF) rule = Rule::kBeyondBmp;
        differ(rule, hex(bytes) + " reads as " + hex(ours.text));
    }

    // Every sequence behind the lead bytes of three-byte sequences.
    void read_triples()
    {
        const auto* const image = static_cast<const std::uint8_t*>(cs_->table);
        for (unsigned lead = 0x80; lead < 256; ++lead) {
            if (image[1248 + lead] != 3) continue;
            for (unsigned pair = 0; pair < 0x10000; ++pair) {
                read({static_cast<char>(lead), static_cast<char>(pair >> 8),
                      static_cast<char>(pair)});
            }
        }
    }

    // Every four-byte sequence of GB18030, and around a few of them those with bytes out of range.
    void read_quadruples()
    {
        const auto bytes = [](unsigned a, unsigned b, unsigned c, unsigned d) {
            return std::string{static_cast<char>(a), static_cast<char>(b), static_cast<char>(c),
                               static_cast<char>(d)};
        };
        for (unsigned n = 0; n < 126 * 10 * 126 * 10; ++n) {
            read(bytes(0x81 + n / 12600, 0x30 + n / 1260 % 10, 0x81 + n / 10 % 126, 0x30 + n % 10));
        }
        for (const unsigned lead : {0x81U, 0x84U, 0x90U, 0xFEU}) {
            for (const unsigned second : {0x30U, 0x39U, 0x3AU, 0x3FU}) {
                for (unsigned pair = 0; pair < 0x10000; ++pair) {
                    read(bytes(lead, second, pair >> 8, pair & 0xFF));
                }
            }
        }
    }

    // Texts of three and four bytes made of bytes at the bounds of the set's classes.
    void read_longer()
    {
        if (seen_.contains(Rule::kComposes) || is_shifted_) return;  // pairs have told already
        const std::vector<char> bounds = class_bounds();
        for (const char a : bounds) {
            for (const char b : bounds) {
                for (const char c : bounds) {
                    read_whole({a, b, c});
                    for (const char d : bounds) read_whole({a, b, c, d});
                }
            }
        }
    }

    [[nodiscard]] std::vector<char> class_bounds() const
    {
        const auto* const classes = static_cast<const std::uint8_t*>(cs_->table) + 1248;
        std::vector<char> bounds;
        for (unsigned byte = 0; byte < 256 && bounds.size() < 14; ++byte) {
            const bool is_bound = byte == 0x40 || byte == 255 ||
                                  classes[byte] != classes[byte + 1] ||
                                  (byte != 0 && classes[byte] != classes[byte - 1]);
            const Decoded& theirs = theirs_[byte];
            if (is_bound && (!theirs || units_of(*theirs) == ours_[byte])) {
                bounds.push_back(static_cast<char>(byte));
            }
        }
        return bounds;
    }

    // Several characters in a row: equal when iconv takes the whole text, but for those beyond the
    // BMP.
    void read_whole(const std::string& bytes)
    {
        Decoded theirs = oracle_.read(bytes);
        const Units ours = read_ours(bytes);
        if (!theirs || units_of(*theirs) == ours.text) return;
        std::replace_if(
            theirs->begin(), theirs->end(), [](char32_t c) { return c > 0xFFFF; }, U'?');
        const bool is_lost = units_of(*theirs) == ours.text;
        differ(is_lost ? std::optional(Rule::kBeyondBmp) : std::nullopt,
               hex(bytes) + " reads as " + hex(ours.text));
    }

    void write_bmp(char32_t character)
    {
        const bool is_surrogate = character >= 0xD800 && character < 0xE000;
        if (is_gb18030_ && is_surrogate) return;  // halves of pairs, which have tests of their own
        write(character);
    }

    void write(char32_t character)
    {
        const Bytes ours = from_ucs2(*cs_, utf16_of(character));
        const Bytes by_utf8 = from_utf8(*cs_, utf8_of(character));
        if (by_utf8 != ours) {
            differ(std::nullopt, "UTF-8 " + hex(utf8_of(character)) + " writes " +
                                     hex(by_utf8.text) + ", not " + hex(ours.text));
        }
        const auto theirs = oracle_.write(character);
        const std::string expected = theirs ? *theirs : std::string(is_ebcdic_ ? "\x6F" : "?");
        if (ours.result == KEL_DONE && ours.text == expected) return;
        differ(rule_of_write(character, theirs, ours.text),
               "character " + hex(utf16_of(character)) + " writes " + hex(ours.text) + ", not " +
                   hex(expected));
    }

    [[nodiscard]] std::optional<Rule> rule_of_write(char32_t character,
                                                    const std::optional<std::string>& theirs,
                                                    const std::string& ours) const
    {
        if (is_gb18030_) {
            const bool is_computed = character > 0xFFFF && theirs && theirs->size() == 2;
            return is_computed ? std::optional(Rule::kPlanesComputed) : std::nullopt;
        }
        if (!is_ebcdic_) {
            const bool is_copied = character < 0x80 && ours == utf8_of(character);
            if (is_copied) return Rule::kAsciiPasses;
            const bool is_composed =
                theirs && theirs->size() > 1 && ours == "?" && cs_->type == KEL_TYPE_ASCII_SBCS;
            return is_composed ? std::optional(Rule::kComposes) : std::nullopt;
        }
        if (is_shifted_ && (character == kShiftOut || character == kShiftIn)) {
            const char* const expected = character == kShiftOut ? "\x0E\x0F" : "\x0F";
            return ours == expected ? std::optional(Rule::kShiftAlone) : std::nullopt;
        }
        const bool is_built_in =
            character < 0x100 && invar_ucs_to_eb[character] != 0 &&
            ours == std::string(1, static_cast<char>(def_ucs_to_eb[character]));
        if (!is_built_in) return std::nullopt;
        return character == U'\n' ? Rule::kLineFeed : Rule::kInvariant;
    }

    std::string name_;
    IconvOracle oracle_;
    CsPtr cs_;
    bool is_ebcdic_ = false;
    bool is_shifted_ = false;
    bool is_gb18030_ = false;
    std::array<std::u16string, 256> ours_;
    std::array<Decoded, 256> theirs_;
    std::set<Rule> seen_;
    std::size_t unexplained_ = 0;
};

class Differential : public testing::TestWithParam<ListedSet> {};

// The table of known differences says all that there are, and none that there is not.
TEST_P(Differential, DiffersFromIconvByTheKnownRulesAlone)
{
    Comparison comparison(GetParam());

    comparison.run();

    EXPECT_EQ(comparison.unexplained(), 0U);
    std::set<std::string_view> seen;
    for (const Rule rule : comparison.seen()) seen.insert(rule_name(rule));
    std::set<std::string_view> known;
    for (const auto& [table, rule] : kKnownDifferences) {
        if (table == GetParam().table) known.insert(rule_name(rule));
    }
    EXPECT_EQ(seen, known);
}

// A row for a set that is not shipped would never be looked at.
TEST(KnownDifferences, AreOfShippedSets)
{
    std::set<std::string, std::less<>> shipped;
    for (const ListedSet& set : listed_sets()) shipped.insert(set.table);

    for (const auto& [table, rule] : kKnownDifferences) {
        EXPECT_TRUE(shipped.contains(table)) << table << ": " << rule_name(rule);
    }
}

INSTANTIATE_TEST_SUITE_P(Shipped, Differential, testing::ValuesIn(listed_sets()),
                         [](const auto& set) { return set.param.table; });

}  // namespace

// Where the shipped tables and converters are meant to differ from the C library's iconv, by name.
#ifndef CORVANE_TESTS_CODESET_KNOWN_DIFFERENCES_HPP
#define CORVANE_TESTS_CODESET_KNOWN_DIFFERENCES_HPP

#include <array>
#include <cstddef>
#include <string_view>
#include <utility>

namespace corvane::test {

enum class Rule {
    kAsciiPasses,  // bytes and characters below 0x80 are copied, whatever the set has there
    kComposes,     // iconv reads a base and a mark as one character, and writes it as two codes
    kBeyondBmp,    // a code of a character beyond the BMP reads as "?"
    kSeveralCharacters,  // a code of several characters reads as "?"
    kLineFeed,    // 0x15 and 0x25 both read as U+000A, which is written as 0x15; U+0085 has none
    kInvariant,   // other bytes and characters that the built-in invariant set overrides
    kShiftAlone,  // a shift-in in single-byte mode is U+000F; both shift characters are written
    kControlInPairs,  // in double-byte mode a byte outside 0x40-0xFE is read as in single-byte mode
    kLinearOverflow,  // GB18030 bytes out of their ranges count on into a neighbouring code
    kPlanesComputed,  // characters beyond the BMP have four bytes in GB18030, even where two exist
    kNoFFFF,          // U+FFFF reads as "?"
};

inline constexpr std::array<std::string_view, 11> kRuleNames = {
    "ascii passes",    "composes",        "beyond the BMP", "several characters",
    "line feed",       "invariant",       "shift alone",    "control in pairs",
    "linear overflow", "planes computed", "no U+FFFF",
};

[[nodiscard]] constexpr std::string_view rule_name(Rule rule)
{
    return kRuleNames[static_cast<std::size_t>(rule)];
}

inline constexpr std::pair<std::string_view, Rule> kKnownDifferences[] = {
    {"CP1255", Rule::kComposes},
    {"CP1258", Rule::kComposes},
    {"SHIFTJIS", Rule::kAsciiPasses},
    {"IBM943", Rule::kAsciiPasses},
    {"BIG5HKSCS", Rule::kBeyondBmp},
    {"BIG5HKSCS", Rule::kSeveralCharacters},
    {"EUCTW", Rule::kBeyondBmp},
    {"GB18030", Rule::kBeyondBmp},
    {"GB18030", Rule::kLinearOverflow},
    {"GB18030", Rule::kPlanesComputed},
    {"GB18030", Rule::kNoFFFF},
    {"IBM037", Rule::kLineFeed},
    {"IBM273", Rule::kLineFeed},
    {"IBM277", Rule::kLineFeed},
    {"IBM278", Rule::kLineFeed},
    {"IBM280", Rule::kLineFeed},
    {"IBM284", Rule::kLineFeed},
    {"IBM285", Rule::kLineFeed},
    {"IBM297", Rule::kLineFeed},
    {"IBM500", Rule::kLineFeed},
    {"IBM1047", Rule::kLineFeed},
    {"IBM1140", Rule::kLineFeed},
    {"IBM930", Rule::kLineFeed},
    {"IBM930", Rule::kInvariant},
    {"IBM930", Rule::kShiftAlone},
    {"IBM930", Rule::kControlInPairs},
    {"IBM933", Rule::kLineFeed},
    {"IBM933", Rule::kShiftAlone},
    {"IBM933", Rule::kControlInPairs},
    {"IBM935", Rule::kLineFeed},
    {"IBM935", Rule::kShiftAlone},
    {"IBM935", Rule::kControlInPairs},
    {"IBM937", Rule::kLineFeed},
    {"IBM937", Rule::kShiftAlone},
    {"IBM937", Rule::kControlInPairs},
    {"IBM939", Rule::kLineFeed},
    {"IBM939", Rule::kShiftAlone},
    {"IBM939", Rule::kControlInPairs},
    {"IBM1364", Rule::kLineFeed},
    {"IBM1364", Rule::kShiftAlone},
    {"IBM1364", Rule::kControlInPairs},
    {"IBM1371", Rule::kLineFeed},
    {"IBM1371", Rule::kShiftAlone},
    {"IBM1371", Rule::kControlInPairs},
    {"IBM1388", Rule::kLineFeed},
    {"IBM1388", Rule::kShiftAlone},
    {"IBM1388", Rule::kControlInPairs},
    {"IBM1390", Rule::kBeyondBmp},
    {"IBM1390", Rule::kSeveralCharacters},
    {"IBM1390", Rule::kLineFeed},
    {"IBM1390", Rule::kInvariant},
    {"IBM1390", Rule::kShiftAlone},
    {"IBM1390", Rule::kControlInPairs},
    {"IBM1399", Rule::kBeyondBmp},
    {"IBM1399", Rule::kSeveralCharacters},
    {"IBM1399", Rule::kLineFeed},
    {"IBM1399", Rule::kShiftAlone},
    {"IBM1399", Rule::kControlInPairs},
};

}  // namespace corvane::test
#endif

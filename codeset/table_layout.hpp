// Where things lie in a table file. All values are little-endian, all offsets from the file's
// start.
#ifndef CORVANE_CODESET_TABLE_LAYOUT_HPP
#define CORVANE_CODESET_TABLE_LAYOUT_HPP

#include <cstdint>

namespace corvane::kel {

inline constexpr std::uint32_t kDataAreaAt = 0;         // 32 bits: offset of the data area
inline constexpr std::uint32_t kMagicAt = 8;            // "ucv"
inline constexpr std::uint32_t kRangeBlockAt = 38;      // 16 bits: offset of GB18030's range block
inline constexpr std::uint32_t kTypeAt = 48;            // 16 bits: type code
inline constexpr std::uint32_t kEncodingSchemeAt = 50;  // 16 bits
inline constexpr std::uint32_t kValueBAt = 56;          // 16 bits
inline constexpr std::uint32_t kSubstitutionCharAt =
    58;  // 16 bits: what truly maps to the byte below
inline constexpr std::uint32_t kSubstitutionByteAt = 60;  // 8 bits
inline constexpr std::uint32_t kValueAAt = 62;            // 16 bits
inline constexpr std::uint32_t kBlockAt = 64;             // 16 bytes
inline constexpr std::uint32_t kPagesAt = 224;         // 256 x 16 bits, by a character's high byte
inline constexpr std::uint32_t kByteValuesAt = 736;    // 256 x 16 bits, by a code-set byte
inline constexpr std::uint32_t kByteClassesAt = 1248;  // 256 x 8 bits, by a code-set byte
inline constexpr std::uint32_t kClassesEnd = kByteClassesAt + 256;
inline constexpr std::uint32_t kLeastTableSize = 1760;  // a shorter file is an alias file

inline constexpr char kMagic[] = {'u', 'c', 'v'};
inline constexpr std::uint16_t kSchemeEbcdicSbcs = 0x1100;  // overrides the type with 8
inline constexpr std::uint32_t kScale = 4;                  // bytes that a row or page value counts

inline constexpr std::uint16_t kUnmapped = 0xFFFF;

inline constexpr std::uint8_t kClassSingle = 1;
inline constexpr std::uint8_t kClassLead = 2;
inline constexpr std::uint8_t kClassInvalid = 255;

// A prefix record of a multi-byte set: the bytes, then their number.
inline constexpr std::uint32_t kPrefixRecordSize = 16;
inline constexpr std::uint32_t kPrefixRoom = 14;

// GB18030's range block: two triples of 32-bit bases, then 16-bit words that the bases count.
inline constexpr std::uint32_t kRangeFromBasesAt = 0;
inline constexpr std::uint32_t kRangeToBasesAt = 16;
inline constexpr std::uint32_t kRangeWordsAt = 32;
inline constexpr std::uint32_t kRangeKeysShift = 9;  // one index word for 512 keys
inline constexpr std::uint16_t kRangeSingleByte = 0;
inline constexpr std::uint16_t kRangeListed = 1;
inline constexpr std::uint16_t kRangeLinear = 2;

// GB18030's linear code numbers.
inline constexpr std::uint32_t kFourByteBase = 24067;   // of 81 30 81 30
inline constexpr std::uint32_t kRangeKeyLimit = 65535;  // numbers below are looked up
inline constexpr std::uint32_t kPlanesFirst = 213067;   // of U+10000
inline constexpr std::uint32_t kPlanesLast = 1261642;   // of U+10FFFF
inline constexpr std::uint32_t kPlanesOffset = 147531;  // number - offset = character

}  // namespace corvane::kel
#endif

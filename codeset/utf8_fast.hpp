// UTF-8 to UCS-2 and back in blocks, for texts that leave room behind each block.
//
// A block is stored whole, and what it has too much is overwritten by what follows: the loops stop
// while enough input and room are left for that, and the rest of the text goes through the plain
// loop. So nothing is ever left behind the end of what was converted.
#ifndef CORVANE_CODESET_UTF8_FAST_HPP
#define CORVANE_CODESET_UTF8_FAST_HPP

#include <bit>
#include <cstdint>
#include <cstring>

#include "codeset/frame.hpp"
#include "codeset/interchange.hpp"

#if defined(__SSE2__)
#include <emmintrin.h>

namespace corvane::kel {

// Widens sixteen bytes, whatever they are, and says how many of them are ASCII before the first
// other.
[[nodiscard]] inline int widen_block(const std::uint8_t* from, std::uint16_t* to) noexcept
{
    __m128i bytes;
    std::memcpy(&bytes, from, sizeof bytes);
    const __m128i zero = _mm_setzero_si128();
    const __m128i units[2] = {_mm_unpacklo_epi8(bytes, zero), _mm_unpackhi_epi8(bytes, zero)};
    std::memcpy(to, units, sizeof units);
    return std::countr_zero(static_cast<unsigned>(_mm_movemask_epi8(bytes)) | 0x10000U);
}

// Decodes four sequences of three bytes if that is what stands there; says whether it did.
[[nodiscard]] inline bool decode_four(const std::uint8_t* from, std::uint16_t* to) noexcept
{
    const int leads = (from[0] ^ 0xE0) | (from[3] ^ 0xE0) | (from[6] ^ 0xE0) | (from[9] ^ 0xE0);
    if (leads > 0x0F) return false;
    for (std::ptrdiff_t i = 0; i < 4; ++i) {
        const std::uint8_t* const at = from + 3 * i;
        to[i] = static_cast<std::uint16_t>(at[0] << 12 | (at[1] & 0x3F) << 6 | (at[2] & 0x3F));
    }
    return true;
}

// Runs of ASCII of any length cost one block, so their ends are never guessed wrongly.
inline void convert_fast(Utf8Reader<4>& in, UnitWriter& out) noexcept
{
    constexpr std::ptrdiff_t kMostSequences = 8;
    // A block and the sequences behind it, and then as many units again as a block has.
    constexpr std::ptrdiff_t kInput = kBlock + 4 * kMostSequences + 4 * kBlock;
    constexpr std::ptrdiff_t kRoom = kBlock + 2 * kMostSequences + 2 * kBlock;
    while (in.end - in.at >= kInput && out.end - out.at >= kRoom) {
        const int ascii = widen_block(in.at, out.at);
        in.at += ascii;
        out.at += ascii;
        while (in.end - in.at >= kInput && out.end - out.at >= kRoom &&
               decode_four(in.at, out.at)) {
            in.at += 12;
            out.at += 4;
        }
        for (std::ptrdiff_t i = 0; i < kMostSequences && *in.at >= 0x80; ++i) {
            (void)out.put(static_cast<std::uint32_t>(in.next()));  // all of it is there, and fits
        }
    }
}

inline constexpr std::ptrdiff_t kUnits = 8;  // in a block of units beyond ASCII

// Narrows sixteen units, whatever they are, and says how many of them are ASCII before the first
// other.
[[nodiscard]] inline int narrow_block(const std::uint16_t* from, std::uint8_t* to) noexcept
{
    __m128i units[2];
    std::memcpy(units, from, sizeof units);
    const __m128i high_bits = _mm_set1_epi16(static_cast<short>(0xFF80));
    const __m128i zero = _mm_setzero_si128();
    const __m128i is_ascii =
        _mm_packs_epi16(_mm_cmpeq_epi16(_mm_and_si128(units[0], high_bits), zero),
                        _mm_cmpeq_epi16(_mm_and_si128(units[1], high_bits), zero));
    const __m128i bytes = _mm_packus_epi16(units[0], units[1]);
    std::memcpy(to, &bytes, sizeof bytes);
    return std::countr_one(static_cast<unsigned>(_mm_movemask_epi8(is_ascii)));
}

struct UnitBlock {
    bool has_surrogates;
    bool is_three_bytes;  // each unit makes three bytes
};

[[nodiscard]] inline UnitBlock look_at(const std::uint16_t* from) noexcept
{
    __m128i units;
    std::memcpy(&units, from, sizeof units);
    const auto any = [](__m128i mask) { return _mm_movemask_epi8(mask) != 0; };
    const __m128i high = _mm_and_si128(units, _mm_set1_epi16(static_cast<short>(0xF800)));
    return {any(_mm_cmpeq_epi16(high, _mm_set1_epi16(static_cast<short>(0xD800)))),
            !any(_mm_cmpeq_epi16(high, _mm_setzero_si128()))};
}

inline void store_four(std::uint8_t* to, std::uint32_t bytes) noexcept
{
    std::memcpy(to, &bytes, sizeof bytes);  // x86-64, so the lowest byte comes first
}

[[nodiscard]] inline std::uint32_t three_bytes(std::uint32_t unit) noexcept
{
    return 0x8080E0U | unit >> 12 | (unit & 0xFC0) << 2 | (unit & 0x3F) << 16;
}

// Any unit but a surrogate, without a jump.
inline void put_any(std::uint8_t*& to, std::uint32_t unit) noexcept
{
    const std::uint32_t two = 0x80C0U | unit >> 6 | (unit & 0x3F) << 8;
    const std::uint32_t more = unit < 0x800 ? two : three_bytes(unit);
    store_four(to, unit < 0x80 ? unit : more);
    to += 1 + (unit >= 0x80 ? 1 : 0) + (unit >= 0x800 ? 1 : 0);
}

// A block of units of which the first needs three bytes, as in East Asian text; or one character.
inline void convert_units(PairReader& in, Utf8Writer& out) noexcept
{
    const UnitBlock block = look_at(in.at);
    if (block.has_surrogates) {
        (void)out.put(static_cast<std::uint32_t>(in.next()));
        return;
    }
    if (block.is_three_bytes) {
        for (std::ptrdiff_t i = 0; i < kUnits; ++i)
            store_four(out.at + 3 * i, three_bytes(in.at[i]));
        out.at += 3 * kUnits;
    } else {
        for (std::ptrdiff_t i = 0; i < kUnits; ++i) put_any(out.at, in.at[i]);
    }
    in.at += kUnits;
}

inline void convert_fast(PairReader& in, Utf8Writer& out) noexcept
{
    // Behind a block at least as many units are left as a block has, and room for all of them. Even
    // if all are halves of pairs, each two of them make a byte, and overwrite what the block has
    // too much.
    constexpr std::ptrdiff_t kInput = kBlock + 2 * kBlock + 2;
    constexpr std::ptrdiff_t kRoom = 4 * kInput;
    while (in.end - in.at >= kInput && out.end - out.at >= kRoom) {
        if (*in.at >= 0x800) {
            convert_units(in, out);
        } else if (*in.at >= 0x80) {
            put_any(out.at, *in.at++);
        } else {
            const int ascii = narrow_block(in.at, out.at);
            in.at += ascii;
            out.at += ascii;
        }
    }
}

}  // namespace corvane::kel
#endif
#endif

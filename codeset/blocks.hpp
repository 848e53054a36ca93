// Work on bytes and 16-bit units in blocks of sixteen: runs of ASCII, and what a block has
// unmapped.
#ifndef CORVANE_CODESET_BLOCKS_HPP
#define CORVANE_CODESET_BLOCKS_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace corvane::kel {

inline constexpr std::ptrdiff_t kBlock = 16;

#if defined(__SSE2__)

// Copies one block if all of it is ASCII; says whether it did.
[[nodiscard]] inline bool copy_ascii_block(const std::uint8_t* from, std::uint8_t* to) noexcept
{
    __m128i bytes;
    std::memcpy(&bytes, from, sizeof bytes);
    if (_mm_movemask_epi8(bytes) != 0) return false;
    std::memcpy(to, &bytes, sizeof bytes);
    return true;
}

[[nodiscard]] inline bool copy_ascii_block(const std::uint8_t* from, std::uint16_t* to) noexcept
{
    __m128i bytes;
    std::memcpy(&bytes, from, sizeof bytes);
    if (_mm_movemask_epi8(bytes) != 0) return false;
    const __m128i zero = _mm_setzero_si128();
    const __m128i units[2] = {_mm_unpacklo_epi8(bytes, zero), _mm_unpackhi_epi8(bytes, zero)};
    std::memcpy(to, units, sizeof units);
    return true;
}

[[nodiscard]] inline bool copy_ascii_block(const std::uint16_t* from, std::uint8_t* to) noexcept
{
    __m128i units[2];
    std::memcpy(units, from, sizeof units);
    const __m128i high_bits =
        _mm_and_si128(_mm_or_si128(units[0], units[1]), _mm_set1_epi16(static_cast<short>(0xFF80)));
    if (_mm_movemask_epi8(_mm_cmpeq_epi8(high_bits, _mm_setzero_si128())) != 0xFFFF) return false;
    const __m128i bytes = _mm_packus_epi16(units[0], units[1]);
    std::memcpy(to, &bytes, sizeof bytes);
    return true;
}

#else

template <class From, class To>
[[nodiscard]] bool copy_ascii_block(const From* from, To* to) noexcept
{
    unsigned bits = 0;
    for (std::ptrdiff_t i = 0; i < kBlock; ++i) bits |= from[i];
    if (bits >= 0x80) return false;
    for (std::ptrdiff_t i = 0; i < kBlock; ++i) to[i] = static_cast<To>(from[i]);
    return true;
}

#endif

// Puts `replacement` in the place of every 0xFFFF of a block of units.
inline void replace_unmapped(std::uint16_t* block, std::uint16_t replacement) noexcept
{
#if defined(__SSE2__)
    __m128i units[2];
    std::memcpy(units, block, sizeof units);
    for (__m128i& eight : units) {
        const __m128i is_unmapped = _mm_cmpeq_epi16(eight, _mm_set1_epi16(-1));
        const __m128i other = _mm_set1_epi16(static_cast<short>(~replacement));
        eight = _mm_andnot_si128(_mm_and_si128(is_unmapped, other), eight);
    }
    std::memcpy(block, units, sizeof units);
#else
    for (std::ptrdiff_t i = 0; i < kBlock; ++i) {
        if (block[i] == 0xFFFF) block[i] = replacement;
    }
#endif
}

// Copies ASCII until something else, the end of the source or of the destination's room.
template <class From, class To>
inline void copy_ascii(const From*& from, const From* from_end, To*& to, To* to_end) noexcept
{
    while (from_end - from >= kBlock && to_end - to >= kBlock && copy_ascii_block(from, to)) {
        from += kBlock;
        to += kBlock;
    }
    while (from != from_end && to != to_end && *from < 0x80) *to++ = static_cast<To>(*from++);
}

}  // namespace corvane::kel
#endif

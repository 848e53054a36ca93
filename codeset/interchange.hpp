// Readers and writers of the interchange forms, UTF-8 and UCS-2, as the frame wants them.
#ifndef CORVANE_CODESET_INTERCHANGE_HPP
#define CORVANE_CODESET_INTERCHANGE_HPP

#include <cstdint>

#include "codeset/frame.hpp"
#include "codeset/kel_cs.h"

namespace corvane::kel {

[[nodiscard]] inline bool is_surrogate(std::uint32_t value) noexcept
{
    return (value & 0xFFFFF800U) == 0xD800;
}
[[nodiscard]] inline bool is_high_surrogate(std::uint32_t unit) noexcept
{
    return (unit & 0xFC00U) == 0xD800;
}
[[nodiscard]] inline bool is_low_surrogate(std::uint32_t unit) noexcept
{
    return (unit & 0xFC00U) == 0xDC00;
}

// Units one by one: a surrogate is a character like any other, and few sets have it.
struct UnitReader {
    static constexpr bool kAscii = true;
    static constexpr bool kOneToOne = true;
    const std::uint16_t* at;
    const std::uint16_t* end;

    UnitReader(const kel_cs_t&, const std::uint16_t* from, const std::uint16_t* to) noexcept
        : at(from), end(to)
    {
    }
    [[nodiscard]] std::int32_t next() noexcept { return *at++; }
};

// Units with their surrogate pairs. A high surrogate swallows the unit after it even when that is
// not its partner; this is meant.
struct PairReader : UnitReader {
    static constexpr bool kOneToOne = false;
    using UnitReader::UnitReader;
    [[nodiscard]] std::int32_t next() noexcept
    {
        const std::uint32_t unit = *at;
        if (!is_surrogate(unit)) {
            ++at;
            return static_cast<std::int32_t>(unit);
        }
        if (is_low_surrogate(unit)) {
            ++at;
            return kReplacement;
        }
        if (end - at < 2) return kCutOff;
        const std::uint32_t partner = at[1];
        at += 2;
        if (!is_low_surrogate(partner)) return kReplacement;
        return static_cast<std::int32_t>(((unit & 0x3FF) << 10 | (partner & 0x3FF)) + 0x10000);
    }
};

// UTF-8. Continuation bytes are not checked, so every lead byte takes its number of bytes, whatever
// they are. With three bytes at most, 0xF0-0xFF count as three-byte leads, which misreads a
// four-byte sequence; the table-driven sets are meant to do so.
template <int kMostBytes>
struct Utf8Reader {
    static_assert(kMostBytes == 3 || kMostBytes == 4);
    static constexpr bool kAscii = true;
    static constexpr bool kOneToOne = false;
    const std::uint8_t* at;
    const std::uint8_t* end;

    Utf8Reader(const kel_cs_t&, const std::uint8_t* from, const std::uint8_t* to) noexcept
        : at(from), end(to)
    {
    }

    [[nodiscard]] std::int32_t next() noexcept
    {
        const std::uint32_t lead = *at;
        if (lead >= 0xE0 && (kMostBytes == 3 || lead < 0xF0)) return three();
        if (lead < 0x80) {
            ++at;
            return static_cast<std::int32_t>(lead);
        }
        if (lead >= 0xC0 && lead < 0xE0) return two();
        if (kMostBytes == 4 && lead >= 0xF0 && lead < 0xF8) return four();
        ++at;
        return kReplacement;
    }

private:
    [[nodiscard]] std::int32_t two() noexcept
    {
        if (end - at < 2) return kCutOff;
        const int value = (at[0] & 0x1F) << 6 | (at[1] & 0x3F);
        at += 2;
        return value;
    }
    [[nodiscard]] std::int32_t three() noexcept
    {
        if (end - at < 3) return kCutOff;
        const int value = (at[0] & 0x0F) << 12 | (at[1] & 0x3F) << 6 | (at[2] & 0x3F);
        at += 3;
        return value;
    }
    [[nodiscard]] std::int32_t four() noexcept
    {
        if (end - at < 4) return kCutOff;
        const int value =
            (at[0] & 0x07) << 18 | (at[1] & 0x3F) << 12 | (at[2] & 0x3F) << 6 | (at[3] & 0x3F);
        at += 4;
        return value;
    }
};

// Units; what lies above 0xFFFF becomes a surrogate pair.
struct UnitWriter {
    static constexpr bool kAscii = true;
    static constexpr bool kOneToOne = true;
    std::uint16_t* at;
    std::uint16_t* end;

    UnitWriter(const kel_cs_t&, std::uint16_t* from, std::uint16_t* to) noexcept : at(from), end(to)
    {
    }
    [[nodiscard]] bool put(std::uint32_t character) noexcept
    {
        if (character <= 0xFFFF) {
            *at++ = static_cast<std::uint16_t>(character);
            return true;
        }
        if (end - at < 2) return false;
        *at++ = static_cast<std::uint16_t>(0xD800 | (character - 0x10000) >> 10);
        *at++ = static_cast<std::uint16_t>(0xDC00 | (character & 0x3FF));
        return true;
    }
};

struct Utf8Writer {
    static constexpr bool kAscii = true;
    static constexpr bool kOneToOne = false;
    std::uint8_t* at;
    std::uint8_t* end;

    Utf8Writer(const kel_cs_t&, std::uint8_t* from, std::uint8_t* to) noexcept : at(from), end(to)
    {
    }
    [[nodiscard]] bool put(std::uint32_t character) noexcept
    {
        if (character < 0x80) {
            *at++ = static_cast<std::uint8_t>(character);
            return true;
        }
        const auto trail = [character](int shift) {
            return static_cast<std::uint8_t>(0x80 | (character >> shift & 0x3F));
        };
        if (character < 0x800) {
            if (end - at < 2) return false;
            at[0] = static_cast<std::uint8_t>(0xC0 | character >> 6);
            at[1] = trail(0);
            at += 2;
        } else if (character < 0x10000) {
            if (end - at < 3) return false;
            at[0] = static_cast<std::uint8_t>(0xE0 | character >> 12);
            at[1] = trail(6);
            at[2] = trail(0);
            at += 3;
        } else {
            if (end - at < 4) return false;
            at[0] = static_cast<std::uint8_t>(0xF0 | character >> 18);
            at[1] = trail(12);
            at[2] = trail(6);
            at[3] = trail(0);
            at += 4;
        }
        return true;
    }
};

}  // namespace corvane::kel
#endif

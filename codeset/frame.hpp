// The frame that all converters share: a reader yields characters, a writer takes them, and both
// stop at character boundaries.
//
// A reader has `at` and `end` and `next()`, which consumes one character and returns it, or kCutOff
// (having consumed nothing) or kNothing (a shift byte was consumed). A writer has `at` and `end`
// and `put()`, which writes a character whole or refuses it. `kAscii` says that values below 0x80
// pass unchanged.
#ifndef CORVANE_CODESET_FRAME_HPP
#define CORVANE_CODESET_FRAME_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "codeset/blocks.hpp"
#include "codeset/kel_convert.h"
#include "codeset/kel_cs.h"

namespace corvane::kel {

inline constexpr std::int32_t kCutOff = -1;   // the input ends inside this sequence
inline constexpr std::int32_t kNothing = -2;  // a shift byte: no character
inline constexpr std::uint8_t kReplacement = '?';
inline constexpr std::uint8_t kEbcdicReplacement = 0x6F;  // the question mark there

// One of two values, without a jump: in mixed text every tenth guess would be wrong.
[[nodiscard]] inline std::uint32_t choose(bool first, std::uint32_t a, std::uint32_t b) noexcept
{
    const std::uint32_t mask = 0U - std::uint32_t{first};
    return (a & mask) | (b & ~mask);
}

// Converts as much as a pair can do faster than the loop below. Pairs that can, overload it.
template <class Reader, class Writer>
inline void convert_fast(Reader&, Writer&) noexcept
{
}

// Converts kBlock characters one to one.
template <class Reader, class Writer>
inline void convert_block(Reader& in, Writer& out) noexcept
{
    if constexpr (requires { in.unit(); }) {
        for (std::ptrdiff_t i = 0; i < kBlock; ++i) out.at[i] = in.unit();
        replace_unmapped(out.at, kReplacement);
        out.at += kBlock;
    } else {
        for (std::ptrdiff_t i = 0; i < kBlock; ++i) {
            (void)out.put(static_cast<std::uint32_t>(in.next()));
        }
    }
}

// Converts a set whose every byte is one character of the BMP, in either direction.
template <class Reader, class Writer>
[[nodiscard]] inline std::int32_t convert_one_to_one(Reader& in, Writer& out) noexcept
{
    std::ptrdiff_t left = std::min(in.end - in.at, out.end - out.at);
    while (left != 0) {
        if constexpr (Reader::kAscii && Writer::kAscii) {
            if (left >= kBlock && copy_ascii_block(in.at, out.at)) {
                in.at += kBlock;
                out.at += kBlock;
                left -= kBlock;
                continue;
            }
        }
        if (left < kBlock) break;
        convert_block(in, out);
        left -= kBlock;
    }
    for (; left != 0; --left) (void)out.put(static_cast<std::uint32_t>(in.next()));
    return in.at == in.end ? KEL_DONE : KEL_FULL;
}

template <class Reader, class Writer>
[[nodiscard]] inline std::int32_t convert(Reader& in, Writer& out) noexcept
{
    if constexpr (Reader::kOneToOne && Writer::kOneToOne) return convert_one_to_one(in, out);
    convert_fast(in, out);
    while (in.at != in.end) {
        if (out.at == out.end) return KEL_FULL;
        if constexpr (Reader::kAscii && Writer::kAscii) {
            if (*in.at < 0x80) {
                copy_ascii(in.at, in.end, out.at, out.end);
                continue;
            }
        }
        const auto* const mark = in.at;
        const std::int32_t character = in.next();
        if (character < 0) {
            if (character == kCutOff) return KEL_INCOMPLETE;
            continue;
        }
        if (!out.put(static_cast<std::uint32_t>(character))) {
            in.at = mark;
            return KEL_FULL;
        }
    }
    return KEL_DONE;
}

// The public text types are char and units; inside, bytes are unsigned.
[[nodiscard]] inline const std::uint8_t* inner(const char* at) noexcept
{
    return reinterpret_cast<const std::uint8_t*>(at);
}
[[nodiscard]] inline std::uint8_t* inner(char* at) noexcept
{
    return reinterpret_cast<std::uint8_t*>(at);
}
[[nodiscard]] inline const std::uint16_t* inner(const std::uint16_t* at) noexcept
{
    return at;
}
[[nodiscard]] inline std::uint16_t* inner(std::uint16_t* at) noexcept
{
    return at;
}

// Runs a converter over the caller's pointers, which it advances.
template <class Reader, class Writer, class From, class To>
[[nodiscard]] inline std::int32_t run(kel_cs_t* cs, const From** source, const From* source_end,
                                      To** destination, To* destination_end) noexcept
{
    Reader in(*cs, inner(*source), inner(source_end));
    Writer out(*cs, inner(*destination), inner(destination_end));
    const auto* const source_start = in.at;
    auto* const destination_start = out.at;
    const std::int32_t result = convert(in, out);
    *source += in.at - source_start;
    *destination += out.at - destination_start;
    return result;
}

template <class From>
[[nodiscard]] inline bool is_flush(const From* const* source) noexcept
{
    return source == nullptr || *source == nullptr;
}

// A member that converts from the code set.
template <class Reader, class Writer, class From, class To>
[[nodiscard]] inline std::int32_t run_to(kel_cs_t* cs, const From** source, const From* source_end,
                                         To** destination, To* destination_end) noexcept
{
    if (is_flush(source)) {
        cs->to_state = 0;
        return KEL_DONE;
    }
    return run<Reader, Writer>(cs, source, source_end, destination, destination_end);
}

// A member that converts to the code set, if that has nothing to close.
template <class Reader, class Writer, class From, class To>
[[nodiscard]] inline std::int32_t run_from(kel_cs_t* cs, const From** source,
                                           const From* source_end, To** destination,
                                           To* destination_end) noexcept
{
    if (is_flush(source)) {
        cs->from_state = 0;
        return KEL_DONE;
    }
    return run<Reader, Writer>(cs, source, source_end, destination, destination_end);
}

}  // namespace corvane::kel
#endif

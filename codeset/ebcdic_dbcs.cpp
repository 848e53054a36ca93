// The EBCDIC double-byte sets, whose text shifts between one and two bytes a character.
#include <cstdint>

#include "codeset/frame.hpp"
#include "codeset/interchange.hpp"
#include "codeset/kel_family.h"
#include "codeset/table_image.hpp"

namespace {

using namespace corvane::kel;

constexpr std::uint8_t kShiftOut = 0x0E;  // two bytes a character from here on
constexpr std::uint8_t kShiftIn = 0x0F;   // one byte again

// The mode lives in the code-set object, so that a stream may come in pieces.
struct EbcdicDbcsReader {
    static constexpr bool kAscii = false;
    static constexpr bool kOneToOne = false;
    const std::uint8_t* at;
    const std::uint8_t* end;

    EbcdicDbcsReader(kel_cs_t& cs, const std::uint8_t* from, const std::uint8_t* to) noexcept
        : at(from), end(to), table_(cs), mode_(cs.to_state)
    {
    }
    [[nodiscard]] std::int32_t next() noexcept
    {
        return mode_ != 0 ? next_double() : next_single();
    }

private:
    [[nodiscard]] std::int32_t next_single() noexcept
    {
        const std::uint8_t byte = *at++;
        if (byte == kShiftOut) {
            mode_ = 1;
            return kNothing;
        }
        if (invar_eb_to_ucs[byte] != 0) return def_eb_to_ucs[byte];
        const std::uint16_t character = table_.entry(table_.byte_value(0), byte);
        return character != kUnmapped ? character : kReplacement;
    }

    [[nodiscard]] std::int32_t next_double() noexcept
    {
        const std::uint8_t byte = *at;
        if (byte >= 0x40 && byte != 0xFF) {
            if (end - at < 2) return kCutOff;
            const std::uint16_t character = table_.entry(table_.byte_value(byte), at[1]);
            at += 2;
            return character != kUnmapped ? character : kReplacement;
        }
        ++at;
        if (byte != kShiftIn) return def_eb_to_ucs[byte];
        mode_ = 0;
        return kNothing;
    }

    TableImage table_;
    std::uint8_t& mode_;
};

struct EbcdicDbcsWriter {
    static constexpr bool kAscii = false;
    static constexpr bool kOneToOne = false;
    std::uint8_t* at;
    std::uint8_t* end;

    EbcdicDbcsWriter(kel_cs_t& cs, std::uint8_t* from, std::uint8_t* to) noexcept
        : at(from), end(to), table_(cs), mode_(cs.from_state)
    {
    }
    [[nodiscard]] bool put(std::uint32_t character) noexcept
    {
        if (character < 0x100 && invar_ucs_to_eb[character] != 0) return put_invariant(character);
        std::uint16_t code = table_.entry(table_.page_value(character), character & 0xFF);
        if (code == kUnmapped) code = kEbcdicReplacement;
        return code < 0x100 ? put_single(static_cast<std::uint8_t>(code)) : put_double(code);
    }

private:
    // A shift-out in the text itself is tracked like one of ours; this is meant.
    [[nodiscard]] bool put_invariant(std::uint32_t character) noexcept
    {
        if (!put_single(def_ucs_to_eb[character])) return false;
        if (character == kShiftOut) mode_ = 1;
        return true;
    }

    [[nodiscard]] bool put_single(std::uint8_t byte) noexcept
    {
        if (mode_ != 0) {
            if (end - at < 2) return false;
            *at++ = kShiftIn;
            mode_ = 0;
        }
        *at++ = byte;
        return true;
    }

    [[nodiscard]] bool put_double(std::uint16_t code) noexcept
    {
        if (end - at < (mode_ != 0 ? 2 : 3)) return false;
        if (mode_ == 0) {
            *at++ = kShiftOut;
            mode_ = 1;
        }
        *at++ = static_cast<std::uint8_t>(code >> 8);
        *at++ = static_cast<std::uint8_t>(code);
        return true;
    }

    TableImage table_;
    std::uint8_t& mode_;
};

// Closes an open double-byte run.
[[nodiscard]] std::int32_t close_run(kel_cs_t& cs, char** destination,
                                     const char* destination_end) noexcept
{
    if (cs.from_state == 0) return KEL_DONE;
    if (*destination == destination_end) return KEL_FULL;
    *(*destination)++ = static_cast<char>(kShiftIn);
    cs.from_state = 0;
    return KEL_DONE;
}

}  // namespace

int32_t ebcdic_dbcs_to_ucs2_r(kel_cs_t* cs, const char** source, const char* source_end,
                              uint16_t** destination, uint16_t* destination_end) noexcept
{
    return run_to<EbcdicDbcsReader, UnitWriter>(cs, source, source_end, destination,
                                                destination_end);
}

int32_t ebcdic_dbcs_from_ucs2_r(kel_cs_t* cs, const uint16_t** source, const uint16_t* source_end,
                                char** destination, char* destination_end) noexcept
{
    if (is_flush(source)) return close_run(*cs, destination, destination_end);
    return run<UnitReader, EbcdicDbcsWriter>(cs, source, source_end, destination, destination_end);
}

int32_t ebcdic_dbcs_to_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                              char** destination, char* destination_end) noexcept
{
    return run_to<EbcdicDbcsReader, Utf8Writer>(cs, source, source_end, destination,
                                                destination_end);
}

int32_t ebcdic_dbcs_from_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                                char** destination, char* destination_end) noexcept
{
    if (is_flush(source)) return close_run(*cs, destination, destination_end);
    return run<Utf8Reader<3>, EbcdicDbcsWriter>(cs, source, source_end, destination,
                                                destination_end);
}

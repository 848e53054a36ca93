// The single-byte sets whose lower half is ASCII.
#include <cstdint>

#include "codeset/frame.hpp"
#include "codeset/interchange.hpp"
#include "codeset/kel_family.h"
#include "codeset/table_image.hpp"

namespace {

using namespace corvane::kel;

struct SbcsReader {
    static constexpr bool kAscii = true;
    static constexpr bool kOneToOne = true;
    const std::uint8_t* at;
    const std::uint8_t* end;

    SbcsReader(const kel_cs_t& cs, const std::uint8_t* from, const std::uint8_t* to) noexcept
        : at(from), end(to), table_(cs)
    {
    }
    [[nodiscard]] std::int32_t next() noexcept
    {
        const std::uint16_t character = unit();
        return character != kUnmapped ? character : kReplacement;
    }
    // The next byte's unit, kUnmapped if it has none.
    [[nodiscard]] std::uint16_t unit() noexcept
    {
        const std::uint8_t byte = *at++;
        const std::uint16_t tabled = table_.byte_value(byte);
        return static_cast<std::uint16_t>(choose(byte < 0x80, byte, tabled));
    }

private:
    TableImage table_;
};

struct SbcsWriter {
    static constexpr bool kAscii = true;
    static constexpr bool kOneToOne = true;
    std::uint8_t* at;
    std::uint8_t* end;

    SbcsWriter(const kel_cs_t& cs, std::uint8_t* from, std::uint8_t* to) noexcept
        : at(from), end(to), pages_(cs)
    {
    }
    [[nodiscard]] bool put(std::uint32_t character) noexcept
    {
        const std::uint8_t paged = pages_.byte_of(character, kReplacement);
        *at++ = static_cast<std::uint8_t>(choose(character < 0x80, character, paged));
        return true;
    }

private:
    BytePages pages_;
};

}  // namespace

int32_t ascii_sbcs_to_ucs2_r(kel_cs_t* cs, const char** source, const char* source_end,
                             uint16_t** destination, uint16_t* destination_end) noexcept
{
    return run_to<SbcsReader, UnitWriter>(cs, source, source_end, destination, destination_end);
}

int32_t ascii_sbcs_from_ucs2_r(kel_cs_t* cs, const uint16_t** source, const uint16_t* source_end,
                               char** destination, char* destination_end) noexcept
{
    return run_from<UnitReader, SbcsWriter>(cs, source, source_end, destination, destination_end);
}

int32_t ascii_sbcs_to_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                             char** destination, char* destination_end) noexcept
{
    return run_to<SbcsReader, Utf8Writer>(cs, source, source_end, destination, destination_end);
}

int32_t ascii_sbcs_from_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                               char** destination, char* destination_end) noexcept
{
    return run_from<Utf8Reader<3>, SbcsWriter>(cs, source, source_end, destination,
                                               destination_end);
}

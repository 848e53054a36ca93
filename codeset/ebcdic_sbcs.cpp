// The EBCDIC single-byte sets: the invariant characters are built in, the rest comes from the
// table.
#include <cstdint>

#include "codeset/ebcdic_tables.hpp"
#include "codeset/frame.hpp"
#include "codeset/interchange.hpp"
#include "codeset/kel_family.h"
#include "codeset/table_image.hpp"

namespace {

using namespace corvane::kel;

struct EbcdicSbcsReader {
    static constexpr bool kAscii = false;
    static constexpr bool kOneToOne = true;
    const std::uint8_t* at;
    const std::uint8_t* end;

    EbcdicSbcsReader(const kel_cs_t& cs, const std::uint8_t* from, const std::uint8_t* to) noexcept
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
        const std::uint32_t built_in = kInvariantUnits[byte];
        const std::uint32_t tabled = table_.byte_value(byte);
        return static_cast<std::uint16_t>((built_in & 0xFFFF) | (tabled & built_in >> 16));
    }

private:
    TableImage table_;
};

struct EbcdicSbcsWriter {
    static constexpr bool kAscii = false;
    static constexpr bool kOneToOne = true;
    std::uint8_t* at;
    std::uint8_t* end;

    EbcdicSbcsWriter(const kel_cs_t& cs, std::uint8_t* from, std::uint8_t* to) noexcept
        : at(from), end(to), pages_(cs)
    {
    }
    [[nodiscard]] bool put(std::uint32_t character) noexcept
    {
        const bool is_invariant = character < 0x100 && invar_ucs_to_eb[character] != 0;
        *at++ =
            is_invariant ? def_ucs_to_eb[character] : pages_.byte_of(character, kEbcdicReplacement);
        return true;
    }

private:
    BytePages pages_;
};

}  // namespace

int32_t ebcdic_sbcs_to_ucs2_r(kel_cs_t* cs, const char** source, const char* source_end,
                              uint16_t** destination, uint16_t* destination_end) noexcept
{
    return run_to<EbcdicSbcsReader, UnitWriter>(cs, source, source_end, destination,
                                                destination_end);
}

int32_t ebcdic_sbcs_from_ucs2_r(kel_cs_t* cs, const uint16_t** source, const uint16_t* source_end,
                                char** destination, char* destination_end) noexcept
{
    return run_from<UnitReader, EbcdicSbcsWriter>(cs, source, source_end, destination,
                                                  destination_end);
}

int32_t ebcdic_sbcs_to_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                              char** destination, char* destination_end) noexcept
{
    return run_to<EbcdicSbcsReader, Utf8Writer>(cs, source, source_end, destination,
                                                destination_end);
}

int32_t ebcdic_sbcs_from_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                                char** destination, char* destination_end) noexcept
{
    return run_from<Utf8Reader<3>, EbcdicSbcsWriter>(cs, source, source_end, destination,
                                                     destination_end);
}

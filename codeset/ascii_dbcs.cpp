// The double-byte sets whose lower half is ASCII.
#include <cstdint>

#include "codeset/frame.hpp"
#include "codeset/interchange.hpp"
#include "codeset/kel_family.h"
#include "codeset/table_image.hpp"

namespace {

using namespace corvane::kel;

struct DbcsReader {
    static constexpr bool kAscii = true;
    static constexpr bool kOneToOne = false;
    const std::uint8_t* at;
    const std::uint8_t* end;

    DbcsReader(const kel_cs_t& cs, const std::uint8_t* from, const std::uint8_t* to) noexcept
        : at(from), end(to), table_(cs)
    {
    }
    // The second byte is taken as it is: a row has an entry for each.
    [[nodiscard]] std::int32_t next() noexcept
    {
        const std::uint8_t byte = *at;
        if (byte < 0x80) {
            ++at;
            return byte;
        }
        std::uint16_t character = kUnmapped;
        const std::uint8_t byte_class = table_.byte_class(byte);
        if (byte_class == kClassLead) {
            if (end - at < 2) return kCutOff;
            character = table_.entry(table_.byte_value(byte), at[1]);
            at += 2;
        } else {
            if (byte_class == kClassSingle) character = table_.entry(table_.byte_value(0), byte);
            ++at;
        }
        return character != kUnmapped ? character : kReplacement;
    }

private:
    TableImage table_;
};

struct DbcsWriter {
    static constexpr bool kAscii = true;
    static constexpr bool kOneToOne = false;
    std::uint8_t* at;
    std::uint8_t* end;

    DbcsWriter(const kel_cs_t& cs, std::uint8_t* from, std::uint8_t* to) noexcept
        : at(from), end(to), table_(cs)
    {
    }
    [[nodiscard]] bool put(std::uint32_t character) noexcept
    {
        if (character < 0x80) {
            *at++ = static_cast<std::uint8_t>(character);
            return true;
        }
        std::uint16_t code = table_.entry(table_.page_value(character), character & 0xFF);
        if (code == kUnmapped) code = kReplacement;
        if (code > 0xFF) {
            if (end - at < 2) return false;
            *at++ = static_cast<std::uint8_t>(code >> 8);
        }
        *at++ = static_cast<std::uint8_t>(code);
        return true;
    }

private:
    TableImage table_;
};

}  // namespace

int32_t ascii_dbcs_to_ucs2_r(kel_cs_t* cs, const char** source, const char* source_end,
                             uint16_t** destination, uint16_t* destination_end) noexcept
{
    return run_to<DbcsReader, UnitWriter>(cs, source, source_end, destination, destination_end);
}

int32_t ascii_dbcs_from_ucs2_r(kel_cs_t* cs, const uint16_t** source, const uint16_t* source_end,
                               char** destination, char* destination_end) noexcept
{
    return run_from<UnitReader, DbcsWriter>(cs, source, source_end, destination, destination_end);
}

int32_t ascii_dbcs_to_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                             char** destination, char* destination_end) noexcept
{
    return run_to<DbcsReader, Utf8Writer>(cs, source, source_end, destination, destination_end);
}

int32_t ascii_dbcs_from_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                               char** destination, char* destination_end) noexcept
{
    return run_from<Utf8Reader<3>, DbcsWriter>(cs, source, source_end, destination,
                                               destination_end);
}

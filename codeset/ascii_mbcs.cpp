// The multi-byte sets whose lower half is ASCII: the first byte tells a sequence's length.
#include <cstdint>

#include "codeset/frame.hpp"
#include "codeset/interchange.hpp"
#include "codeset/kel_family.h"
#include "codeset/table_image.hpp"

namespace {

using namespace corvane::kel;

struct MbcsReader {
    static constexpr bool kAscii = true;
    static constexpr bool kOneToOne = false;
    const std::uint8_t* at;
    const std::uint8_t* end;

    MbcsReader(const kel_cs_t& cs, const std::uint8_t* from, const std::uint8_t* to) noexcept
        : at(from), end(to), table_(cs)
    {
    }
    [[nodiscard]] std::int32_t next() noexcept
    {
        const std::uint8_t byte = *at;
        if (byte < 0x80) {
            ++at;
            return byte;
        }
        const std::uint8_t length = table_.byte_class(byte);
        if (length == kClassInvalid || length == 0) {  // a length of 0 would never end
            ++at;
            return kReplacement;
        }
        if (end - at < length) return kCutOff;
        std::uint16_t value = table_.byte_value(byte);
        if (length == 2) {
            // By far the most frequent length: the next sequence's place must not wait for the
            // class.
            value = step(value, at[1]);
            at += 2;
        } else {
            for (int i = 1; i < length; ++i) value = step(value, at[i]);
            at += length;
        }
        return value != kUnmapped ? value : kReplacement;
    }

private:
    // One step down from the node at `value`: 16-bit count, 16-bit lowest byte, the entries.
    [[nodiscard]] std::uint16_t step(std::uint16_t value, std::uint8_t byte) const noexcept
    {
        if (value == kUnmapped) return kUnmapped;
        const std::uint8_t* const node = table_.data_at<4>(kScale * value);
        if (node == nullptr) return kUnmapped;
        const std::uint32_t count = load_le16(node);
        const std::uint32_t lowest = load_le16(node + 2);
        const std::uint32_t offset = byte - lowest;  // wraps to a large one below the lowest
        return offset < count ? table_.entry(value, 2 + offset) : kUnmapped;
    }

    TableImage table_;
};

struct MbcsWriter {
    static constexpr bool kAscii = true;
    static constexpr bool kOneToOne = false;
    std::uint8_t* at;
    std::uint8_t* end;

    MbcsWriter(const kel_cs_t& cs, std::uint8_t* from, std::uint8_t* to) noexcept
        : at(from), end(to), table_(cs)
    {
    }
    [[nodiscard]] bool put(std::uint32_t character) noexcept
    {
        if (character < 0x80) {
            *at++ = static_cast<std::uint8_t>(character);
            return true;
        }
        const std::uint8_t* const entry =
            table_.data_at<4>(kScale * table_.page_value(character) + 4 * (character & 0xFF));
        const std::uint16_t code = entry != nullptr ? load_le16(entry + 2) : kUnmapped;
        if (code > 0xFF) return put_long(entry != nullptr ? load_le16(entry) : kUnmapped, code);
        *at++ = static_cast<std::uint8_t>(code);
        return true;
    }

private:
    // Writes the bytes of a prefix record and then the code's two.
    [[nodiscard]] bool put_long(std::uint16_t prefix, std::uint16_t code) noexcept
    {
        const std::uint8_t* const record =
            prefix != kUnmapped ? table_.data_at<kPrefixRecordSize>(kPrefixRecordSize * prefix)
                                : nullptr;
        const std::uint16_t length =
            record != nullptr ? load_le16(record + kPrefixRoom) : kUnmapped;
        if (length > kPrefixRoom) {
            *at++ = kReplacement;
            return true;
        }
        if (end - at < length + 2) return false;
        for (std::uint16_t i = 0; i < length; ++i) *at++ = record[i];
        *at++ = static_cast<std::uint8_t>(code >> 8);
        *at++ = static_cast<std::uint8_t>(code);
        return true;
    }

    TableImage table_;
};

}  // namespace

int32_t ascii_mbcs_to_ucs2_r(kel_cs_t* cs, const char** source, const char* source_end,
                             uint16_t** destination, uint16_t* destination_end) noexcept
{
    return run_to<MbcsReader, UnitWriter>(cs, source, source_end, destination, destination_end);
}

int32_t ascii_mbcs_from_ucs2_r(kel_cs_t* cs, const uint16_t** source, const uint16_t* source_end,
                               char** destination, char* destination_end) noexcept
{
    return run_from<UnitReader, MbcsWriter>(cs, source, source_end, destination, destination_end);
}

int32_t ascii_mbcs_to_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                             char** destination, char* destination_end) noexcept
{
    return run_to<MbcsReader, Utf8Writer>(cs, source, source_end, destination, destination_end);
}

int32_t ascii_mbcs_from_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                               char** destination, char* destination_end) noexcept
{
    return run_from<Utf8Reader<3>, MbcsWriter>(cs, source, source_end, destination,
                                               destination_end);
}

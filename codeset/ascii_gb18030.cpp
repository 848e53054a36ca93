// GB18030: two-byte codes and the four-byte codes of the BMP by a range block, the rest computed.
#include <cstdint>

#include "codeset/frame.hpp"
#include "codeset/interchange.hpp"
#include "codeset/kel_family.h"
#include "codeset/table_image.hpp"

namespace {

using namespace corvane::kel;

// The two directions of the range block; each numbers its characters and codes linearly.
enum class Direction { kFromUcs2, kToUcs2 };

struct RangeEntry {
    std::uint16_t first;
    std::uint16_t last;
    std::uint16_t kind;
    std::uint16_t parameter;
};

// One direction of the range block. Its three lists are counted in words from one place; what would
// lie outside the image is not there.
class Ranges {
public:
    Ranges(const TableImage& table, Direction direction) noexcept
    {
        const std::uint32_t block_at = load_le16(table.base() + kRangeBlockAt);
        if (block_at + kRangeWordsAt > table.size()) return;
        words_ = table.base() + block_at + kRangeWordsAt;
        word_count_ = (table.size() - block_at - kRangeWordsAt) / 2;
        const std::uint8_t* const bases =
            table.base() + block_at +
            (direction == Direction::kToUcs2 ? kRangeToBasesAt : kRangeFromBasesAt);
        ranges_base_ = load_le32(bases);
        index_base_ = load_le32(bases + 4);
        values_base_ = load_le32(bases + 8);
    }

    // Word number `number` of the block, if the image has it.
    [[nodiscard]] bool word(std::uint64_t number, std::uint16_t& value) const noexcept
    {
        if (number >= word_count_) return false;
        value = load_le16(words_ + 2 * number);
        return true;
    }

    // The number of the first range entry to look at for `key`.
    [[nodiscard]] bool start(std::uint32_t key, std::uint64_t& entry) const noexcept
    {
        std::uint16_t number = 0;
        if (!word(std::uint64_t{index_base_} + (key >> kRangeKeysShift), number)) return false;
        entry = number;
        return true;
    }

    [[nodiscard]] bool entry(std::uint64_t number, RangeEntry& range) const noexcept
    {
        const std::uint64_t at = ranges_base_ + 4 * number;
        if (at + 4 > word_count_) return false;
        const std::uint8_t* const words = words_ + 2 * at;
        range = {load_le16(words), load_le16(words + 2), load_le16(words + 4),
                 load_le16(words + 6)};
        return true;
    }

    // What a listed or linear range gives for a key that it covers.
    [[nodiscard]] bool value(const RangeEntry& range, std::uint32_t key,
                             std::uint32_t& value) const noexcept
    {
        const std::uint32_t offset = key - range.first + range.parameter;
        if (range.kind == kRangeLinear) {
            value = offset;
            return true;
        }
        std::uint16_t listed = 0;
        if (range.kind != kRangeListed || !word(std::uint64_t{values_base_} + offset, listed)) {
            return false;
        }
        value = listed;
        return true;
    }

private:
    const std::uint8_t* words_ = nullptr;
    std::uint64_t word_count_ = 0;
    std::uint32_t ranges_base_ = 0;
    std::uint32_t index_base_ = 0;
    std::uint32_t values_base_ = 0;
};

struct Gb18030Reader {
    static constexpr bool kAscii = true;
    const std::uint8_t* at;
    const std::uint8_t* end;

    Gb18030Reader(const kel_cs_t& cs, const std::uint8_t* from, const std::uint8_t* to) noexcept
        : at(from), end(to), ranges_(TableImage(cs), Direction::kToUcs2)
    {
    }

    [[nodiscard]] std::int32_t next() noexcept
    {
        const std::uint32_t lead = *at;
        if (lead <= 0x80 || lead == 0xFF) {
            ++at;
            return lead < 0x80 ? static_cast<std::int32_t>(lead) : kReplacement;
        }
        if (end - at < 2) return kCutOff;
        const std::uint32_t second = at[1];
        if (second < 0x30 || second > 0x3F) {
            at += 2;
            return character(lead * 191 + second - 24702);
        }
        if (end - at < 4) return kCutOff;
        const std::uint32_t linear =
            (((lead & 0x7F) * 10 + second) * 126 + at[2]) * 10 + at[3] - 50351;
        at += 4;
        return character(linear);
    }

private:
    // The character of a linear code number. A second byte below 0x30 behind the lowest lead bytes
    // gives a number below 0, which wraps to one that nothing has.
    [[nodiscard]] std::int32_t character(std::uint32_t linear) const noexcept
    {
        if (linear < kRangeKeyLimit) return looked_up(linear);
        if (linear < kPlanesFirst || linear > kPlanesLast) return kReplacement;
        return static_cast<std::int32_t>(linear - kPlanesOffset);
    }

    // The last entry that covers the number wins, so the walk goes on past a hit.
    [[nodiscard]] std::int32_t looked_up(std::uint32_t linear) const noexcept
    {
        std::uint32_t value = kUnmapped;
        std::uint64_t number = 0;
        if (!ranges_.start(linear, number)) return kReplacement;
        RangeEntry range{};
        for (; ranges_.entry(number, range) && linear >= range.first; ++number) {
            std::uint32_t hit = 0;
            if (linear <= range.last && ranges_.value(range, linear, hit)) value = hit;
        }
        return value != kUnmapped ? static_cast<std::int32_t>(value) : kReplacement;
    }

    Ranges ranges_;
};

struct Gb18030Writer {
    static constexpr bool kAscii = true;
    std::uint8_t* at;
    std::uint8_t* end;

    Gb18030Writer(const kel_cs_t& cs, std::uint8_t* from, std::uint8_t* to) noexcept
        : at(from), end(to), ranges_(TableImage(cs), Direction::kFromUcs2)
    {
    }

    [[nodiscard]] bool put(std::uint32_t character) noexcept
    {
        if (character < 0x80) return put_one(character);
        if (character < 0x10000) return put_looked_up(character);
        if (character > 0x10FFFF) return put_one(kReplacement);
        return put_four(character + kPlanesOffset - kFourByteBase);
    }

private:
    // The first entry that covers the character decides.
    [[nodiscard]] bool put_looked_up(std::uint32_t character) noexcept
    {
        std::uint64_t number = 0;
        if (!ranges_.start(character, number)) return put_one(kReplacement);
        RangeEntry range{};
        for (; ranges_.entry(number, range) && character >= range.first; ++number) {
            if (character <= range.last) return put_covered(range, character);
        }
        return put_one(kReplacement);
    }

    [[nodiscard]] bool put_covered(const RangeEntry& range, std::uint32_t character) noexcept
    {
        std::uint32_t code = 0;
        if (range.kind != kRangeSingleByte && !ranges_.value(range, character, code)) {
            return put_one(kReplacement);
        }
        if (code == 0) return put_one(character - range.first + range.parameter);
        return code < kFourByteBase ? put_two(code - 1) : put_four(code - kFourByteBase);
    }

    [[nodiscard]] bool put_one(std::uint32_t byte) noexcept
    {
        *at++ = static_cast<std::uint8_t>(byte);
        return true;
    }

    [[nodiscard]] bool put_two(std::uint32_t number) noexcept
    {
        if (end - at < 2) return false;
        at[0] = static_cast<std::uint8_t>(number / 191 + 0x81);
        at[1] = static_cast<std::uint8_t>(number % 191 + 0x40);
        at += 2;
        return true;
    }

    [[nodiscard]] bool put_four(std::uint32_t number) noexcept
    {
        if (end - at < 4) return false;
        at[0] = static_cast<std::uint8_t>(number / 12600 + 0x81);
        at[1] = static_cast<std::uint8_t>(number / 1260 % 10 + 0x30);
        at[2] = static_cast<std::uint8_t>(number / 10 % 126 + 0x81);
        at[3] = static_cast<std::uint8_t>(number % 10 + 0x30);
        at += 4;
        return true;
    }

    Ranges ranges_;
};

}  // namespace

int32_t ascii_gb18030_to_ucs2_r(kel_cs_t* cs, const char** source, const char* source_end,
                                uint16_t** destination, uint16_t* destination_end) noexcept
{
    return run_to<Gb18030Reader, UnitWriter>(cs, source, source_end, destination, destination_end);
}

int32_t ascii_gb18030_from_ucs2_r(kel_cs_t* cs, const uint16_t** source, const uint16_t* source_end,
                                  char** destination, char* destination_end) noexcept
{
    return run_from<PairReader, Gb18030Writer>(cs, source, source_end, destination,
                                               destination_end);
}

int32_t ascii_gb18030_to_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                                char** destination, char* destination_end) noexcept
{
    return run_to<Gb18030Reader, Utf8Writer>(cs, source, source_end, destination, destination_end);
}

int32_t ascii_gb18030_from_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                                  char** destination, char* destination_end) noexcept
{
    return run_from<Utf8Reader<4>, Gb18030Writer>(cs, source, source_end, destination,
                                                  destination_end);
}

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

// A range of keys in four words: the first key, the last, the kind, a parameter.
struct Range {
    std::uint64_t words;

    [[nodiscard]] std::uint32_t first() const noexcept { return word(0); }
    [[nodiscard]] std::uint32_t last() const noexcept { return word(1); }
    [[nodiscard]] std::uint32_t kind() const noexcept { return word(2); }

    // A key's place in the range, counted from the parameter.
    [[nodiscard]] std::uint32_t offset(std::uint32_t key) const noexcept
    {
        return key - first() + word(3);
    }

private:
    [[nodiscard]] std::uint32_t word(int number) const noexcept
    {
        return static_cast<std::uint32_t>(words >> (16 * number)) & 0xFFFF;
    }
};

// A list of 16-bit words of the range block, as far as the image has it.
struct WordList {
    const std::uint8_t* words = nullptr;
    std::uint32_t count = 0;

    [[nodiscard]] std::uint32_t operator[](std::uint32_t number) const noexcept
    {
        return load_le16(words + 2 * std::size_t{number});
    }
    [[nodiscard]] Range range(std::uint32_t number) const noexcept
    {
        const std::uint8_t* const at = words + 2 * std::size_t{number};
        return {load_le32(at) | std::uint64_t{load_le32(at + 4)} << 32};
    }
};

// One direction of the range block: the ranges, an index over them, and the values that some list.
class Ranges {
public:
    Ranges(const TableImage& table, Direction direction) noexcept
    {
        const std::uint32_t block_at = load_le16(table.base() + kRangeBlockAt);
        if (block_at + kRangeWordsAt > table.size()) return;
        const std::uint8_t* const bases =
            table.base() + block_at +
            (direction == Direction::kToUcs2 ? kRangeToBasesAt : kRangeFromBasesAt);
        const std::uint8_t* const words = table.base() + block_at + kRangeWordsAt;
        const std::uint32_t count = (table.size() - block_at - kRangeWordsAt) / 2;
        const auto list = [&](std::uint32_t base) {
            return base < count ? WordList{words + 2 * std::size_t{base}, count - base}
                                : WordList{};
        };
        ranges_ = list(load_le32(bases));
        index_ = list(load_le32(bases + 4));
        values_ = list(load_le32(bases + 8));
    }

    // The ranges that a key may lie in: from the one that the index names on, while they begin at
    // or below the key. `visit` gets each that covers it, until it returns false.
    template <class Visit>
    void walk(std::uint32_t key, Visit visit) const noexcept
    {
        const std::uint32_t block = key >> kRangeKeysShift;
        if (block >= index_.count) return;
        for (std::uint32_t at = 4 * index_[block]; at + 4 <= ranges_.count; at += 4) {
            const Range range = ranges_.range(at);
            if (range.first() > key) return;
            if (range.last() >= key && !visit(range)) return;
        }
    }

    // What a listed or linear range gives for a key that it covers, if it gives anything.
    [[nodiscard]] bool value(Range range, std::uint32_t key, std::uint32_t& value) const noexcept
    {
        const std::uint32_t number = range.offset(key);
        if (range.kind() == kRangeListed) {
            if (number >= values_.count) return false;
            value = values_[number];
            return true;
        }
        if (range.kind() != kRangeLinear) return false;
        value = number;
        return true;
    }

private:
    WordList ranges_;
    WordList index_;
    WordList values_;
};

struct Gb18030Reader {
    static constexpr bool kAscii = true;
    static constexpr bool kOneToOne = false;
    const std::uint8_t* at;
    const std::uint8_t* end;

    Gb18030Reader(const kel_cs_t& cs, const std::uint8_t* from, const std::uint8_t* to) noexcept
        : at(from), end(to), ranges_(TableImage(cs), Direction::kToUcs2)
    {
    }

    // Inlined by force: the pointers must stay in registers.
    [[nodiscard, gnu::always_inline]] std::int32_t next() noexcept
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

    // The last range that covers the number wins, so the walk goes on past a hit.
    [[nodiscard]] std::int32_t looked_up(std::uint32_t linear) const noexcept
    {
        std::uint32_t value = kUnmapped;
        ranges_.walk(linear, [&](Range range) {
            (void)ranges_.value(range, linear, value);  // which may give nothing
            return true;
        });
        return value != kUnmapped ? static_cast<std::int32_t>(value) : kReplacement;
    }

    Ranges ranges_;
};

struct Gb18030Writer {
    static constexpr bool kAscii = true;
    static constexpr bool kOneToOne = false;
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
    // The first range that covers the character decides; a code of 0 stands for the single byte
    // that the character's place in the range gives.
    [[nodiscard]] bool put_looked_up(std::uint32_t character) noexcept
    {
        std::uint32_t code = kNoCode;
        std::uint32_t byte = 0;
        ranges_.walk(character, [&](Range range) {
            byte = range.offset(character);
            if (range.kind() == kRangeSingleByte) code = 0;
            (void)ranges_.value(range, character, code);
            return false;
        });
        if (code == kNoCode) return put_one(kReplacement);
        if (code == 0) return put_one(byte);
        return code < kFourByteBase ? put_two(code - 1) : put_four(code - kFourByteBase);
    }

    static constexpr std::uint32_t kNoCode = 0xFFFFFFFF;

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

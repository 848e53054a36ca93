// Bounded reads from the table image of a code set: what would lie outside is a miss.
#ifndef CORVANE_CODESET_TABLE_IMAGE_HPP
#define CORVANE_CODESET_TABLE_IMAGE_HPP

#include <array>
#include <cstddef>
#include <cstdint>

#include "codeset/kel_cs.h"
#include "codeset/table_layout.hpp"

namespace corvane::kel {

// The compiler makes one load of it where the host is little-endian.
[[nodiscard]] inline std::uint16_t load_le16(const std::uint8_t* at) noexcept
{
    return static_cast<std::uint16_t>(at[0] | at[1] << 8);
}

[[nodiscard]] inline std::uint32_t load_le32(const std::uint8_t* at) noexcept
{
    return load_le16(at) | static_cast<std::uint32_t>(load_le16(at + 2)) << 16;
}

// An image in which every lookup misses; stands in where a code set has none that is long enough.
extern const std::array<std::uint8_t, kLeastTableSize> kEmptyTable;

class TableImage {
public:
    explicit TableImage(const kel_cs_t& cs) noexcept
    {
        if (cs.table != nullptr && cs.table_size >= kLeastTableSize) {
            base_ = static_cast<const std::uint8_t*>(cs.table);
            size_ = cs.table_size;
        }
        const std::uint32_t data_at = load_le32(base_ + kDataAreaAt);
        if (data_at < size_) {
            data_ = base_ + data_at;
            data_size_ = size_ - data_at;
        }
    }

    [[nodiscard]] const std::uint8_t* base() const noexcept { return base_; }
    [[nodiscard]] std::uint32_t size() const noexcept { return size_; }

    [[nodiscard]] std::uint8_t byte_class(std::uint8_t byte) const noexcept
    {
        return base_[kByteClassesAt + byte];
    }
    [[nodiscard]] std::uint16_t byte_value(std::uint8_t byte) const noexcept
    {
        return load_le16(base_ + kByteValuesAt + 2 * std::size_t{byte});
    }
    [[nodiscard]] std::uint16_t page_value(std::uint32_t unit) const noexcept
    {
        return load_le16(base_ + kPagesAt + 2 * std::size_t{unit >> 8});
    }
    [[nodiscard]] std::uint16_t substitution_char() const noexcept
    {
        return load_le16(base_ + kSubstitutionCharAt);
    }
    [[nodiscard]] std::uint8_t substitution_byte() const noexcept
    {
        return base_[kSubstitutionByteAt];
    }

    // The byte, word or record `offset` bytes behind the place of a row or page value; null on a
    // miss. Offsets stay below 2^20, so nothing wraps.
    template <std::uint32_t kBytes>
    [[nodiscard]] const std::uint8_t* data_at(std::uint32_t offset) const noexcept
    {
        return offset + kBytes <= data_size_ ? data_ + offset : nullptr;
    }

    // Entry `index` of the 16-bit row or page at `value`; unmapped on a miss.
    [[nodiscard]] std::uint16_t entry(std::uint16_t value, std::uint32_t index) const noexcept
    {
        const std::uint8_t* const at = data_at<2>(kScale * value + 2 * index);
        return at != nullptr ? load_le16(at) : kUnmapped;
    }

private:
    const std::uint8_t* base_ = kEmptyTable.data();
    std::uint32_t size_ = kLeastTableSize;
    const std::uint8_t* data_ = kEmptyTable.data();
    std::uint32_t data_size_ = 0;
};

// The single-byte sets' pages: one code byte for each low byte of a character.
class BytePages {
public:
    explicit BytePages(const kel_cs_t& cs) noexcept
        : table_(cs),
          substitution_char_(table_.substitution_char()),
          substitution_byte_(table_.substitution_byte())
    {
    }

    // The byte of a character below 0x10000, or `replacement`. The pages hold the table's own
    // substitution byte wherever nothing is mapped, so it counts for one character alone.
    [[nodiscard]] std::uint8_t byte_of(std::uint32_t character,
                                       std::uint8_t replacement) const noexcept
    {
        const std::uint8_t* const at =
            table_.data_at<1>(kScale * table_.page_value(character) + (character & 0xFF));
        if (at == nullptr) return replacement;
        const bool is_substitute = *at == substitution_byte_ &&
                                   (character != substitution_char_ || character == kUnmapped);
        return is_substitute ? replacement : *at;
    }

private:
    TableImage table_;
    std::uint16_t substitution_char_;
    std::uint8_t substitution_byte_;
};

}  // namespace corvane::kel
#endif

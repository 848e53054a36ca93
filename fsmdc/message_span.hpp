// How much of a message or record may be touched: counts in foreign bytes are bounded by it.
#ifndef CORVANE_FSMDC_MESSAGE_SPAN_HPP
#define CORVANE_FSMDC_MESSAGE_SPAN_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <span>

#include "lan/header.h"
#include "osl/bytes.hpp"
#include "osl/types.h"

namespace corvane {

// The room of a record whose caller vouches for its counts.
inline constexpr std::size_t kUnbounded = std::numeric_limits<std::ptrdiff_t>::max();

// Bytes of a message in host order by its own header. A length that cannot be one says nothing:
// then the counts inside are believed, as those of a single record are.
[[nodiscard]] inline std::size_t message_bytes(const void* message) noexcept
{
    const auto length = load<LanHeader>(message).length;
    return length < sizeof(LanHeader) ? kUnbounded : length;
}

// What is left of `size` bytes from `offset` on.
[[nodiscard]] inline std::size_t bytes_from(std::size_t size, std::size_t offset) noexcept
{
    return size > offset ? size - offset : 0;
}

// Reads a record of which only `room` bytes exist; the others read as zeros.
template <class T>
[[nodiscard]] T load_within(const void* at, std::size_t room) noexcept
{
    if (room >= sizeof(T)) return load<T>(at);
    T value{};
    std::memcpy(&value, at, room);
    return value;
}

[[nodiscard]] inline const std::byte* bytes_at(const void* base, std::size_t offset) noexcept
{
    return static_cast<const std::byte*>(base) + offset;
}
[[nodiscard]] inline std::byte* bytes_at(void* base, std::size_t offset) noexcept
{
    return static_cast<std::byte*>(base) + offset;
}

// Units before the zero unit of an FSUNI text at any address, looking at no more than `max_units`.
[[nodiscard]] inline std::size_t text_units(const void* text, std::size_t max_units) noexcept
{
    std::size_t units = 0;
    while (units < max_units && load<FSUNI>(bytes_at(text, units * sizeof(FSUNI))) != 0) ++units;
    return units;
}

}  // namespace corvane
#endif

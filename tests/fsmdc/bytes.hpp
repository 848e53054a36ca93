// Messages and records made and read byte by byte, by offsets written down here a second time.
#ifndef CORVANE_TESTS_FSMDC_BYTES_HPP
#define CORVANE_TESTS_FSMDC_BYTES_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace fsmdc_test {

using Bytes = std::vector<unsigned char>;

template <class T>
void put(Bytes& bytes, std::size_t at, std::type_identity_t<T> value)
{
    std::memcpy(&bytes.at(at + sizeof(T) - 1) - (sizeof(T) - 1), &value, sizeof(T));
}
inline void put32(Bytes& bytes, std::size_t at, std::uint32_t value)
{
    put<std::uint32_t>(bytes, at, value);
}
inline void put64(Bytes& bytes, std::size_t at, std::int64_t value)
{
    put<std::int64_t>(bytes, at, value);
}
inline void put_text(Bytes& bytes, std::size_t at, std::string_view text)
{
    for (std::size_t i = 0; i < text.size(); ++i) {
        put<std::uint16_t>(bytes, at + 2 * i, static_cast<unsigned char>(text[i]));
    }
}
inline void fill(Bytes& bytes, std::size_t at, std::size_t count, unsigned char first)
{
    for (std::size_t i = 0; i < count; ++i)
        bytes.at(at + i) = static_cast<unsigned char>(first + i);
}

template <class T>
[[nodiscard]] T get(const void* message, std::size_t at)
{
    T value;
    std::memcpy(&value, static_cast<const unsigned char*>(message) + at, sizeof value);
    return value;
}
[[nodiscard]] inline std::int32_t get32(const void* message, std::size_t at)
{
    return get<std::int32_t>(message, at);
}

// 00 01 02 ... ff 00 01 ...
[[nodiscard]] inline Bytes counting(std::size_t size)
{
    Bytes bytes(size);
    fill(bytes, 0, size, 0);
    return bytes;
}

inline void reverse(Bytes& bytes, std::size_t at, std::size_t width)
{
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(at);
    std::reverse(first, first + static_cast<std::ptrdiff_t>(width));
}

[[nodiscard]] inline std::string hex(const void* data, std::size_t size)
{
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        char digits[3];
        (void)std::snprintf(digits, sizeof digits, "%02x", get<unsigned char>(data, i));
        text += digits;
    }
    return text;
}
[[nodiscard]] inline std::string hex(const Bytes& bytes)
{
    return hex(bytes.data(), bytes.size());
}

// A cookie of `size` ascending bytes.
[[nodiscard]] inline Bytes cookie(unsigned char first, std::size_t size = 32)
{
    Bytes bytes(size);
    fill(bytes, 0, size, first);
    return bytes;
}

// The header of a request in this machine's order: a message as the handlers get it.
[[nodiscard]] inline Bytes request(std::int32_t code, std::uint32_t length)
{
    Bytes bytes(2304);  // what every handler may read
    put32(bytes, 0, 1);
    put32(bytes, 4, 77);  // revision
    fill(bytes, 8, 16, 0x40);
    put<std::int32_t>(bytes, 24, code);
    put32(bytes, 28, length);
    put32(bytes, 36, 0x55);  // result: must not come back
    put<std::uint16_t>(bytes, 42, '/');
    return bytes;
}

}  // namespace fsmdc_test
#endif

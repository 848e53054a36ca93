// Messages made and read byte by byte, without the code under test.
#ifndef CORVANE_TESTS_LAN_MESSAGE_BYTES_HPP
#define CORVANE_TESTS_LAN_MESSAGE_BYTES_HPP

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace lan_test {

using Bytes = std::vector<unsigned char>;

// Offsets in a message, from its description.
constexpr std::size_t kRevision = 4;
constexpr std::size_t kIdentifier = 8;
constexpr std::size_t kFunctionCode = 24;
constexpr std::size_t kLength = 28;
constexpr std::size_t kFlags = 32;
constexpr std::size_t kResult = 36;
constexpr std::size_t kHeaderBytes = 48;

inline void put_le32(Bytes& bytes, std::size_t at, std::uint32_t value)
{
    for (std::size_t i = 0; i < 4; ++i) {
        bytes.at(at + i) = static_cast<unsigned char>(value >> (8 * i));
    }
}

inline void put_be32(Bytes& bytes, std::size_t at, std::uint32_t value)
{
    for (std::size_t i = 0; i < 4; ++i) {
        bytes.at(at + 3 - i) = static_cast<unsigned char>(value >> (8 * i));
    }
}

inline std::uint32_t get_le32(const void* message, std::size_t at)
{
    const auto* bytes = static_cast<const unsigned char*>(message) + at;
    return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

struct Request {
    std::int32_t code = 1;
    unsigned char identifier = 0x40;  // the first of 16 ascending bytes
    std::uint32_t length = kHeaderBytes;
    std::uint32_t flags = 1;
};

// `size` bytes in little-endian order (this machine's): the header, then 0xB0, 0xB1, ...
inline Bytes native(const Request& request, std::size_t size = kHeaderBytes)
{
    Bytes bytes(size < kHeaderBytes ? kHeaderBytes : size);
    put_le32(bytes, 0, 1);
    put_le32(bytes, kRevision, 7);
    for (std::size_t i = 0; i < 16; ++i) {
        bytes.at(kIdentifier + i) = static_cast<unsigned char>(request.identifier + i);
    }
    put_le32(bytes, kFunctionCode, static_cast<std::uint32_t>(request.code));
    put_le32(bytes, kLength, request.length);
    put_le32(bytes, kFlags, request.flags);
    for (std::size_t i = 40; i < bytes.size(); ++i) {
        bytes.at(i) =
            static_cast<unsigned char>(i < kHeaderBytes ? 0xA0 + i : 0xB0 + i - kHeaderBytes);
    }
    bytes.resize(size);
    return bytes;
}

// "00010203 04050607 ..."
inline std::string hex(const void* data, std::size_t size)
{
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        char digits[3];
        (void)std::snprintf(digits, sizeof digits, "%02x",
                            static_cast<const unsigned char*>(data)[i]);
        if (i > 0 && i % 4 == 0) text += ' ';
        text += digits;
    }
    return text;
}
inline std::string hex(const Bytes& bytes)
{
    return hex(bytes.data(), bytes.size());
}

}  // namespace lan_test
#endif

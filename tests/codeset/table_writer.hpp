// Makes small tables by hand, byte for byte, without the tool or the library's own layout
// constants.
#ifndef CORVANE_TESTS_CODESET_TABLE_WRITER_HPP
#define CORVANE_TESTS_CODESET_TABLE_WRITER_HPP

#include <cstdint>
#include <cstring>
#include <string>

#include "tests/codeset/support.hpp"

namespace corvane::test {

// A table image whose data area begins at 2048. Rows and pages that are not set all lie at value 0,
// which is 1,024 bytes of 0xFF.
class TableWriter {
public:
    static constexpr std::size_t kDataAt = 2048;

    explicit TableWriter(std::uint16_t type) : image(kDataAt + 1024, '\0')
    {
        put16(0, kDataAt);
        std::memcpy(&image[8], "ucv", 3);
        put16(48, type);
        std::memset(&image[1248], 255, 256);
        std::memset(&image[1248], 1, 128);
        for (std::size_t byte = 0; byte < 256; ++byte) put16(736 + 2 * byte, 0xFFFF);
        std::memset(&image[kDataAt], 0xFF, 1024);
    }

    void put16(std::size_t at, unsigned value)
    {
        image[at] = static_cast<char>(value);
        image[at + 1] = static_cast<char>(value >> 8);
    }
    void put32(std::size_t at, unsigned value)
    {
        put16(at, value & 0xFFFF);
        put16(at + 2, value >> 16);
    }

    // Appends a block of `size` bytes, all `fill`, to the data area; returns its value.
    unsigned add(std::size_t size, char fill)
    {
        image.resize((image.size() + 15) / 16 * 16);
        const std::size_t at = image.size();
        image.resize(at + size, fill);
        return static_cast<unsigned>((at - kDataAt) / 4);
    }
    [[nodiscard]] static std::size_t place(unsigned value)
    {
        return kDataAt + std::size_t{4} * value;
    }

    void set_class(unsigned byte, unsigned byte_class)
    {
        image[1248 + byte] = static_cast<char>(byte_class);
    }
    void set_byte_value(unsigned byte, unsigned value)
    {
        put16(736 + std::size_t{2} * byte, value);
    }
    void set_page(unsigned high_byte, unsigned value)
    {
        put16(224 + std::size_t{2} * high_byte, value);
    }
    void set_substitution(unsigned character, unsigned byte)
    {
        put16(58, character);
        image[60] = static_cast<char>(byte);
    }

    // The object that the library would make of this image, which must outlive it.
    [[nodiscard]] kel_cs_t object()
    {
        kel_cs_t cs = {};
        cs.table = image.data();
        cs.table_size = static_cast<std::uint32_t>(image.size());
        cs.type = static_cast<std::uint16_t>(static_cast<unsigned char>(image[48]));
        cs.table_backed = 1;
        return cs;
    }

    std::string image;
};

}  // namespace corvane::test
#endif

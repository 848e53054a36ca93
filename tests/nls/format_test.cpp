// Byte order of catalogue records.
#include "nls/catalogue_format.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

namespace {

// `size` different bytes, converted at an odd address.
std::string converted(void (*convert)(void*), std::size_t size)
{
    std::array<char, 64> memory{};
    for (std::size_t at = 0; at < size; ++at) memory[at + 1] = static_cast<char>(at + 1);
    convert(memory.data() + 1);
    EXPECT_EQ(memory[0], 0);
    EXPECT_EQ(memory[size + 1], 0) << "wrote behind the record";
    return {memory.data() + 1, size};
}

std::string hex(const std::string& bytes)
{
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        char digits[4];
        (void)std::snprintf(digits, sizeof digits, at % 4 == 0 && at > 0 ? " %02x" : "%02x",
                            static_cast<unsigned char>(bytes[at]));
        text += digits;
    }
    return text;
}

}  // namespace

TEST(CatalogueFormat, HeaderTurnsItsFiveIntegersButNotTheMagic)
{
    const char* const expected = "01020304 05060708 0c0b0a09 100f0e0d 14131211 18171615 1c1b1a19";
    EXPECT_EQ(hex(converted(hton_MCHeaderT, 28)), expected);
    EXPECT_EQ(hex(converted(ntoh_MCHeaderT, 28)), expected);
}

TEST(CatalogueFormat, SetTurnsSevenIntegersButNotTheReservedWords)
{
    const char* const expected =
        "04030201 08070605 0c0b0a09 0d0e0f10 14131211 15161718 1c1b1a19 201f1e1d 24232221";
    EXPECT_EQ(hex(converted(hton_MCSetT, 36)), expected);
    EXPECT_EQ(hex(converted(ntoh_MCSetT, 36)), expected);
}

TEST(CatalogueFormat, MessageTurnsThreeIntegersButNotTheReservedWord)
{
    const char* const expected = "04030201 08070605 0c0b0a09 0d0e0f10";
    EXPECT_EQ(hex(converted(hton_MCMsgT, 16)), expected);
    EXPECT_EQ(hex(converted(ntoh_MCMsgT, 16)), expected);
}

TEST(CatalogueFormat, VersionOneIsStoredMostSignificantByteFirst)
{
    MCHeaderT header = {};
    header.majorVer = 1;

    hton_MCHeaderT(&header);

    EXPECT_EQ(std::memcmp(&header.majorVer, "\0\0\0\1", 4), 0);
}

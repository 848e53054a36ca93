// Texts between UTF-8, UTF-16 and the terminal.
#include "client/text.hpp"

#include <gtest/gtest.h>

#include "client/failure.hpp"

namespace corvane {
namespace {

using Units = std::vector<FSUNI>;

TEST(Text, Utf8BecomesUtf16WithSurrogatePairs)
{
    EXPECT_EQ(fsuni_from_utf8("aé€😀", "it"), (Units{'a', 0xE9, 0x20AC, 0xD83D, 0xDE00}));
}

TEST(Text, WhatIsNotUtf8IsRefusedByName)
{
    const std::string bad[] = {
        "\xC3",     "\xC0\xAF", "\xED\xA0\x80",         "\xF5\x80\x80\x80", "a\x80",
        "\xE2\x82", "\xFF",     std::string("a\0b", 3), "\xF0\x80\x80\x80", "\xE0\x80\x80"};
    for (const auto& text : bad) {
        try {
            (void)fsuni_from_utf8(text, "the path");
            ADD_FAILURE() << "accepted " << printable(text);
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code(), kBadArgument);
            EXPECT_STREQ(failure.what(), "the path is not valid UTF-8; give it in UTF-8");
        }
    }
}

TEST(Text, EveryCharacterComesBack)
{
    for (char32_t point = 1; point < 0x11000; ++point) {
        if (point >= 0xD800 && point < 0xE000) continue;
        const Units units = point < 0x10000
                                ? Units{static_cast<FSUNI>(point)}
                                : Units{static_cast<FSUNI>(0xD800 + ((point - 0x10000) >> 10)),
                                        static_cast<FSUNI>(0xDC00 + ((point - 0x10000) & 0x3FF))};
        ASSERT_EQ(fsuni_from_utf8(utf8_from_fsuni(units), "it"), units);
    }
}

TEST(Text, UnpairedSurrogatesAreReplaced)
{
    EXPECT_EQ(utf8_from_fsuni({'a', 0xD83D, 'b', 0xDE00}),
              "a\xEF\xBF\xBD"
              "b\xEF\xBF\xBD");
}

TEST(Text, BytesOfAShareAreWidenedWithTheirSign)
{
    EXPECT_EQ(fsuni_from_bytes("a\xC3\xBC"), (Units{'a', 0xFFC3, 0xFFBC}));
}

TEST(Text, ControlCharactersNeverReachATerminal)
{
    EXPECT_EQ(printable("a\033[2J\r\n\x7F\xC2\x9Bü\xFF"), "a?[2J????ü?");
}

TEST(Text, SizesArePrintedInTheirUnit)
{
    EXPECT_EQ(size_text(0), "0 bytes");
    EXPECT_EQ(size_text(1), "1 byte");
    EXPECT_EQ(size_text(1023), "1023 bytes");
    EXPECT_EQ(size_text(1024), "1 KiB");
    EXPECT_EQ(size_text(1536), "1.5 KiB");
    EXPECT_EQ(size_text(1048575), "1.0 MiB");
    EXPECT_EQ(size_text(INT64_MAX), "8 EiB");
}

TEST(Text, FineSizesDropTheirLastZeros)
{
    EXPECT_EQ(fine_size_text(0), "0 bytes");
    EXPECT_EQ(fine_size_text(2359296), "2.25 MiB");
    EXPECT_EQ(fine_size_text(1536), "1.5 KiB");
    EXPECT_EQ(fine_size_text(100 * 1024), "100 KiB");
}

TEST(Text, BytesPrintAsHex)
{
    const std::uint8_t bytes[] = {0x00, 0x9A, 0xFF, 0x12};

    EXPECT_EQ(hex_text(bytes, 3), "009aff");
}

}  // namespace
}  // namespace corvane

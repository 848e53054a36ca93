// Byte order in place, dumps, and the sizes of the wire types.
#include "osl/byte_order.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <numeric>
#include <string>
#include <vector>

#include "mdcmain/log.h"
#include "osl/types.h"

namespace {

std::vector<unsigned char> counting(std::size_t count)
{
    std::vector<unsigned char> bytes(count);
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(0x10));
    return bytes;
}

TEST(ByteOrder, DoendianReversesOneFieldAtAnyAddress)
{
    for (const std::size_t length : {2U, 4U, 8U, 16U}) {
        for (std::size_t at = 0; at < 4; ++at) {
            auto bytes = counting(24);
            auto wanted = bytes;
            std::reverse(wanted.begin() + static_cast<std::ptrdiff_t>(at),
                         wanted.begin() + static_cast<std::ptrdiff_t>(at + length));
            doendian(bytes.data() + at, static_cast<std::uint32_t>(length));
            EXPECT_EQ(bytes, wanted) << length << " bytes at " << at;
        }
    }
}

TEST(ByteOrder, DoendianLeavesNoBytesAndOneByteAlone)
{
    auto bytes = counting(3);
    doendian(bytes.data(), 0);
    doendian(bytes.data(), 1);
    EXPECT_EQ(bytes, counting(3));
}

TEST(ByteOrder, ArraysOfUnitsSwapEachUnitAndLeaveAnOddByte)
{
    using Bytes = std::vector<unsigned char>;
    auto bytes = counting(8);
    endianizeFsUniArray(bytes.data() + 1, 5);
    EXPECT_EQ(bytes, (Bytes{0x10, 0x12, 0x11, 0x14, 0x13, 0x15, 0x16, 0x17}));
    endianizeFsUniArray(bytes.data(), 1);
    endianizeFsUniArray(bytes.data(), 0);
    EXPECT_EQ(bytes[0], 0x10);
}

TEST(BytesToString, WritesUpperCasePairsAndTrimsZerosAndBlanks)
{
    struct Row {
        std::string bytes;
        const char* text;
    };
    const std::vector<Row> rows = {
        {{"\x12\x30", 2}, "12 3"},
        {{"\x10\x00", 2}, "1"},
        {{"\x00", 1}, ""},
        {{}, ""},
        {{"\xAB\xCD\xEF", 3}, "AB CD EF"},
        {{"\x00\x01", 2}, "00 01"},
        {{"\x00\x00\x00", 3}, ""},
        {{"\xA0\x0B\x00\x00", 4}, "A0 0B"},
        {{"\xF0\xE0\xD0", 3}, "F0 E0 D"},
    };
    for (const auto& [bytes, text] : rows) {
        std::array<char, 16> room;
        room.fill('#');
        EXPECT_EQ(
            bytesToString(bytes.data(), static_cast<std::uint32_t>(bytes.size()), room.data()),
            room.data());
        EXPECT_STREQ(room.data(), text);
        EXPECT_EQ(room[3 * bytes.size() + 1], '#');
    }
}

std::vector<std::string> g_lines;

TEST(DataSizes, AreTracedInFiveLines)
{
    g_lines.clear();
    dbgSetOutputStringHandler([](const char* text) { g_lines.emplace_back(text); });

    EXPECT_EQ(checkDataSizes(), 0);
    dbgSetOutputStringHandler(nullptr);

    EXPECT_THAT(g_lines, ::testing::ElementsAre("size of FSLONG should be 4, is 4\n",
                                                "size of FSULONG should be 4, is 4\n",
                                                "size of FS64LONG should be 8, is 8\n",
                                                "size of FSUNI should be 2, is 2\n",
                                                "size of FS128LONG should be 16, is 16\n"));
}

}  // namespace

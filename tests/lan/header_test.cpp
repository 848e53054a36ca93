// The common header: which bytes turn round, and what its dump says.
#include "lan/header.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <vector>

#include "tests/lan/message_bytes.hpp"
#include "tests/lan/trace_capture.hpp"

namespace {

using lan_test::Bytes;
using lan_test::hex;
using testing::ElementsAre;

Bytes counting_bytes(std::size_t size)
{
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<unsigned char>(i);
    return bytes;
}

// A header of the other byte order: six fields turn round, all else stays as it lay.
TEST(LanHeader, ForeignMarkerTurnsSixFieldsOnly)
{
    Bytes bytes = counting_bytes(48);

    LANSUP_TransLanHeader(bytes.data());

    EXPECT_EQ(hex(bytes),
              "00010203 07060504 08090a0b 0c0d0e0f 10111213 14151617 "
              "1b1a1918 1f1e1d1c 23222120 27262524 28292b2a 2c2d2e2f");
}

TEST(LanHeader, BigEndianMarkerStaysInPlace)
{
    Bytes bytes = counting_bytes(48);
    lan_test::put_be32(bytes, 0, 1);

    LANSUP_TransLanHeader(bytes.data());

    EXPECT_EQ(hex(bytes),
              "00000001 07060504 08090a0b 0c0d0e0f 10111213 14151617 "
              "1b1a1918 1f1e1d1c 23222120 27262524 28292b2a 2c2d2e2f");
}

TEST(LanHeader, NativeMarkerLeavesEveryByte)
{
    Bytes bytes = counting_bytes(48);
    lan_test::put_le32(bytes, 0, 1);
    const Bytes before = bytes;

    LANSUP_TransLanHeader(bytes.data());

    EXPECT_EQ(hex(bytes), hex(before));
}

TEST(LanHeader, TranslatedTwiceIsTheOriginal)
{
    Bytes bytes = counting_bytes(48);

    LANSUP_TransLanHeader(bytes.data());
    LANSUP_TransLanHeader(bytes.data());

    EXPECT_EQ(hex(bytes), hex(counting_bytes(48)));
}

TEST(LanHeader, TranslatesAtEveryAddressAndTouchesNothingElse)
{
    for (std::size_t shift = 0; shift < 8; ++shift) {
        Bytes area(64, 0xEE);
        const Bytes header = counting_bytes(48);
        std::memcpy(area.data() + shift, header.data(), header.size());

        LANSUP_TransLanHeader(area.data() + shift);

        EXPECT_EQ(hex(area.data() + shift, 48),
                  "00010203 07060504 08090a0b 0c0d0e0f 10111213 14151617 "
                  "1b1a1918 1f1e1d1c 23222120 27262524 28292b2a 2c2d2e2f")
            << "address + " << shift;
        for (std::size_t i = 0; i < area.size(); ++i) {
            if (i < shift || i >= shift + 48) {
                EXPECT_EQ(area[i], 0xEE) << i;
            }
        }
    }
}

TEST(LanHeader, DumpTracesFiveLines)
{
    Bytes bytes = lan_test::native({.code = -4, .identifier = 0x3F, .length = 0x101});
    lan_test::put_le32(bytes, lan_test::kRevision, 0xFFFFFFFE);
    lan_test::put_le32(bytes, lan_test::kResult, 405);
    const lan_test::TraceCapture trace;

    LANSUP_DumpLanHeader(bytes.data());

    EXPECT_THAT(trace.lines(),
                ElementsAre("functionCode -4\n", "length 257\n",
                            "messageID 3F 40 41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E\n",
                            "revision -2\n", "result 405\n"));
}

// Zeros and blanks go from the end of an identifier's dump, "0" digits of its last byte included.
TEST(LanHeader, DumpDropsTrailingZerosOfTheIdentifier)
{
    Bytes bytes(49);
    bytes[1 + lan_test::kIdentifier] = 0x10;
    const lan_test::TraceCapture trace;

    LANSUP_DumpLanHeader(bytes.data() + 1);

    EXPECT_THAT(trace.lines(), ElementsAre("functionCode 0\n", "length 0\n", "messageID 1\n",
                                           "revision 0\n", "result 0\n"));
}

TEST(LanHeader, DumpOfNothingTracesNothing)
{
    const lan_test::TraceCapture trace;

    LANSUP_DumpLanHeader(nullptr);

    EXPECT_TRUE(trace.lines().empty());
}

}  // namespace

// FSUNI strings: each conversion has its own way with its capacity.
#include "osl/fsuni.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "osl/bytes.hpp"

namespace {

using Units = std::vector<FSUNI>;

Units units(std::u16string_view text)
{
    Units units(text.begin(), text.end());
    units.push_back(0);
    return units;
}

// What a narrowing function leaves in eight bytes that held '#'.
template <class Narrow>
std::string narrowed(Narrow narrow, std::u16string_view text)
{
    std::array<char, 8> to;
    to.fill('#');
    EXPECT_EQ(narrow(to.data(), units(text).data()), to.data());
    return {to.data(), to.size()};
}

// What a widening or copying function leaves in six units that held 0x2323.
template <class Widen>
Units widened(Widen widen)
{
    Units to(6, 0x2323);
    EXPECT_EQ(widen(to.data()), to.data());
    return to;
}

std::string bytes(const char* text, std::size_t size)
{
    return {text, size};
}

TEST(Fsuni, LengthCountsUnitsBeforeTheZero)
{
    EXPECT_EQ(OSL_FSUNILength(units(u"").data()), 0U);
    EXPECT_EQ(OSL_FSUNILength(units(u"abc").data()), 3U);
    const Units low_byte_zero{0x0100, 0x4200, 0};
    EXPECT_EQ(OSL_FSUNILength(low_byte_zero.data()), 2U);
}

TEST(Fsuni, DupCopiesUnitsAndZero)
{
    for (const std::u16string_view text : {u"", u"a", u"path/\xE9\xD800"}) {
        const Units source = units(text);
        const corvane::osl_ptr<FSUNI> copy(OSL_FSUNIdup(source.data()));
        ASSERT_NE(copy, nullptr);
        EXPECT_NE(copy.get(), source.data());
        EXPECT_EQ(Units(copy.get(), copy.get() + source.size()), source);
    }
}

TEST(Fsuni, CompareTakesLengthFirstThenBytesInMemory)
{
    const auto compare = [](std::u16string_view a, std::u16string_view b) {
        return OSL_FSUNIcmp(units(a).data(), units(b).data());
    };
    EXPECT_EQ(compare(u"ab", u"abc"), -1);
    EXPECT_EQ(compare(u"abc", u"ab"), -1);
    EXPECT_EQ(compare(u"abc", u"abc"), 0);
    EXPECT_EQ(compare(u"", u""), 0);
    EXPECT_EQ(compare(u"abd", u"abc"), 1);
    EXPECT_EQ(compare(u"abc", u"abd"), -1);
    // 0x0102 lies in memory as 02 01 here, so it comes after 0x0201 although its value is smaller.
    EXPECT_EQ(compare(u"\x0102", u"\x0201"), 1);
}

TEST(Fsuni, TransPathTurnsEveryBackslash)
{
    Units path = units(u"\\vol\\a/b\\\\c\x5C00");

    OSL_TransPath(path.data());

    EXPECT_EQ(path, units(u"/vol/a/b//c\x5C00"));
    OSL_TransPath(nullptr);
}

TEST(Fsuni, Uni2MultiByteKeepsLowBytesWithinASignedCapacity)
{
    const auto with = [](int32_t capacity) {
        return narrowed(
            [=](char* to, const FSUNI* from) { return OSL_Uni2MultiByte(to, from, capacity); },
            u"ab\x01E9\x4264");
    };
    EXPECT_EQ(with(8), bytes("ab\xE9"
                             "d\0###",
                             8));
    EXPECT_EQ(with(5), bytes("ab\xE9"
                             "d\0###",
                             8));
    EXPECT_EQ(with(4), bytes("ab\xE9\0####", 8));
    EXPECT_EQ(with(2), bytes("a\0######", 8));
    EXPECT_EQ(with(1), bytes("\0#######", 8));
    EXPECT_EQ(with(0), bytes("\0#######", 8));
    EXPECT_EQ(with(-1), bytes("\0#######", 8));
    EXPECT_EQ(with(INT32_MIN), bytes("\0#######", 8));
}

TEST(Fsuni, Uni2MultiByteWritesAZeroLowByteAndGoesOn)
{
    const auto narrow = [](char* to, const FSUNI* from) { return OSL_Uni2MultiByte(to, from, 8); };
    EXPECT_EQ(narrowed(narrow, u"a\x0100z"), bytes("a\0z\0####", 8));
}

TEST(Fsuni, MultiByte2UniExtendsTheSignWithinASignedCapacity)
{
    const auto with = [](int32_t capacity) {
        return widened([=](FSUNI* to) { return OSL_MultiByte2Uni(to, "a\x7F\x80\xE9", capacity); });
    };
    EXPECT_EQ(with(6), (Units{'a', 0x7F, 0xFF80, 0xFFE9, 0, 0x2323}));
    EXPECT_EQ(with(5), (Units{'a', 0x7F, 0xFF80, 0xFFE9, 0, 0x2323}));
    EXPECT_EQ(with(4), (Units{'a', 0x7F, 0xFF80, 0, 0x2323, 0x2323}));
    EXPECT_EQ(with(1), (Units{0, 0x2323, 0x2323, 0x2323, 0x2323, 0x2323}));
    EXPECT_EQ(with(0), (Units{0, 0x2323, 0x2323, 0x2323, 0x2323, 0x2323}));
    EXPECT_EQ(with(INT32_MIN), (Units{0, 0x2323, 0x2323, 0x2323, 0x2323, 0x2323}));
}

TEST(Fsuni, Mb2FsuniExtendsTheSignWithoutALimit)
{
    EXPECT_EQ(widened([](FSUNI* to) { return mb2fsuni(to, "z\xFF\x01"); }),
              (Units{'z', 0xFFFF, 1, 0, 0x2323, 0x2323}));
    EXPECT_EQ(widened([](FSUNI* to) { return mb2fsuni(to, ""); })[0], 0);
}

TEST(Fsuni, Fsuni2MbHasAnUnsignedCapacityWhereZeroMeansNoLimit)
{
    const auto with = [](uint32_t capacity) {
        return narrowed([=](char* to, const FSUNI* from) { return fsuni2mb(to, from, capacity); },
                        u"abc\x42E9");
    };
    EXPECT_EQ(with(0), bytes("abc\xE9\0###", 8));
    EXPECT_EQ(with(5), bytes("abc\xE9\0###", 8));
    EXPECT_EQ(with(4), bytes("abc\0####", 8));
    EXPECT_EQ(with(1), bytes("\0#######", 8));
}

TEST(Fsuni, FsunicpyTakesBytesAndBelowTwoMeansNoLimit)
{
    const auto with = [](uint32_t capacity_bytes) {
        return widened(
            [=](FSUNI* to) { return fsunicpy(to, units(u"ab\x1234").data(), capacity_bytes); });
    };
    const Units whole{'a', 'b', 0x1234, 0, 0x2323, 0x2323};
    EXPECT_EQ(with(0), whole);
    EXPECT_EQ(with(1), whole);
    EXPECT_EQ(with(2), (Units{0, 0x2323, 0x2323, 0x2323, 0x2323, 0x2323}));
    EXPECT_EQ(with(3), with(2));
    EXPECT_EQ(with(4), (Units{'a', 0, 0x2323, 0x2323, 0x2323, 0x2323}));
    EXPECT_EQ(with(7), (Units{'a', 'b', 0, 0x2323, 0x2323, 0x2323}));
    EXPECT_EQ(with(8), whole);
    EXPECT_EQ(with(12), whole);
}

}  // namespace

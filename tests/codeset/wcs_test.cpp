// Strings of 16-bit units: each function's bounds, and all of them against the C++ library's
// strings.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "codeset/kel_wcs.h"

namespace {

using Text = std::vector<std::uint16_t>;

// A terminated copy of exactly its size, so that a sanitizer sees a read behind it.
[[nodiscard]] Text text(std::u16string_view units)
{
    Text copy(units.begin(), units.end());
    copy.push_back(0);
    return copy;
}

TEST(Wcs, LengthCountsUnits)
{
    EXPECT_EQ(kel_wcslen(text(u"").data()), 0U);
    EXPECT_EQ(kel_wcslen(text(u"ab\U00010000").data()), 4U);
}

TEST(Wcs, BoundedLengthStopsAtItsMaximum)
{
    const Text unterminated = {'a', 'b', 'c'};

    EXPECT_EQ(kel_wcsnlen(unterminated.data(), 0), 0U);
    EXPECT_EQ(kel_wcsnlen(unterminated.data(), 3), 3U);
    EXPECT_EQ(kel_wcsnlen(text(u"ab").data(), 2), 2U);
    EXPECT_EQ(kel_wcsnlen(text(u"ab").data(), 9), 2U);
}

TEST(Wcs, CopyTakesTheTerminator)
{
    Text out(4, '#');

    EXPECT_EQ(kel_wcscpy(out.data(), text(u"ab").data()), out.data());
    EXPECT_EQ(out, (Text{'a', 'b', 0, '#'}));
}

TEST(Wcs, BoundedCopyFillsUpAndMayLeaveNoTerminator)
{
    Text out(5, '#');

    EXPECT_EQ(kel_wcsncpy(out.data(), text(u"ab").data(), 4), out.data());
    EXPECT_EQ(out, (Text{'a', 'b', 0, 0, '#'}));
    out.assign(5, '#');
    (void)kel_wcsncpy(out.data(), text(u"abc").data(), 3);
    EXPECT_EQ(out, (Text{'a', 'b', 'c', '#', '#'}));
    (void)kel_wcsncpy(out.data(), text(u"z").data(), 0);
    EXPECT_EQ(out[0], 'a');
}

TEST(Wcs, AppendingEndsWithATerminator)
{
    Text out = {'a', 0, '#', '#', '#', '#'};

    EXPECT_EQ(kel_wcscat(out.data(), text(u"b").data()), out.data());
    EXPECT_EQ(out, (Text{'a', 'b', 0, '#', '#', '#'}));
    EXPECT_EQ(kel_wcsncat(out.data(), text(u"cdef").data(), 2), out.data());
    EXPECT_EQ(out, (Text{'a', 'b', 'c', 'd', 0, '#'}));
    (void)kel_wcsncat(out.data(), text(u"z").data(), 0);
    EXPECT_EQ(out, (Text{'a', 'b', 'c', 'd', 0, '#'}));
}

TEST(Wcs, BoundedAppendReadsNoFurther)
{
    const Text unterminated = {'x', 'y'};
    Text out = {0, '#', '#', '#'};

    (void)kel_wcsncat(out.data(), unterminated.data(), 2);

    EXPECT_EQ(out, (Text{'x', 'y', 0, '#'}));
}

TEST(Wcs, ComparisonIsTheDifferenceOfUnits)
{
    EXPECT_EQ(kel_wcsncmp(text(u"ab").data(), text(u"ab").data(), 9), 0);
    EXPECT_EQ(kel_wcsncmp(text(u"a\uFFFF").data(), text(u"a\u0001").data(), 9), 0xFFFE);
    EXPECT_EQ(kel_wcsncmp(text(u"a\u0001").data(), text(u"a\uFFFF").data(), 9), -0xFFFE);
    EXPECT_EQ(kel_wcsncmp(text(u"ab").data(), text(u"abc").data(), 9), -'c');
    EXPECT_EQ(kel_wcsncmp(text(u"abX").data(), text(u"abY").data(), 2), 0);
    EXPECT_EQ(kel_wcsncmp(nullptr, nullptr, 0), 0);
}

TEST(Wcs, ComparisonEndsAtTheFirstTerminator)
{
    const Text a = {'a', 0, 'x'};
    const Text b = {'a', 0, 'y'};

    EXPECT_EQ(kel_wcsncmp(a.data(), b.data(), 3), 0);
}

TEST(Wcs, FindsFirstAndLastUnits)
{
    const Text t = text(u"abcab");

    EXPECT_EQ(kel_wcschr(t.data(), 'b'), &t[1]);
    EXPECT_EQ(kel_wcsrchr(t.data(), 'b'), &t[4]);
    EXPECT_EQ(kel_wcsrchr(t.data(), 'c'), &t[2]);
    EXPECT_EQ(kel_wcschr(t.data(), 'z'), nullptr);
    EXPECT_EQ(kel_wcsrchr(t.data(), 'z'), nullptr);
    EXPECT_EQ(kel_wcschr(t.data(), 0), &t[5]);
    EXPECT_EQ(kel_wcsrchr(t.data(), 0), &t[5]);
    EXPECT_EQ(kel_wcsrchr(text(u"").data(), 'a'), nullptr);
    const Text first = text(u"xaaa");
    EXPECT_EQ(kel_wcsrchr(first.data(), 'x'), first.data());
}

TEST(Wcs, SpansAndBreaks)
{
    const Text t = text(u"aabbc");

    EXPECT_EQ(kel_wcsspn(t.data(), text(u"ba").data()), 4U);
    EXPECT_EQ(kel_wcsspn(t.data(), text(u"").data()), 0U);
    EXPECT_EQ(kel_wcsspn(t.data(), text(u"abc").data()), 5U);
    EXPECT_EQ(kel_wcscspn(t.data(), text(u"cb").data()), 2U);
    EXPECT_EQ(kel_wcscspn(t.data(), text(u"").data()), 5U);
    EXPECT_EQ(kel_wcspbrk(t.data(), text(u"cb").data()), &t[2]);
    EXPECT_EQ(kel_wcspbrk(t.data(), text(u"xyz").data()), nullptr);
    EXPECT_EQ(kel_wcspbrk(t.data(), text(u"").data()), nullptr);
}

TEST(Wcs, FindsANeedle)
{
    const Text t = text(u"aaab");

    EXPECT_EQ(kel_wcswcs(t.data(), text(u"aab").data()), &t[1]);
    EXPECT_EQ(kel_wcswcs(t.data(), text(u"").data()), t.data());
    EXPECT_EQ(kel_wcswcs(t.data(), text(u"abc").data()), nullptr);
    EXPECT_EQ(kel_wcswcs(text(u"").data(), text(u"a").data()), nullptr);
    const Text empty = text(u"");
    EXPECT_EQ(kel_wcswcs(empty.data(), text(u"").data()), empty.data());
}

TEST(Wcs, TokensInTurn)
{
    Text t = text(u",;ab,,c;");
    const Text delimiters = text(u";,");
    std::uint16_t* rest = nullptr;

    EXPECT_EQ(kel_wcstok(t.data(), delimiters.data(), &rest), &t[2]);
    EXPECT_EQ(rest, &t[5]);
    EXPECT_EQ(t[4], 0);
    EXPECT_EQ(t[5], ',');
    EXPECT_EQ(kel_wcstok(nullptr, delimiters.data(), &rest), &t[6]);
    EXPECT_EQ(t[7], 0);
    EXPECT_EQ(rest, &t[8]);
    EXPECT_EQ(kel_wcstok(nullptr, delimiters.data(), &rest), nullptr);
    EXPECT_EQ(rest, &t[8]);
}

TEST(Wcs, LastTokenLeavesTheTerminator)
{
    Text t = text(u"ab");
    std::uint16_t* rest = nullptr;

    EXPECT_EQ(kel_wcstok(t.data(), text(u",").data(), &rest), t.data());
    EXPECT_EQ(rest, &t[2]);
    EXPECT_EQ(kel_wcstok(nullptr, text(u",").data(), &rest), nullptr);
    EXPECT_EQ(kel_wcstok(nullptr, text(u",").data(), &rest), nullptr);
}

TEST(Wcs, OnlyDelimitersAreNoToken)
{
    Text t = text(u",,,");
    std::uint16_t* rest = nullptr;

    EXPECT_EQ(kel_wcstok(t.data(), text(u",").data(), &rest), nullptr);
    EXPECT_EQ(rest, &t[3]);
    EXPECT_EQ(kel_wcstok(nullptr, text(u",").data(), &rest), nullptr);
    EXPECT_EQ(rest, &t[3]);
}

// Every unit by itself, in a text that holds it and in one that does not.
TEST(Wcs, EveryUnitIsFound)
{
    for (unsigned unit = 1; unit < 0x10000; ++unit) {
        const auto u = static_cast<std::uint16_t>(unit);
        const auto other = static_cast<std::uint16_t>(unit == 1 ? 2 : unit - 1);
        const std::uint16_t t[] = {other, u, other, u, 0};
        const std::uint16_t just[] = {u, 0};
        ASSERT_EQ(kel_wcschr(t, u), t + 1) << unit;
        ASSERT_EQ(kel_wcsrchr(t, u), t + 3) << unit;
        ASSERT_EQ(kel_wcspbrk(t, just), t + 1) << unit;
        ASSERT_EQ(kel_wcswcs(t, just), t + 1) << unit;
        ASSERT_EQ(kel_wcscspn(t, just), 1U) << unit;
        ASSERT_EQ(kel_wcsspn(t + 1, just), 1U) << unit;
        ASSERT_EQ(kel_wcslen(t), 4U) << unit;
        ASSERT_EQ(kel_wcsncmp(just, t, 1), int{u} - int{other}) << unit;
    }
}

[[nodiscard]] std::ptrdiff_t offset(const Text& t, const std::uint16_t* at)
{
    return at != nullptr ? at - t.data() : -1;
}
[[nodiscard]] std::ptrdiff_t offset(std::size_t position)
{
    return position != std::u16string::npos ? static_cast<std::ptrdiff_t>(position) : -1;
}

// Random short texts over few letters, so that matches are frequent, against std::u16string.
TEST(Wcs, AgreesWithTheStandardLibrary)
{
    std::mt19937 random(1);
    const auto any = [&](std::size_t most) {
        std::u16string t(random() % (most + 1), u'a');
        for (char16_t& unit : t) unit = static_cast<char16_t>(u'a' + random() % 3);
        return t;
    };
    for (int round = 0; round < 20000; ++round) {
        const std::u16string a = any(12);
        const std::u16string b = any(3);
        const Text ta = text(a);
        const Text tb = text(b);
        const std::size_t first_in = a.find_first_not_of(b);
        ASSERT_EQ(kel_wcsspn(ta.data(), tb.data()), first_in == a.npos ? a.size() : first_in);
        ASSERT_EQ(offset(ta, kel_wcspbrk(ta.data(), tb.data())), offset(a.find_first_of(b)));
        ASSERT_EQ(offset(ta, kel_wcswcs(ta.data(), tb.data())), offset(a.find(b)));
        ASSERT_EQ(offset(ta, kel_wcsrchr(ta.data(), 'b')), offset(a.rfind(u'b')));
        const int order = kel_wcsncmp(ta.data(), tb.data(), 2);
        const int expected = a.substr(0, 2).compare(b.substr(0, 2));
        ASSERT_EQ(order < 0, expected < 0);
        ASSERT_EQ(order > 0, expected > 0);
    }
}

}  // namespace

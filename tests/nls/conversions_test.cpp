// The printf conversions that a translation is checked by.
#include "tools/corvanemsg/conversions.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using corvane::msg::conversions;
using testing::ElementsAre;

TEST(Conversions, AreTheArgumentsInOrder)
{
    EXPECT_THAT(conversions(""), ElementsAre());
    EXPECT_THAT(conversions("no conversion"), ElementsAre());
    EXPECT_THAT(conversions("%s failed: %d%c"), ElementsAre("s", "d", "c"));
    EXPECT_THAT(conversions("%hhd %hd %ld %lld %jd %zu %td %Lf"),
                ElementsAre("hhd", "hd", "ld", "lld", "jd", "zu", "td", "Lf"));
}

TEST(Conversions, WidthsAndFlagsDoNotMatterUnlessTheyAreArguments)
{
    EXPECT_THAT(conversions("%-20s %08.3f %+ #x %'d"), ElementsAre("s", "f", "x", "d"));
    EXPECT_THAT(conversions("%*d %.*s %-*.*f"), ElementsAre("*", "d", "*", "s", "*", "*", "f"));
}

TEST(Conversions, TwoWaysToWriteAnIntegerAreOne)
{
    EXPECT_EQ(conversions("%i"), conversions("%d"));
    EXPECT_NE(conversions("%u"), conversions("%d"));
}

TEST(Conversions, PercentSignsTakeNothing)
{
    EXPECT_THAT(conversions("100%% %s %%%%"), ElementsAre("s"));
}

TEST(Conversions, WhatNoMessageMayUseStandsForItself)
{
    EXPECT_THAT(conversions("%n"), ElementsAre("?"));
    EXPECT_THAT(conversions("50%"), ElementsAre("?"));
    EXPECT_THAT(conversions("%2$s %1$d"), ElementsAre("2?", "1?"));
    EXPECT_THAT(conversions("%l"), ElementsAre("l?"));
    EXPECT_THAT(conversions("%-"), ElementsAre("-?"));
}

}  // namespace

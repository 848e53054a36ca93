// Fields of delimited texts.
#include "osl/token.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace {

std::string field(const char* text, int index, int capacity = 64)
{
    std::array<char, 64> result;
    result.fill('#');
    EXPECT_EQ(token_getToken(text, ':', index, result.data(), capacity), result.data());
    return result.data();
}

TEST(Token, CountsDelimitersAndATextThatDoesNotEndInOne)
{
    struct Row {
        const char* text;
        int count;
    };
    for (const auto& [text, count] : {Row{"", 0}, Row{"a", 1}, Row{":", 1}, Row{"a:b", 2},
                                      Row{"a:b:", 2}, Row{"a::b", 3}, Row{"::", 2}, Row{":a", 2}}) {
        EXPECT_EQ(token_getNumTokens(text, ':'), count) << text;
    }
    EXPECT_EQ(token_getNumTokens("a:b c d", ' '), 3);
}

TEST(Token, FieldsLieBetweenDelimiters)
{
    EXPECT_EQ(field("a:bc:d", 0), "a");
    EXPECT_EQ(field("a:bc:d", 1), "bc");
    EXPECT_EQ(field("a:bc:d", 2), "d");
    EXPECT_EQ(field("a::d", 1), "");
    EXPECT_EQ(field(":x", 0), "");
    EXPECT_EQ(field(":x", 1), "x");
}

TEST(Token, AFieldThatIsNotThereIsEmpty)
{
    EXPECT_EQ(field("a:b", 2), "");
    EXPECT_EQ(field("a:b:", 2), "");
    EXPECT_EQ(field("a:b", 1000000000), "");
    EXPECT_EQ(field("a:b", -1), "");
    EXPECT_EQ(field("", 0), "");
}

TEST(Token, FieldsAreCutToTheCapacity)
{
    EXPECT_EQ(field("x:abcdef", 1, 7), "abcdef");
    EXPECT_EQ(field("x:abcdef", 1, 6), "abcde");
    EXPECT_EQ(field("x:abcdef", 1, 1), "");
    std::array<char, 2> untouched{'#', '#'};
    token_getToken("abc", ':', 0, untouched.data(), 0);
    EXPECT_EQ(untouched[0], '#');
}

TEST(Token, UnquoteDropsEveryDoubleQuote)
{
    std::array<char, 32> text{"\"a\"\"b'c\""};

    EXPECT_EQ(unquote(text.data()), text.data());

    EXPECT_STREQ(text.data(), "ab'c");
}

TEST(Token, MatchesAPrefixThatEndsWhereANameDoes)
{
    EXPECT_EQ(doesMatch("/vol", "/vol"), 1);
    EXPECT_EQ(doesMatch("/vol", "/vol/data"), 1);
    EXPECT_EQ(doesMatch("/vol", "/volume"), 0);
    EXPECT_EQ(doesMatch("/vol", "/vo"), 0);
    EXPECT_EQ(doesMatch("/vol/", "/vol/data"), 0);
    EXPECT_EQ(doesMatch("", "/vol"), 1);
    EXPECT_EQ(doesMatch("", ""), 1);
    EXPECT_EQ(doesMatch("", "vol"), 0);
}

}  // namespace

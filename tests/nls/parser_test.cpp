// The source language: directives, message lines, quoting, escapes, diagnostics.
#include <gtest/gtest.h>

#include "tests/nls/compiler_support.hpp"

namespace {

using namespace corvane::test;

struct Accepted {
    const char* name;
    std::string source;
    std::string model;
};

class AcceptedSource : public testing::TestWithParam<Accepted> {};

TEST_P(AcceptedSource, MakesItsSetsAndMessagesWithoutAWord)
{
    const Compiler compiler;
    EXPECT_EQ(compiler.parse(GetParam().source), "");
    EXPECT_EQ(Compiler::model(), GetParam().model);
}

const Accepted kAccepted[] = {
    {"Nothing", "", ""},
    {"SetOnly", "$set 3\n", "3{}"},
    {"SetWithoutLineFeed", "$set 3", "3{}"},
    {"SetZero", "$set 0\n1 a\n", "0{1=a}"},
    {"SetsInOrderOfNumber", "$set 3\n$set 1\n$set 2\n$set 9\n$set 0\n", "0{}1{}2{}3{}9{}"},
    {"SetIsReused", "$set 2\n1 a\n$set 1\n1 b\n$set 2\n2 c\n", "1{1=b}2{1=a|2=c}"},
    {"SetAfterTabsAndBlanks", "$set \t 12 \n", "12{}"},
    {"SetName", "$set 1 # Name\n", "1[Name]{}"},
    {"SetNameWithoutBlank", "$set 1 #Name rest\n", "1[Name]{}"},
    {"SetNameRightBehindTheNumber", "$set 1#Name\n", "1[Name]{}"},
    {"SetNameIsEmpty", "$set 1 #\n", "1{}"},
    {"SetLosesItsName", "$set 1 # Name\n$set 1\n", "1{}"},
    {"SetGetsAnotherName", "$set 1 # Old\n$set 1 # New\n", "1[New]{}"},
    {"DelsetDeletesMessagesToo", "$set 1\n1 a\n$set 2\n1 b\n$delset 1\n2 c\n", "2{1=b|2=c}"},
    {"DelsetOfAll", "$set 1\n$set 2\n$delset 2\n$delset 1\n", ""},
    {"Comment", "$ a comment\n$\tanother\n$ \n", ""},
    {"LoneDollar", "$\n", ""},
    {"CommentNamesTheNextMessage", "$set 1\n$ # One\n1 a\n2 b\n", "1{1[One]=a|2=b}"},
    {"CommentNameWithoutBlank", "$set 1\n$ #One more\n1 a\n", "1{1[One]=a}"},
    {"CommentWithAHashLater", "$set 1\n$ see #One\n1 a\n", "1{1=a}"},
    {"LaterNameCounts", "$set 1\n$ # One\n$ # Two\n1 a\n", "1{1[Two]=a}"},
    {"ReplacedMessageLosesItsName", "$set 1\n$ # One\n1 a\n1 b\n", "1{1=b}"},
    {"MessagesInOrderOfNumber", "$set 1\n5 e\n1 a\n3 c\n2 b\n9 i\n4 d\n",
     "1{1=a|2=b|3=c|4=d|5=e|9=i}"},
    {"MessageReplacesAnEarlierOne", "$set 1\n1 a\n2 b\n1 c\n", "1{1=c|2=b}"},
    {"NumberAloneIsAnEmptyText", "$set 1\n5\n", "1{5=}"},
    {"NumberAndBlankIsAnEmptyText", "$set 1\n5 \n", "1{5=}"},
    {"OneWhiteSpaceIsSkipped", "$set 1\n1  a\n2\t\tb \n", "1{1= a|2=\tb }"},
    {"LeadingZeros", "$set 01\n007 a\n", "1{7=a}"},
    {"LargestNumbers", "$set 2147483647\n2147483647 a\n", "2147483647{2147483647=a}"},
    {"NumbersBeyondAreHeldAtTheLargest", "$set 4294967297\n99999999999999999999 a\n",
     "2147483647{2147483647=a}"},
    {"AutomaticNumbers", "$set 1\n# a\n# b\n", "1{1=a|2=b}"},
    {"AutomaticFollowsTheLastLine", "$set 1\n7 a\n# b\n3 c\n# d\n", "1{3=c|4=d|7=a|8=b}"},
    {"AutomaticRestartsWithEverySet", "$set 1\n# a\n# b\n$set 2\n# c\n$set 1\n# d\n",
     "1{1=d|2=b}2{1=c}"},
    {"AutomaticEmpty", "$set 1\n#\n# \n#\t\n# a\n", "1{1=|2=|3=|4=a}"},
    {"OtherLinesAreIgnored", "$set 1\n\n a\nabc\n-1 x\n\\\n\"q\"\n1 a\n", "1{1=a}"},
    {"CarriageReturnBelongsToTheText", "$set 1\n1 a\r\n", "1{1=a\r}"},
    {"ZeroByteEndsALine", std::string("$set 1\n1 a\0b\n2 c\n", 17), "1{1=a|2=c}"},
    {"Bytes", "$set 1\n1 \xC3\xA9\xFF\x01\n", "1{1=\xC3\xA9\xFF\x01}"},

    {"WithoutQuotingQuotesAreText", "$set 1\n1 \"a\"\n", "1{1=\"a\"}"},
    {"QuotedText", "$quote \"\n$set 1\n1 \"a b\"\n", "1{1=a b}"},
    {"QuotedTextThenBlanks", "$quote \"\n$set 1\n1 \"a \"  \t\n", "1{1=a }"},
    {"QuoteKeepsLeadingBlanks", "$quote \"\n$set 1\n1 \"  a\"\n", "1{1=  a}"},
    {"QuotedWithoutEnd", "$quote \"\n$set 1\n1 \"a \n", "1{1=a }"},
    {"OnlyAnEndQuote", "$quote \"\n$set 1\n1 a\"\n", "1{1=a}"},
    {"EmptyQuotes", "$quote \"\n$set 1\n1 \"\"\n2 \"\n", "1{1=|2=}"},
    {"AnyQuoteCharacter", "$quote \t '\n$set 1\n1 'a\"b'\n", "1{1=a\"b}"},
    {"QuotingOffByDirective", "$quote \"\n$quote\n$set 1\n1 \"a\"\n", "1{1=\"a\"}"},
    {"QuotingOffByBlank", "$quote \"\n$quote \n$set 1\n1 \"a\"\n", "1{1=\"a\"}"},
    {"EscapedQuoteInQuotes", "$quote \"\n$set 1\n1 \"a\\\"b\"\n", "1{1=a\"b}"},

    {"Letters", "$set 1\n1 \\n\\b\\f\\r\\t\\v\\\"\\\\\n", "1{1=\n\b\f\r\t\v\"\\}"},
    {"Octal", "$set 1\n1 \\101\\7\\1012\\60x\n",
     "1{1=A\a"
     "A20x}"},
    {"OctalKeepsEightBits", "$set 1\n1 \\703x\n", "1{1=\xC3x}"},
    {"OctalZeroEndsTheText", "$set 1\n1 a\\0b\n", "1{1=a}"},
    {"ContinuedLine", "$set 1\n1 a\\\n  b\\\n3 c\n2 d\n", "1{1=a  b3 c|2=d}"},
    {"ContinuedInQuotes", "$quote \"\n$set 1\n1 \"a\\\nb\"\n", "1{1=ab}"},
    {"ContinuedByAnEmptyLine", "$set 1\n1 a\\n\\\n\n2 b\n", "1{1=a\n|2=b}"},
};

INSTANTIATE_TEST_SUITE_P(Rules, AcceptedSource, testing::ValuesIn(kAccepted),
                         [](const auto& row) { return row.param.name; });

struct Warned {
    const char* name;
    std::string source;
    std::string errors;
    std::string model;
};

class WarnedSource : public testing::TestWithParam<Warned> {};

TEST_P(WarnedSource, IsReadWithAWarning)
{
    const Compiler compiler;
    EXPECT_EQ(compiler.parse(GetParam().source), GetParam().errors);
    EXPECT_EQ(Compiler::model(), GetParam().model);
}

const Warned kWarned[] = {
    {"UnrecognizedDirective", "$set 1\n$foo\n1 a\n",
     "gencat: unrecognized line on line 2\n$foo\n ^\n", "1{1=a}"},
    {"SetWithoutSpace", "$set5\n", "gencat: expected a space on line 1\n$set5\n    ^\n", "5{}"},
    {"SetWithoutNumber", "$set \n", "gencat: wasn't expecting a space on line 1\n$set \n     ^\n",
     ""},
    {"SetWithAWord", "$set abc\n", "gencat: unrecognized line on line 1\n$set abc\n     ^\n", ""},
    {"DelsetOfNone", "$delset 4\n", "gencat: specified set doesn't exist on line 1\n$delset 4\n",
     ""},
    {"QuoteWithoutSpace", "$quote'\n$set 1\n1 'a'\n",
     "gencat: expected a space on line 1\n$quote'\n      ^\n", "1{1=a}"},
    {"AutomaticWithoutSpace", "$set 1\n#xa\n", "gencat: expected a space on line 2\n#xa\n ^\n",
     "1{1=a}"},
    {"AutomaticWithOneCharacter", "$set 1\n#x\n", "gencat: expected a space on line 2\n#x\n ^\n",
     "1{1=}"},
    {"NumberWithoutSpace", "$set 1\n1a b\n", "gencat: expected a space on line 2\n1a b\n ^\n",
     "1{1=a b}"},
    {"QuoteInTheMiddle", "$quote \"\n$set 1\n1 \"a\"b\"\n",
     "gencat: unexpected quote character, ignoreing on line 3\n1 \"a\"b\"\n    ^\n", "1{1=a\"b}"},
    {"UnknownEscape", "$set 1\n1 a\\qb\n",
     "gencat: unrecognized escape sequence on line 2\n1 a\\qb\n    ^\n", "1{1=aqb}"},
    {"OctalEight", "$set 1\n1 \\8\n",
     "gencat: octal number greater than 7?! on line 2\n1 \\8\n   ^\n", "1{1=\b}"},
    {"OctalNines", "$set 1\n1 \\799\n",
     "gencat: octal number greater than 7?! on line 2\n1 \\799\n    ^\n"
     "gencat: octal number greater than 7?! on line 2\n1 \\799\n     ^\n",
     "1{1=\x11}"},
    {"LineOfAContinuedText", "$set 1\n1 a\\\nb\\q\n",
     "gencat: unrecognized escape sequence on line 3\nb\\q\n  ^\n", "1{1=abq}"},
};

INSTANTIATE_TEST_SUITE_P(Rules, WarnedSource, testing::ValuesIn(kWarned),
                         [](const auto& row) { return row.param.name; });

struct Fatal {
    const char* name;
    std::string source;
    std::string errors;
};

class FatalSource : public testing::TestWithParam<Fatal> {};

TEST_P(FatalSource, EndsTheProcessWithStatusOne)
{
    const Compiler compiler;
    EXPECT_EXIT(compiler.parse_openly(GetParam().source), testing::ExitedWithCode(1),
                "^" + GetParam().errors + "$");
}

// The expectations are patterns: what they escape is literal.
const Fatal kFatal[] = {
    {"NegativeSet", "$set -1\n",
     "gencat: setId's must be greater than zero on line 1\n\\$set -1\n"},
    {"MessageZero", "$set 1\n0 a\n", "gencat: msgId's must be greater than zero on line 2\n0 a\n"},
    {"MessageWithoutSet", "1 a\n",
     "gencat: can't specify a message when no set exists on line 1\n1 a\n"},
    {"AutomaticWithoutSet", "\n# a\n",
     "gencat: can't specify a message when no set exists on line 2\n# a\n"},
    {"MessageAfterItsSetIsGone", "$set 1\n$delset 1\n1 a\n",
     "gencat: can't specify a message when no set exists on line 3\n1 a\n"},
    {"AutomaticBehindTheLargest", "$set 1\n2147483647 a\n# b\n",
     "gencat: msgId's must be greater than zero on line 3\n# b\n"},
    {"EndOfFileInAText", "$set 1\n1 a\\\n", "gencat: premature end of file on line 2\n1 a\\\\\n"},
    {"EndOfFileRightBehindTheBackslash", "$set 1\n1 a\\",
     "gencat: premature end of file on line 2\n1 a\\\\\n"},
};

INSTANTIATE_TEST_SUITE_P(Rules, FatalSource, testing::ValuesIn(kFatal),
                         [](const auto& row) { return row.param.name; });

TEST(SourceParser, SetTwoFlagReadsSetOneAsSetTwo)
{
    const Compiler compiler;
    EXPECT_EQ(set2flag, 0);
    set2flag = 1;
    EXPECT_EQ(compiler.parse("$set 1\n1 a\n$set 3\n1 b\n"), "");
    EXPECT_EQ(Compiler::model(), "2{1=a}3{1=b}");
}

TEST(SourceParser, StateNamesCurrentSetAndLine)
{
    const Compiler compiler;
    EXPECT_EQ(compiler.parse("$set 4\n1 a\n$set 2\n$ end"), "");
    ASSERT_NE(curSet, nullptr);
    EXPECT_EQ(curSet->setId, 2);
    EXPECT_EQ(lineno, 4);
    EXPECT_STREQ(curline, "$ end");
}

TEST(SourceParser, SecondSourceAddsToTheFirst)
{
    const Compiler compiler;
    EXPECT_EQ(compiler.parse("$set 1\n1 a\n2 b\n"), "");
    EXPECT_EQ(compiler.parse("$set 1\n2 c\n$set 2\n1 d\n"), "");
    EXPECT_EQ(Compiler::model(), "1{1=a|2=c}2{1=d}");
    EXPECT_EQ(lineno, 4) << "lines count from 1 in each source";
}

TEST(SourceParser, LinesOfAnyLengthAreRead)
{
    // Lengths around the read buffer and around powers of two, where the line buffer grows.
    for (const std::size_t length :
         {250U, 255U, 256U, 257U, 4090U, 4095U, 4096U, 4097U, 8191U, 70000U, 10000000U}) {
        const Compiler compiler;
        const std::string text(length, 'x');
        EXPECT_EQ(compiler.parse("$set 1\n1 " + text + "\n2 end\n"), "");
        EXPECT_EQ(Compiler::model(), "1{1=" + text + "|2=end}");
    }
}

TEST(SourceParser, LineOfManyErrorsIsShownOnlySoOften)
{
    const Compiler compiler;
    std::string text;
    for (int i = 0; i < 100000; ++i) text += "\\q";

    const std::string errors = compiler.parse("$set 1\n1 " + text + "\n");

    EXPECT_EQ(Compiler::model(), "1{1=" + std::string(100000, 'q') + "}");
    EXPECT_LT(errors.size(), 100000U * 60 + 16 * 2 * 210000);
}

TEST(SourceParser, NumbersInAnyOrderTakeNoSquareOfTime)
{
    // A hundred thousand numbers in descending order and in a scrambled one.
    const Compiler compiler;
    std::string source = "$set 1\n";
    for (int number = 100000; number > 0; --number) source += std::to_string(number) + " a\n";
    source += "$set 2\n";
    for (int step = 0; step < 100000; ++step)
        source += std::to_string(1 + step * 7919LL % 100000) + " b\n";
    EXPECT_EQ(compiler.parse(source), "");
    for (const MCSetNode* set = cat->first; set != nullptr; set = set->next) {
        int expected = 0;
        for (const MCMessageNode* message = set->first; message != nullptr;
             message = message->next) {
            ASSERT_EQ(message->msgId, ++expected);
        }
        EXPECT_EQ(expected, 100000);
    }
}

TEST(SourceParser, UnreadableSourceIsFatal)
{
    const Compiler compiler;
    const Descriptor directory("/", O_RDONLY | O_DIRECTORY);
    EXPECT_EXIT(MCParse(directory), testing::ExitedWithCode(1),
                "^gencat: unable to read the source on line 0\n\n$");
}

}  // namespace

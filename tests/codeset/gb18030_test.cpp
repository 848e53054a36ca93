// GB18030: linear numbers, the range block made by hand, and the code points beyond the BMP.
#include <gtest/gtest.h>

#include "tests/codeset/support.hpp"
#include "tests/codeset/table_writer.hpp"

namespace {

using namespace corvane::test;

constexpr std::size_t kBlock = 1760;
constexpr std::size_t kWords = kBlock + 32;

struct Range {
    unsigned first, last, kind, parameter;
};

// A table whose two directions have their own ranges, at words 0 and 200, each with an index of
// zeros in front of its values 7, 8, 9.
class RangeTable : public TableWriter {
public:
    RangeTable(std::initializer_list<Range> from, std::initializer_list<Range> to)
        : TableWriter(KEL_TYPE_GB18030)
    {
        image.assign(kWords + 2 * 400, '\0');
        std::memcpy(&image[8], "ucv", 3);
        put16(48, KEL_TYPE_GB18030);
        put16(38, kBlock);
        add_lists(0, 0, from);
        add_lists(16, 200, to);
    }

    void put_word(std::size_t number, unsigned value) { put16(kWords + 2 * number, value); }

private:
    void add_lists(std::size_t bases_at, unsigned start, std::initializer_list<Range> ranges)
    {
        put32(kBlock + bases_at, start);           // ranges
        put32(kBlock + bases_at + 4, start + 60);  // 128 index words
        put32(kBlock + bases_at + 8, start + 190);
        std::size_t at = start;
        for (const Range& range : ranges) {
            for (const unsigned word : {range.first, range.last, range.kind, range.parameter}) {
                put_word(at++, word);
            }
        }
        for (const unsigned word : {0xFFFFU, 0xFFFFU, 0U, 0x3FU}) put_word(at++, word);
        for (unsigned i = 0; i < 3; ++i) put_word(start + 190 + i, i == 0 ? 7 : i + 0x4E00);
    }
};

TEST(Gb18030, ReadsListedAndLinearRanges)
{
    // 81 40, 81 41, 81 42 are numbers 1, 2, 3; 81 30 81 30 is number 24067.
    RangeTable table({}, {{1, 2, 1, 1}, {3, 10, 2, 0x3400}, {24067, 24070, 2, 0x80}});

    EXPECT_EQ(to_ucs2(table.object(), "\x81\x40\x81\x41\x81\x42\x81\x43"),
              (Units{KEL_DONE, u"\u4E01\u4E02\u3400\u3401"}));
    EXPECT_EQ(to_ucs2(table.object(), "\x81\x30\x81\x30\x81\x30\x81\x31"),
              (Units{KEL_DONE, u"\u0080\u0081"}));
    EXPECT_EQ(to_utf8(table.object(), "\x81\x30\x81\x30"), (Bytes{KEL_DONE, "\xC2\x80"}));
}

TEST(Gb18030, ReadsTheLastOfSeveralCoveringRanges)
{
    RangeTable table({}, {{1, 9, 2, 0x3400}, {2, 3, 2, 0x5000}, {3, 3, 0, 0}});

    EXPECT_EQ(to_ucs2(table.object(), "\x81\x40\x81\x41\x81\x42\x81\x43"),
              (Units{KEL_DONE, u"\u3400\u5000\u5001\u3403"}));
}

TEST(Gb18030, NumberWithoutRangeReadsAsQuestionMark)
{
    RangeTable table({}, {{5, 9, 2, 0x3400}, {10, 12, 3, 0x3400}, {13, 13, 2, 0xFFFF}});

    EXPECT_EQ(to_ucs2(table.object(), "\x81\x40"), (Units{KEL_DONE, u"?"}));
    EXPECT_EQ(to_ucs2(table.object(), "\x81\x49"), (Units{KEL_DONE, u"?"}));  // an unknown kind
    EXPECT_EQ(to_ucs2(table.object(), "\x81\x4C"), (Units{KEL_DONE, u"?"}));  // U+FFFF
}

// A linear range that counts past 65535 gives a character beyond the BMP.
TEST(Gb18030, LinearRangeMayLeaveTheBmp)
{
    RangeTable table({}, {{1, 9, 2, 0xFFFF}});

    EXPECT_EQ(to_ucs2(table.object(), "\x81\x41"), (Units{KEL_DONE, u"\U00010000"}));
}

TEST(Gb18030, LeadsOutOfRangeAreOneQuestionMarkEach)
{
    RangeTable table({}, {});

    EXPECT_EQ(to_ucs2(table.object(), "\x80\xFF\x41"), (Units{KEL_DONE, u"??A"}));
    EXPECT_EQ(to_utf8(table.object(), "\x80\xFF\x41"), (Bytes{KEL_DONE, "??A"}));
}

// A second byte below 0x30 counts down from the lead's first number: before the lowest lead's to
// nothing.
TEST(Gb18030, SecondByteBelow30CountsBack)
{
    RangeTable table({}, {{0, 400, 2, 0x3400}});

    EXPECT_EQ(to_ucs2(table.object(), "\x81\x20\x81 A"), (Units{KEL_DONE, u"??A"}));
    EXPECT_EQ(to_ucs2(table.object(), "\x82\x2F"), (Units{KEL_DONE, u"\u34AF"}));
}

TEST(Gb18030, SecondByteOf30To3FMakesFourBytes)
{
    RangeTable table({}, {});

    EXPECT_EQ(to_ucs2(table.object(), "\x81\x3F\x41\x41Z"), (Units{KEL_DONE, u"?Z"}));
    EXPECT_EQ(to_ucs2(table.object(), "A\x81\x30\x81"), (Units{KEL_INCOMPLETE, u"A"}));
    EXPECT_EQ(to_ucs2(table.object(), "A\x81"), (Units{KEL_INCOMPLETE, u"A"}));
}

TEST(Gb18030, BeyondTheBmpIsComputed)
{
    RangeTable table({}, {});

    EXPECT_EQ(to_ucs2(table.object(), "\x90\x30\x81\x30\xE3\x32\x9A\x35"),
              (Units{KEL_DONE, u"\U00010000\U0010FFFF"}));
    EXPECT_EQ(to_utf8(table.object(), "\x90\x30\x81\x30\xE3\x32\x9A\x35"),
              (Bytes{KEL_DONE, "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"}));
    EXPECT_EQ(to_ucs2(table.object(), "\xE3\x32\x9A\x36\x8F\x39\xFE\x39"),
              (Units{KEL_DONE, u"??"}));
    EXPECT_EQ(from_ucs2(table.object(), u"\U00010000\U0010FFFF"),
              (Bytes{KEL_DONE, "\x90\x30\x81\x30\xE3\x32\x9A\x35"}));
    EXPECT_EQ(from_utf8(table.object(), "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"),
              (Bytes{KEL_DONE, "\x90\x30\x81\x30\xE3\x32\x9A\x35"}));
}

TEST(Gb18030, PairNeedsRoomForBothUnits)
{
    RangeTable table({}, {});
    kel_cs_t cs = table.object();
    const char text[] = "\x90\x30\x81\x30";
    const char* from = text;
    std::uint32_t from_left = 4;
    std::uint16_t out[2] = {0x2323, 0x2323};
    std::uint16_t* to = out;
    std::uint32_t to_left = 1;

    EXPECT_EQ(kel_to_ucs2_r(&cs, &from, &from_left, &to, &to_left), KEL_FULL);
    EXPECT_EQ(from, text);
    EXPECT_EQ(from_left, 4U);
    EXPECT_EQ(to_left, 1U);
    EXPECT_EQ(out[0], 0x2323);
}

TEST(Gb18030, WritesByTheFirstCoveringRange)
{
    RangeTable table({{0x80, 0x82, 0, 0xA1},
                      {0x100, 0x101, 2, 1},
                      {0x100, 0x110, 2, 24067},
                      {0x200, 0x202, 1, 0}},
                     {});

    // Kind 0 gives the single byte of the key's place in the range; numbers from 24067 four bytes.
    EXPECT_EQ(from_ucs2(table.object(), u"\u0080\u0082"), (Bytes{KEL_DONE, "\xA1\xA3"}));
    EXPECT_EQ(from_ucs2(table.object(), u"\u0100\u0101"), (Bytes{KEL_DONE, "\x81\x40\x81\x41"}));
    EXPECT_EQ(from_ucs2(table.object(), u"\u0102"), (Bytes{KEL_DONE, "\x81\x30\x81\x32"}));
    EXPECT_EQ(from_ucs2(table.object(), u"\u0200"), (Bytes{KEL_DONE, "\x81\x46"}));
    EXPECT_EQ(from_utf8(table.object(), "\xC4\x82"), (Bytes{KEL_DONE, "\x81\x30\x81\x32"}));
}

TEST(Gb18030, CharacterWithoutRangeIsWrittenAsQuestionMark)
{
    RangeTable table({{0x100, 0x101, 2, 1}, {0x200, 0x200, 3, 1}}, {});

    EXPECT_EQ(from_ucs2(table.object(), u"\u0080\u0102\u0200"), (Bytes{KEL_DONE, "???"}));
}

TEST(Gb18030, SurrogatesOfUcs2)
{
    RangeTable table({}, {});
    const std::u16string low{u'A', char16_t{0xDC00}, u'B'};
    const std::u16string high_and_other{char16_t{0xD800}, u'A', u'B'};
    const std::u16string high_last{u'A', char16_t{0xD800}};

    EXPECT_EQ(from_ucs2(table.object(), low), (Bytes{KEL_DONE, "A?B"}));
    EXPECT_EQ(from_ucs2(table.object(), high_and_other), (Bytes{KEL_DONE, "?B"}));
    EXPECT_EQ(from_ucs2(table.object(), high_last), (Bytes{KEL_INCOMPLETE, "A"}));
}

// U+1FFFFF, which three bits more than Unicode's make possible in UTF-8, has no code.
TEST(Gb18030, BeyondUnicodeIsQuestionMark)
{
    RangeTable table({}, {});

    EXPECT_EQ(from_utf8(table.object(), "\xF7\xBF\xBF\xBF"), (Bytes{KEL_DONE, "?"}));
    EXPECT_EQ(from_utf8(table.object(), "\xF8\x80"), (Bytes{KEL_DONE, "??"}));
}

}  // namespace

// The entry points and the built-in code sets: results, pointers, terminators, states, allocation.
#include <gtest/gtest.h>

#include <cstring>

#include "tests/codeset/support.hpp"
#include "tests/codeset/table_writer.hpp"

namespace {

using namespace corvane::test;

// ---- UTF-8 ----

TEST(Utf8, DecodesOneToFourBytes)
{
    EXPECT_EQ(to_ucs2(*utf8_cs, "A\xC3\xA4\xE2\x82\xAC\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"),
              (Units{KEL_DONE, u"A\u00E4\u20AC\U00010000\U0010FFFF"}));
}

TEST(Utf8, DoesNotCheckContinuationBytes)
{
    EXPECT_EQ(to_ucs2(*utf8_cs,
                      "\xC3"
                      "A"),
              (Units{KEL_DONE, u"\u00C1"}));
    EXPECT_EQ(to_ucs2(*utf8_cs, "\xE2\xFF\xC0"), (Units{KEL_DONE, u"\u2FC0"}));
}

TEST(Utf8, RejectsNeitherOverlongFormsNorSurrogates)
{
    EXPECT_EQ(to_ucs2(*utf8_cs, "\xC1\x81\xE0\x81\x82\xF0\x80\x81\x83"), (Units{KEL_DONE, u"ABC"}));
    EXPECT_EQ(to_ucs2(*utf8_cs, "\xED\xA0\x80"),
              (Units{KEL_DONE, std::u16string(1, char16_t{0xD800})}));
}

TEST(Utf8, StrayBytesAreOneQuestionMarkEach)
{
    EXPECT_EQ(to_ucs2(*utf8_cs, "\x80\xBF\xF8\xFFZ"), (Units{KEL_DONE, u"????Z"}));
}

// Beyond Unicode the two halves are what the formulas give.
TEST(Utf8, FourBytesBeyondUnicodeAreStillAPair)
{
    const std::u16string expected{char16_t{0xDFBF}, char16_t{0xDFFF}};

    EXPECT_EQ(to_ucs2(*utf8_cs, "\xF7\xBF\xBF\xBF"), (Units{KEL_DONE, expected}));
}

TEST(Utf8, CutSequencesWait)
{
    for (const char* cut : {"A\xC3", "A\xE2", "A\xE2\x82", "A\xF0", "A\xF0\x90", "A\xF0\x90\x80"}) {
        EXPECT_EQ(to_ucs2(*utf8_cs, cut), (Units{KEL_INCOMPLETE, u"A"})) << hex(cut);
        EXPECT_EQ(to_utf8(*utf8_cs, cut), (Bytes{KEL_INCOMPLETE, "A"})) << hex(cut);
        EXPECT_EQ(from_utf8(*utf8_cs, cut), (Bytes{KEL_INCOMPLETE, "A"})) << hex(cut);
    }
}

TEST(Utf8, EncodesOneToFourBytes)
{
    EXPECT_EQ(from_ucs2(*utf8_cs, u"\u007F\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF"),
              (Bytes{KEL_DONE,
                     "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80"
                     "\xF4\x8F\xBF\xBF"}));
}

TEST(Utf8, HighSurrogateSwallowsWhatFollows)
{
    const std::u16string text{char16_t{0xD800}, u'A', char16_t{0xD800}, char16_t{0xD801}, u'B'};

    EXPECT_EQ(from_ucs2(*utf8_cs, text), (Bytes{KEL_DONE, "??B"}));
}

TEST(Utf8, LoneLowSurrogateIsOneQuestionMark)
{
    EXPECT_EQ(from_ucs2(*utf8_cs, std::u16string{char16_t{0xDC00}, u'A'}), (Bytes{KEL_DONE, "?A"}));
}

TEST(Utf8, HighSurrogateAtTheEndWaits)
{
    EXPECT_EQ(from_ucs2(*utf8_cs, std::u16string{u'A', char16_t{0xDBFF}}),
              (Bytes{KEL_INCOMPLETE, "A"}));
}

TEST(Utf8, ToItselfCopiesWellFormedTextAndReplacesStrayBytes)
{
    const std::string text = "A\xC3\xA4\xE2\x82\xAC\xF0\x90\x80\x80";

    EXPECT_EQ(to_utf8(*utf8_cs, text), (Bytes{KEL_DONE, text}));
    EXPECT_EQ(from_utf8(*utf8_cs, text), (Bytes{KEL_DONE, text}));
    EXPECT_EQ(to_utf8(*utf8_cs,
                      "\xF8"
                      "A\x80"),
              (Bytes{KEL_DONE, "?A?"}));
    EXPECT_EQ(to_utf8(*utf8_cs, "\xC1\x81\xED\xA0\x80"), (Bytes{KEL_DONE, "A\xED\xA0\x80"}));
}

TEST(Utf8, PairNeedsTwoUnitsOfRoom)
{
    kel_cs_t cs = utf8_uc_ch_t;
    const char text[] = "\xF0\x90\x80\x80";
    const char* from = text;
    std::uint32_t from_left = 4;
    std::uint16_t out[2] = {};
    std::uint16_t* to = out;
    std::uint32_t to_left = 1;

    EXPECT_EQ(kel_to_ucs2_r(&cs, &from, &from_left, &to, &to_left), KEL_FULL);
    EXPECT_EQ(from, text);
    EXPECT_EQ(from_left, 4U);
    EXPECT_EQ(to_left, 1U);
    to_left = 2;
    EXPECT_EQ(kel_to_ucs2_r(&cs, &from, &from_left, &to, &to_left), KEL_DONE);
    EXPECT_EQ(out[0], 0xD800);
    EXPECT_EQ(out[1], 0xDC00);
    EXPECT_EQ(to_left, 0U);
}

TEST(Utf8, FullComesBeforeIncompleteAndAfterTheEnd)
{
    kel_cs_t cs = utf8_uc_ch_t;
    const char text[] = "\xC3";
    const char* from = text;
    std::uint32_t from_left = 1;
    std::uint16_t* to = nullptr;
    std::uint32_t to_left = 0;

    EXPECT_EQ(kel_to_ucs2_r(&cs, &from, &from_left, &to, &to_left), KEL_FULL);
    from_left = 0;
    EXPECT_EQ(kel_to_ucs2_r(&cs, &from, &from_left, &to, &to_left), KEL_DONE);
}

TEST(Utf8, FlushClearsTheDirectionsState)
{
    kel_cs_t cs = utf8_uc_ch_t;
    cs.to_state = cs.from_state = 1;
    const char* from = nullptr;
    const std::uint16_t* units_from = nullptr;
    std::uint32_t left = 0;
    char bytes[1];
    char* to = bytes;
    std::uint16_t units[1];
    std::uint16_t* units_to = units;
    std::uint32_t room = 1;

    EXPECT_EQ(kel_to_utf8_r(&cs, &from, &left, &to, &room), KEL_DONE);
    EXPECT_EQ(kel_from_utf8_r(&cs, &from, &left, &to, &room), KEL_DONE);
    EXPECT_EQ(cs.to_state, 1);  // its own converter serves both directions and touches neither
    EXPECT_EQ(cs.from_state, 1);
    EXPECT_EQ(kel_to_ucs2_r(&cs, &from, &left, &units_to, &room), KEL_DONE);
    EXPECT_EQ(cs.to_state, 0);
    EXPECT_EQ(cs.from_state, 1);
    EXPECT_EQ(kel_from_ucs2_r(&cs, &units_from, &left, &to, &room), KEL_DONE);
    EXPECT_EQ(cs.from_state, 0);
    EXPECT_EQ(room, 1U);
}

TEST(Utf8, CutSequenceLeavesTheSourceOnItsLead)
{
    kel_cs_t cs = utf8_uc_ch_t;
    const char text[] = "A\xC3";
    const char* from = text;
    std::uint32_t from_left = 2;
    char out[4] = {};
    char* to = out;
    std::uint32_t to_left = 4;

    EXPECT_EQ(kel_from_utf8_r(&cs, &from, &from_left, &to, &to_left), KEL_INCOMPLETE);
    EXPECT_EQ(from, text + 1);
    EXPECT_EQ(from_left, 1U);
    EXPECT_EQ(to, out + 1);
    EXPECT_EQ(to_left, 3U);
}

// ---- pass-through ----

TEST(Os, CopiesBytesAndWidensOrNarrowsUnits)
{
    EXPECT_EQ(to_utf8(*os_cs, "A\xE4\xFF"), (Bytes{KEL_DONE, "A\xE4\xFF"}));
    EXPECT_EQ(from_utf8(*os_cs, "A\xC3\xA4"), (Bytes{KEL_DONE, "A\xC3\xA4"}));
    EXPECT_EQ(to_ucs2(*os_cs, "A\xE4\xFF"), (Units{KEL_DONE, u"A\u00E4\u00FF"}));
    EXPECT_EQ(from_ucs2(*os_cs, u"A\u20AC\u00E4"), (Bytes{KEL_DONE, "A\xAC\xE4"}));
}

TEST(Os, StopsWhenFull)
{
    kel_cs_t cs = os_uc_ch_t;
    const char* from = "ABC";
    std::uint32_t from_left = 3;
    char out[2];
    char* to = out;
    std::uint32_t to_left = 2;

    EXPECT_EQ(kel_to_utf8_r(&cs, &from, &from_left, &to, &to_left), KEL_FULL);
    EXPECT_EQ(*from, 'C');
    EXPECT_EQ(from_left, 1U);
    EXPECT_EQ(to_left, 0U);
}

TEST(Os, FlushClearsTheDirectionsState)
{
    kel_cs_t cs = os_uc_ch_t;
    cs.to_state = cs.from_state = 1;
    const char* from = nullptr;
    std::uint32_t left = 0;
    char out[1];
    char* to = out;
    std::uint32_t room = 1;

    EXPECT_EQ(kel_to_utf8_r(&cs, &from, &left, &to, &room), KEL_DONE);
    EXPECT_EQ(cs.to_state, 0);
    EXPECT_EQ(cs.from_state, 1);
    EXPECT_EQ(kel_from_utf8_r(&cs, &from, &left, &to, &room), KEL_DONE);
    EXPECT_EQ(cs.from_state, 0);
}

TEST(Os, ServesEveryUnknownType)
{
    for (const unsigned type : {0U, 5U, 7U, 9U, 11U, 255U, 256U + 6, 65535U}) {
        TableWriter table(1);
        kel_cs_t cs = table.object();
        cs.type = static_cast<std::uint16_t>(type);
        EXPECT_EQ(to_ucs2(cs, "\xE4"), (Units{KEL_DONE, u"\u00E4"})) << type;
        EXPECT_EQ(from_ucs2(cs, u"\u20AC"), (Bytes{KEL_DONE, "\xAC"})) << type;
        EXPECT_EQ(to_utf8(cs, "\xE4"), (Bytes{KEL_DONE, "\xE4"})) << type;
        EXPECT_EQ(from_utf8(cs, "\xE4"), (Bytes{KEL_DONE, "\xE4"})) << type;
    }
}

// ---- one-shot forms ----

TEST(OneShot, NoRoomWritesNothing)
{
    char bytes[1] = {'#'};
    std::uint16_t units[1] = {0x23};
    const std::uint16_t text[] = {'A', 0};

    EXPECT_EQ(kel_to_utf8(utf8_cs, "A", -1, bytes, 0), 0U);
    EXPECT_EQ(kel_from_utf8(utf8_cs, "A", -1, bytes, 0), 0U);
    EXPECT_EQ(kel_from_ucs2(utf8_cs, text, -1, bytes, 0), 0U);
    EXPECT_EQ(kel_to_ucs2(utf8_cs, "A", -1, units, 0), 0U);
    EXPECT_EQ(bytes[0], '#');
    EXPECT_EQ(units[0], 0x23);
}

TEST(OneShot, RoomForOneOfATerminatedTextIsItsTerminator)
{
    char bytes[2] = {'#', '#'};

    EXPECT_EQ(kel_from_utf8(utf8_cs, "AB", -1, bytes, 1), 1U);
    EXPECT_EQ(bytes[0], '\0');
    EXPECT_EQ(bytes[1], '#');
}

TEST(OneShot, NegativeLengthCountsTheTerminator)
{
    char bytes[8];
    std::uint16_t units[8];
    const std::uint16_t text[] = {'A', 0xE4, 0};

    EXPECT_EQ(kel_to_ucs2(utf8_cs, "A\xC3\xA4", -1, units, 8), 3U);
    EXPECT_EQ(units[1], 0xE4);
    EXPECT_EQ(units[2], 0);
    EXPECT_EQ(kel_from_ucs2(utf8_cs, text, -7, bytes, 8), 4U);
    EXPECT_STREQ(bytes, "A\xC3\xA4");
    EXPECT_EQ(kel_to_utf8(utf8_cs, "A", -1, bytes, 8), 2U);
    EXPECT_STREQ(bytes, "A");
}

TEST(OneShot, GivenLengthTakesNulsAndAddsNoTerminator)
{
    char bytes[8];
    std::memset(bytes, '#', sizeof bytes);

    EXPECT_EQ(kel_from_utf8(utf8_cs, "A\0B", 3, bytes, 8), 3U);
    EXPECT_EQ(hex({bytes, 4}), "41 00 42 23");
    EXPECT_EQ(kel_from_utf8(utf8_cs, "AB", 0, bytes, 8), 0U);
}

TEST(OneShot, CutsAtACharacterBoundary)
{
    char bytes[8];
    std::memset(bytes, '#', sizeof bytes);

    EXPECT_EQ(kel_to_utf8(utf8_cs, "A\xE2\x82\xAC", 4, bytes, 3), 1U);
    EXPECT_EQ(hex({bytes, 3}), "41 23 23");
    EXPECT_EQ(kel_to_utf8(utf8_cs, "A\xE2\x82\xAC", -1, bytes, 4), 2U);
    EXPECT_EQ(hex({bytes, 4}), "41 00 23 23");
}

TEST(OneShot, DropsAnIncompleteSequence)
{
    std::uint16_t units[4];

    EXPECT_EQ(kel_to_ucs2(utf8_cs, "A\xE2\x82", -1, units, 4), 2U);
    EXPECT_EQ(units[1], 0);
}

// A text of several blocks, with runs of every kind and halves of pairs among them.
[[nodiscard]] std::u16string long_text()
{
    std::u16string text;
    for (int i = 0; i < 12; ++i) {
        text +=
            u"plain text of more than one block, \u65E5\u672C\u8A9E\u3042\u3044\u3046\u3048\u304A"
            u"\u00E4\u00F6\u00FC \u0416\u0416\u0416\u0416 \U0001F600\u4E00x\u00DF\u4E8C";
        text += static_cast<char16_t>(i % 2 == 0 ? 0xD800 : 0xDC00);
    }
    return text;
}

// Blocks may be stored whole while something follows, but never behind what a call counts.
TEST(OneShot, NeverWritesBehindWhatItCounts)
{
    const std::u16string text = long_text();
    const std::vector<std::uint16_t> units(text.begin(), text.end());
    const std::string utf8 = utf8_of_units(text);
    for (std::uint32_t room = 1; room < utf8.size() + 64; ++room) {
        std::vector<std::uint16_t> to_units(2 * utf8.size(), 0x2323);
        std::uint32_t count =
            kel_to_ucs2(utf8_cs, utf8.data(), static_cast<int>(utf8.size()), to_units.data(), room);
        ASSERT_LE(count, room);
        for (std::size_t i = count; i < to_units.size(); ++i)
            ASSERT_EQ(to_units[i], 0x2323) << room;
        std::string to_bytes(2 * utf8.size(), '#');
        count = kel_from_ucs2(utf8_cs, units.data(), static_cast<int>(units.size()),
                              to_bytes.data(), room);
        ASSERT_LE(count, room);
        ASSERT_EQ(to_bytes.find_first_not_of('#', count), std::string::npos) << room;
    }
}

// The same for an input that ends anywhere.
TEST(OneShot, NeverWritesBehindWhatItCountsForAnyLength)
{
    const std::u16string text = long_text();
    const std::vector<std::uint16_t> units(text.begin(), text.end());
    const std::string utf8 = utf8_of_units(text);
    for (std::size_t length = 0; length <= utf8.size(); ++length) {
        std::vector<std::uint16_t> to_units(2 * utf8.size(), 0x2323);
        const std::uint32_t count =
            kel_to_ucs2(utf8_cs, utf8.data(), static_cast<int>(length), to_units.data(),
                        static_cast<std::uint32_t>(to_units.size()));
        for (std::size_t i = count; i < to_units.size(); ++i)
            ASSERT_EQ(to_units[i], 0x2323) << length;
    }
    for (std::size_t length = 0; length <= units.size(); ++length) {
        std::string to_bytes(2 * utf8.size(), '#');
        const std::uint32_t count =
            kel_from_ucs2(utf8_cs, units.data(), static_cast<int>(length), to_bytes.data(),
                          static_cast<std::uint32_t>(to_bytes.size()));
        ASSERT_EQ(to_bytes.find_first_not_of('#', count), std::string::npos) << length;
    }
}

TEST(OneShot, NullSourceIsAnEmptyText)
{
    char bytes[2] = {'#', '#'};

    EXPECT_EQ(kel_from_utf8(utf8_cs, nullptr, -1, bytes, 2), 1U);
    EXPECT_EQ(bytes[0], '\0');
}

// ---- allocating forms ----

TEST(Allocating, ReturnsABufferAndItsCount)
{
    std::uint32_t count = 99;
    char* const out = kel_fromu_alloc(utf8_cs,
                                      "\xC3\xA4"
                                      "A",
                                      3, &count);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(hex({out, count}), "C3 A4 41");
    kel_free(out);

    char* const back = kel_tou_alloc(os_cs, "A\xFF", 2, &count);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(hex({back, count}), "41 FF");
    kel_free(back);
    kel_free(nullptr);
}

// Twice the length and one byte more is all there is, so a longer result is cut.
TEST(Allocating, FromUtf8CutsAtTwiceTheLengthAndOne)
{
    TableWriter table(KEL_TYPE_ASCII_MBCS);
    const unsigned record = table.add(16, 0);
    table.image[TableWriter::place(record)] = '\x8F';
    table.put16(TableWriter::place(record) + 14, 12);
    const unsigned page = table.add(1024, '\xFF');
    table.put16(TableWriter::place(page) + 4 * 0x80, record / 4);
    table.put16(TableWriter::place(page) + 4 * 0x80 + 2, 0xA1A1);
    table.set_page(0, page);
    const kel_cs_t cs = table.object();
    std::uint32_t count = 99;

    char* const out = kel_fromu_alloc(&cs, "A\xC2\x80", 3, &count);

    EXPECT_EQ(count, 1U);  // "A"; the other character needs fourteen bytes of the six left
    kel_free(out);
}

TEST(Allocating, RefusesANegativeLength)
{
    std::uint32_t count = 99;

    EXPECT_EQ(kel_tou_alloc(utf8_cs, "A", -1, &count), nullptr);
    EXPECT_EQ(count, 0U);
}

// ---- flush calls ----

TEST(Flush, TakesNullPointersAndLeavesLengths)
{
    kel_cs_t cs = os_uc_ch_t;
    const char* from = nullptr;
    std::uint32_t from_left = 5;
    char out[1] = {'#'};
    char* to = out;
    std::uint32_t to_left = 1;

    EXPECT_EQ(kel_from_utf8_r(&cs, &from, &from_left, &to, &to_left), KEL_DONE);
    EXPECT_EQ(from, nullptr);
    EXPECT_EQ(to, out);
    EXPECT_EQ(to_left, 1U);
    EXPECT_EQ(out[0], '#');
}

}  // namespace

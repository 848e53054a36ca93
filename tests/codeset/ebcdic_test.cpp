// The EBCDIC families: the built-in tables, the substitution rule, shifts in both directions.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/codeset/iconv_oracle.hpp"
#include "tests/codeset/support.hpp"
#include "tests/codeset/table_writer.hpp"

namespace {

using namespace corvane::test;

TEST(EbcdicTables, FlagTheInvariantSet)
{
    EXPECT_EQ(std::count_if(std::begin(invar_eb_to_ucs), std::end(invar_eb_to_ucs),
                            [](auto flag) { return flag != 0; }),
              115);
    EXPECT_EQ(std::count_if(std::begin(invar_ucs_to_eb), std::end(invar_ucs_to_eb),
                            [](auto flag) { return flag != 0; }),
              114);
    for (unsigned byte = 0; byte < 256; ++byte) {
        if (invar_eb_to_ucs[byte] == 0) continue;
        ASSERT_LT(def_eb_to_ucs[byte], 256U) << byte;
        EXPECT_NE(invar_ucs_to_eb[def_eb_to_ucs[byte]], 0) << byte;
    }
}

struct Span {
    unsigned first, last;
};

// Whether `flags` has one for each value of `spans`, and for no other.
template <std::size_t kSpans>
[[nodiscard]] testing::AssertionResult flags_are(const std::uint8_t (&flags)[256],
                                                 const Span (&spans)[kSpans])
{
    for (unsigned value = 0; value < 256; ++value) {
        const bool expected = std::any_of(std::begin(spans), std::end(spans), [value](Span span) {
            return span.first <= value && value <= span.last;
        });
        if ((flags[value] != 0) != expected) return testing::AssertionFailure() << value;
    }
    return testing::AssertionSuccess();
}

TEST(EbcdicTables, FlagEachInvariantByteAndCharacter)
{
    constexpr Span kBytes[] = {
        {0x00, 0x03}, {0x05, 0x05}, {0x07, 0x07}, {0x0B, 0x13}, {0x15, 0x16}, {0x18, 0x19},
        {0x1C, 0x1F}, {0x25, 0x27}, {0x2D, 0x2F}, {0x32, 0x32}, {0x37, 0x37}, {0x3C, 0x3D},
        {0x3F, 0x40}, {0x4B, 0x4E}, {0x50, 0x50}, {0x5C, 0x5E}, {0x60, 0x61}, {0x6B, 0x6F},
        {0x7A, 0x7A}, {0x7D, 0x7E}, {0x81, 0x89}, {0x91, 0x99}, {0xA2, 0xA9}, {0xC1, 0xC9},
        {0xD1, 0xD9}, {0xE2, 0xE9}, {0xF0, 0xF9},
    };
    constexpr Span kCharacters[] = {{0x00, 0x20}, {0x25, 0x3F}, {0x41, 0x5A},
                                    {0x5F, 0x5F}, {0x61, 0x7A}, {0x7F, 0x7F}};

    EXPECT_TRUE(flags_are(invar_eb_to_ucs, kBytes));
    EXPECT_TRUE(flags_are(invar_ucs_to_eb, kCharacters));
}

TEST(EbcdicTables, AreCodePage1047ButForLineFeeds)
{
    const IconvOracle oracle("IBM1047");

    for (unsigned byte = 0; byte < 256; ++byte) {
        const auto character = oracle.read(std::string(1, static_cast<char>(byte)));
        ASSERT_TRUE(character) << byte;
        EXPECT_EQ(def_eb_to_ucs[byte], byte == 0x15 ? U'\n' : character->front()) << byte;
        const auto code = oracle.write(byte);
        ASSERT_TRUE(code) << byte;
        const unsigned expected = byte == 0x0A   ? 0x15
                                  : byte == 0x85 ? 0x6F
                                                 : static_cast<std::uint8_t>(code->front());
        EXPECT_EQ(def_ucs_to_eb[byte], expected) << byte;
    }
}

// 0x4A is the cent sign, 0x6F is unmapped's own place; the substitution byte 0x3F belongs to
// U+0021.
[[nodiscard]] TableWriter sbcs_table()
{
    TableWriter table(KEL_TYPE_EBCDIC_SBCS);
    table.set_byte_value(0x4A, 0xA2);
    table.set_byte_value(0xC1, 0x1234);  // 'A' is built in, so nobody sees this
    table.set_substitution(0x0021, 0x3F);
    const unsigned page = table.add(256, '\x3F');
    table.image[TableWriter::place(page) + 0xA2] = '\x4A';
    table.image[TableWriter::place(page) + 'A'] = '\x4A';
    for (unsigned i = 0; i < 256; ++i) table.set_page(i, table.add(0, 0));
    const unsigned unmapped = table.add(256, '\x3F');
    for (unsigned i = 1; i < 256; ++i) table.set_page(i, unmapped);
    table.set_page(0, page);
    return table;
}

TEST(EbcdicSbcs, ReadsInvariantBytesWithoutTheTable)
{
    TableWriter table = sbcs_table();

    EXPECT_EQ(to_ucs2(table.object(), "\xC1\x4A\x5A\xF0"), (Units{KEL_DONE, u"A\u00A2?0"}));
    EXPECT_EQ(to_utf8(table.object(), "\xC1\x4A\x5A\xF0"), (Bytes{KEL_DONE, "A\xC2\xA2?0"}));
}

// Long texts go by blocks of sixteen.
TEST(EbcdicSbcs, ReadsUnmappedBytesAnywhereInABlock)
{
    TableWriter table = sbcs_table();
    for (std::size_t at = 0; at < 40; ++at) {
        std::string text(40, '\xC1');
        std::u16string expected(40, u'A');
        text[at] = '\x5A';
        expected[at] = u'?';
        EXPECT_EQ(to_ucs2(table.object(), text), (Units{KEL_DONE, expected})) << at;
    }
}

TEST(EbcdicSbcs, BothLineFeedsReadAsOneAndTheFirstIsWritten)
{
    TableWriter table = sbcs_table();

    EXPECT_EQ(to_ucs2(table.object(), "\x15\x25"), (Units{KEL_DONE, u"\n\n"}));
    EXPECT_EQ(from_ucs2(table.object(), u"\n"), (Bytes{KEL_DONE, "\x15"}));
}

TEST(EbcdicSbcs, WritesUnmappedAsItsOwnQuestionMark)
{
    TableWriter table = sbcs_table();

    EXPECT_EQ(from_ucs2(table.object(), u"A\u00A2\u00A3\u0100"),
              (Bytes{KEL_DONE, "\xC1\x4A\x6F\x6F"}));
    EXPECT_EQ(from_utf8(table.object(), "A\xC2\xA2\xC2\xA3"), (Bytes{KEL_DONE, "\xC1\x4A\x6F"}));
    EXPECT_EQ(from_ucs2(table.object(), u"!\u007B"), (Bytes{KEL_DONE, "\x3F\x6F"}));
}

TEST(EbcdicSbcs, ShiftBytesAreCharacters)
{
    TableWriter table = sbcs_table();

    EXPECT_EQ(to_ucs2(table.object(), "\x0E\x0F"), (Units{KEL_DONE, u"\x0E\x0F"}));
}

TEST(EbcdicSbcs, UnfinishedUtf8Waits)
{
    TableWriter table = sbcs_table();

    EXPECT_EQ(from_utf8(table.object(), "A\xE3\x81"), (Bytes{KEL_INCOMPLETE, "\xC1"}));
    EXPECT_EQ(from_utf8(table.object(), "\x80"), (Bytes{KEL_DONE, "\x6F"}));
}

// 44 81 is U+3042; the single byte 4A is the cent sign.
[[nodiscard]] TableWriter dbcs_table()
{
    TableWriter table(KEL_TYPE_EBCDIC_DBCS);
    const unsigned singles = table.add(512, '\xFF');
    table.put16(TableWriter::place(singles) + 2 * 0x4A, 0xA2);
    table.set_byte_value(0, singles);
    const unsigned row = table.add(512, '\xFF');
    table.put16(TableWriter::place(row) + 2 * 0x81, 0x3042);
    for (unsigned lead = 0x40; lead < 0xFF; ++lead) table.set_byte_value(lead, 0);
    table.set_byte_value(0x44, row);
    const unsigned page00 = table.add(512, '\xFF');
    table.put16(TableWriter::place(page00) + 2 * 0xA2, 0x4A);
    table.set_page(0, page00);
    const unsigned page30 = table.add(512, '\xFF');
    table.put16(TableWriter::place(page30) + 2 * 0x42, 0x4481);
    table.set_page(0x30, page30);
    return table;
}

TEST(EbcdicDbcs, ShiftsBetweenOneAndTwoBytes)
{
    TableWriter table = dbcs_table();

    EXPECT_EQ(to_ucs2(table.object(), "\xC1\x0E\x44\x81\x0F\xC2\x4A"),
              (Units{KEL_DONE, u"A\u3042B\u00A2"}));
    EXPECT_EQ(to_utf8(table.object(), "\xC1\x0E\x44\x81\x0F\xC2"), (Bytes{KEL_DONE,
                                                                          "A\xE3\x81\x82"
                                                                          "B"}));
}

TEST(EbcdicDbcs, EmptyRunYieldsNothing)
{
    TableWriter table = dbcs_table();
    kel_cs_t cs = table.object();
    const char text[] = "\x0E\x0F";
    const char* from = text;
    std::uint32_t from_left = 2;
    std::uint16_t out[4];
    std::uint16_t* to = out;
    std::uint32_t to_left = 4;

    EXPECT_EQ(kel_to_ucs2_r(&cs, &from, &from_left, &to, &to_left), KEL_DONE);
    EXPECT_EQ(to_left, 4U);
    EXPECT_EQ(cs.to_state, 0);
}

TEST(EbcdicDbcs, OutsideLeadsReadAsInSingleByteModeAndTheModeStays)
{
    TableWriter table = dbcs_table();

    EXPECT_EQ(to_ucs2(table.object(), "\x0E\x15\x0E\xFF\x44\x81"),
              (Units{KEL_DONE, u"\n\x0E\u009F\u3042"}));
    EXPECT_EQ(to_ucs2(table.object(), "\x0F"), (Units{KEL_DONE, u"\x0F"}));
}

TEST(EbcdicDbcs, UnmappedPairsAndSecondBytesAsTheyAre)
{
    TableWriter table = dbcs_table();

    EXPECT_EQ(to_ucs2(table.object(), "\x0E\x44\x0F\x45\x45\x0F\x4B"), (Units{KEL_DONE, u"??."}));
}

TEST(EbcdicDbcs, HalfAPairWaitsInDoubleByteMode)
{
    TableWriter table = dbcs_table();
    kel_cs_t cs = table.object();
    const char text[] = "\x0E\x44\x81";
    const char* from = text;
    std::uint32_t from_left = 2;
    std::uint16_t out[4] = {};
    std::uint16_t* to = out;
    std::uint32_t to_left = 4;

    EXPECT_EQ(kel_to_ucs2_r(&cs, &from, &from_left, &to, &to_left), KEL_INCOMPLETE);
    EXPECT_EQ(from, text + 1);
    EXPECT_EQ(cs.to_state, 1);
    from_left = 2;
    EXPECT_EQ(kel_to_ucs2_r(&cs, &from, &from_left, &to, &to_left), KEL_DONE);
    EXPECT_EQ(out[0], 0x3042);
    EXPECT_EQ(cs.to_state, 1);
}

TEST(EbcdicDbcs, WritesShiftsAroundPairs)
{
    TableWriter table = dbcs_table();

    EXPECT_EQ(from_ucs2(table.object(), u"A\u3042B"),
              (Bytes{KEL_DONE, "\xC1\x0E\x44\x81\x0F\xC2"}));
    EXPECT_EQ(from_utf8(table.object(),
                        "A\xE3\x81\x82"
                        "B"),
              (Bytes{KEL_DONE, "\xC1\x0E\x44\x81\x0F\xC2"}));
    EXPECT_EQ(from_ucs2(table.object(), u"\u3042\u3042\u00A2\u3042\u1234"),
              (Bytes{KEL_DONE, "\x0E\x44\x81\x44\x81\x0F\x4A\x0E\x44\x81\x0F\x6F"}));
}

TEST(EbcdicDbcs, ShiftOutCharacterSwitchesTheWriter)
{
    TableWriter table = dbcs_table();

    EXPECT_EQ(from_ucs2(table.object(), u"\x0E\u3042"), (Bytes{KEL_DONE, "\x0E\x44\x81\x0F"}));
    EXPECT_EQ(from_ucs2(table.object(), u"\u3042\x0E\u3042"),
              (Bytes{KEL_DONE, "\x0E\x44\x81\x0F\x0E\x44\x81\x0F"}));
    EXPECT_EQ(from_ucs2(table.object(),
                        u"\x0E"
                        u"A"),
              (Bytes{KEL_DONE, "\x0E\x0F\xC1"}));
    EXPECT_EQ(from_ucs2(table.object(), u"\x0F"), (Bytes{KEL_DONE, "\x0F"}));
}

// Writes `text` with room for `room` bytes, starting in `state`; says what is left of each.
struct Left {
    std::int32_t result;
    std::uint32_t units, bytes;
    unsigned state;
    bool operator==(const Left&) const = default;
};
[[nodiscard]] Left write_with_room(TableWriter& table, std::u16string_view text, std::uint32_t room,
                                   std::uint8_t state)
{
    kel_cs_t cs = table.object();
    cs.from_state = state;
    const std::vector<std::uint16_t> units(text.begin(), text.end());
    const std::uint16_t* from = units.data();
    auto from_left = static_cast<std::uint32_t>(units.size());
    std::vector<char> out(room);
    char* to = out.data();
    std::uint32_t to_left = room;
    const std::int32_t result = kel_from_ucs2_r(&cs, &from, &from_left, &to, &to_left);
    return {result, from_left, to_left, cs.from_state};
}

TEST(EbcdicDbcs, PairNeedsThreeBytesInSingleByteModeAndTwoInDouble)
{
    TableWriter table = dbcs_table();

    EXPECT_EQ(write_with_room(table, u"\u3042", 2, 0), (Left{KEL_FULL, 1, 2, 0}));
    EXPECT_EQ(write_with_room(table, u"\u3042", 3, 0), (Left{KEL_DONE, 0, 0, 1}));
    EXPECT_EQ(write_with_room(table, u"\u3042", 1, 1), (Left{KEL_FULL, 1, 1, 1}));
    EXPECT_EQ(write_with_room(table, u"\u3042", 2, 1), (Left{KEL_DONE, 0, 0, 1}));
}

TEST(EbcdicDbcs, SingleNeedsTwoBytesInDoubleByteMode)
{
    TableWriter table = dbcs_table();

    EXPECT_EQ(write_with_room(table, u"A", 1, 1), (Left{KEL_FULL, 1, 1, 1}));
    EXPECT_EQ(write_with_room(table, u"A", 2, 1), (Left{KEL_DONE, 0, 0, 0}));
    EXPECT_EQ(write_with_room(table, u"\u00A2", 1, 1), (Left{KEL_FULL, 1, 1, 1}));
    EXPECT_EQ(write_with_room(table, u"\u00A2", 2, 1), (Left{KEL_DONE, 0, 0, 0}));
    EXPECT_EQ(write_with_room(table, u"\u1234", 2, 1), (Left{KEL_DONE, 0, 0, 0}));
    EXPECT_EQ(write_with_room(table, u"\x0E", 2, 1), (Left{KEL_DONE, 0, 0, 1}));
}

TEST(EbcdicDbcs, FlushClosesAnOpenRunWhenItFits)
{
    TableWriter table = dbcs_table();
    kel_cs_t cs = table.object();
    cs.from_state = 1;
    const std::uint16_t* from = nullptr;
    std::uint32_t from_left = 0;
    char out[1] = {};
    char* to = out;
    std::uint32_t to_left = 0;

    EXPECT_EQ(kel_from_ucs2_r(&cs, &from, &from_left, &to, &to_left), KEL_FULL);
    EXPECT_EQ(cs.from_state, 1);
    to_left = 1;
    EXPECT_EQ(kel_from_ucs2_r(&cs, &from, &from_left, &to, &to_left), KEL_DONE);
    EXPECT_EQ(out[0], 0x0F);
    EXPECT_EQ(cs.from_state, 0);
    EXPECT_EQ(kel_from_ucs2_r(&cs, &from, &from_left, &to, &to_left), KEL_DONE);
    EXPECT_EQ(to_left, 0U);
}

TEST(EbcdicDbcs, FlushAfterUtf8ClosesAnOpenRunToo)
{
    TableWriter table = dbcs_table();
    kel_cs_t cs = table.object();
    cs.from_state = 1;
    const char* from = nullptr;
    std::uint32_t from_left = 0;
    char out[1] = {};
    char* to = out;
    std::uint32_t to_left = 0;

    EXPECT_EQ(kel_from_utf8_r(&cs, &from, &from_left, &to, &to_left), KEL_FULL);
    EXPECT_EQ(cs.from_state, 1);
    to_left = 1;
    EXPECT_EQ(kel_from_utf8_r(&cs, &from, &from_left, &to, &to_left), KEL_DONE);
    EXPECT_EQ(out[0], 0x0F);
    EXPECT_EQ(cs.from_state, 0);
    EXPECT_EQ(to_left, 0U);
}

TEST(EbcdicDbcs, FlushOfTheReadingDirectionOnlyClearsItsState)
{
    TableWriter table = dbcs_table();
    kel_cs_t cs = table.object();
    cs.to_state = 1;
    cs.from_state = 1;
    const char* from = nullptr;
    std::uint32_t from_left = 0;
    std::uint16_t out[1] = {0x2323};
    std::uint16_t* to = out;
    std::uint32_t to_left = 1;

    EXPECT_EQ(kel_to_ucs2_r(&cs, &from, &from_left, &to, &to_left), KEL_DONE);
    EXPECT_EQ(to_left, 1U);
    EXPECT_EQ(out[0], 0x2323);
    EXPECT_EQ(cs.to_state, 0);
    EXPECT_EQ(cs.from_state, 1);
}

TEST(EbcdicDbcs, OneShotEndsOutsideARun)
{
    TableWriter table = dbcs_table();
    const kel_cs_t cs = table.object();
    const std::uint16_t text[] = {0x3042, 0};
    char out[8] = {};

    EXPECT_EQ(kel_from_ucs2(&cs, text, 1, out, sizeof out), 4U);
    EXPECT_EQ(hex({out, 4}), "0E 44 81 0F");
    EXPECT_EQ(kel_from_ucs2(&cs, text, -1, out, sizeof out), 5U);
    EXPECT_EQ(hex({out, 5}), "0E 44 81 0F 00");
    EXPECT_EQ(kel_from_ucs2(&cs, text, 1, out, 3), 3U);  // no room for the shift-in
}

// kel_from_utf8 goes on in the state that the caller's object is in; kel_from_ucs2 starts afresh.
TEST(EbcdicDbcs, OneShotsDifferInTheirStartingState)
{
    TableWriter table = dbcs_table();
    kel_cs_t cs = table.object();
    cs.from_state = 1;
    cs.to_state = 1;
    const std::uint16_t text[] = {'A'};
    char out[8] = {};

    EXPECT_EQ(kel_from_utf8(&cs, "A", 1, out, sizeof out), 2U);
    EXPECT_EQ(hex({out, 2}), "0F C1");
    EXPECT_EQ(kel_from_ucs2(&cs, text, 1, out, sizeof out), 1U);
    EXPECT_EQ(hex({out, 1}), "C1");
    EXPECT_EQ(kel_to_utf8(&cs, "\xC1", 1, out, sizeof out), 1U);
    EXPECT_EQ(out[0], 'A');
    EXPECT_EQ(cs.from_state, 1);
    EXPECT_EQ(cs.to_state, 1);
}

}  // namespace

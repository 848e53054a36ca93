// The table-driven families on small tables made by hand: every rule by its observable result.
#include <gtest/gtest.h>

#include "tests/codeset/support.hpp"
#include "tests/codeset/table_writer.hpp"

namespace {

using namespace corvane::test;
using namespace std::literals;

// ---- single-byte ----

// 0x80 is the euro sign both ways; 0x1A is the substitution byte, which truly belongs to U+2022.
[[nodiscard]] TableWriter sbcs_table()
{
    TableWriter table(KEL_TYPE_ASCII_SBCS);
    table.set_byte_value(0x80, 0x20AC);
    table.set_substitution(0x2022, 0x1A);
    const unsigned unmapped = table.add(256, '\x1A');
    for (unsigned page = 0; page < 256; ++page) table.set_page(page, unmapped);
    const unsigned page = table.add(256, '\x1A');
    table.image[TableWriter::place(page) + 0xAC] = '\x80';
    table.set_page(0x20, page);
    return table;
}

TEST(AsciiSbcs, ReadsBytesThroughTheirValues)
{
    TableWriter table = sbcs_table();

    EXPECT_EQ(to_ucs2(table.object(), "A\x80z\x81"), (Units{KEL_DONE, u"A\u20ACz?"}));
    EXPECT_EQ(to_utf8(table.object(), "A\x80z\x81"), (Bytes{KEL_DONE, "A\xE2\x82\xACz?"}));
}

// Long texts go by blocks of sixteen.
TEST(AsciiSbcs, ReadsUnmappedBytesAnywhereInABlock)
{
    TableWriter table = sbcs_table();
    for (std::size_t at = 0; at < 40; ++at) {
        std::string text(40, '\x80');
        std::u16string expected(40, u'\u20AC');
        text[at] = '\x81';
        expected[at] = u'?';
        EXPECT_EQ(to_ucs2(table.object(), text), (Units{KEL_DONE, expected})) << at;
    }
}

TEST(AsciiSbcs, WritesUnmappedAsQuestionMarkWhateverTheSubstitutionByte)
{
    TableWriter table = sbcs_table();

    EXPECT_EQ(from_ucs2(table.object(), u"A\u20AC\u20AD\u3000"), (Bytes{KEL_DONE, "A\x80??"}));
    EXPECT_EQ(from_utf8(table.object(), "A\xE2\x82\xAC\xE3\x80\x80"), (Bytes{KEL_DONE, "A\x80?"}));
}

TEST(AsciiSbcs, SubstitutionByteCountsForItsOwnCharacter)
{
    TableWriter table = sbcs_table();

    EXPECT_EQ(from_ucs2(table.object(), u"\u2022\u2023"), (Bytes{KEL_DONE, "\x1A?"}));
    EXPECT_EQ(from_utf8(table.object(), "\xE2\x80\xA2\xE2\x80\xA3"), (Bytes{KEL_DONE, "\x1A?"}));
}

TEST(AsciiSbcs, SubstitutionCharacterFFFFIsNotOne)
{
    TableWriter table = sbcs_table();
    table.set_substitution(0xFFFF, 0x1A);

    EXPECT_EQ(from_ucs2(table.object(), u"\uFFFF"), (Bytes{KEL_DONE, "?"}));
}

TEST(AsciiSbcs, FourByteUtf8IsReadAsThreeAndAStray)
{
    TableWriter table = sbcs_table();

    EXPECT_EQ(from_utf8(table.object(), "\xF0\x9F\x98\x80"), (Bytes{KEL_DONE, "??"}));
}

// The low four bits of 0xF0-0xFF count: F2 82 AC is U+20AC like E2 82 AC.
TEST(AsciiSbcs, EveryUtf8LeadFromE0TakesThreeBytes)
{
    TableWriter table = sbcs_table();

    EXPECT_EQ(from_utf8(table.object(), "\xF2\x82\xAC"), (Bytes{KEL_DONE, "\x80"}));
    EXPECT_EQ(from_utf8(table.object(), "\xFF\x80\x80"), (Bytes{KEL_DONE, "?"}));
}

TEST(AsciiSbcs, StrayContinuationsAndCutSequences)
{
    TableWriter table = sbcs_table();

    EXPECT_EQ(from_utf8(table.object(), "\x80\xBF"), (Bytes{KEL_DONE, "??"}));
    EXPECT_EQ(from_utf8(table.object(), "A\xC3"), (Bytes{KEL_INCOMPLETE, "A"}));
    EXPECT_EQ(from_utf8(table.object(), "A\xE2\x82"), (Bytes{KEL_INCOMPLETE, "A"}));
    EXPECT_EQ(from_utf8(table.object(), "A\xF0\x9F"), (Bytes{KEL_INCOMPLETE, "A"}));
}

// An overlong form is decoded and then written like the character that it gives.
TEST(AsciiSbcs, OverlongUtf8GivesItsAsciiCharacter)
{
    TableWriter table = sbcs_table();

    EXPECT_EQ(from_utf8(table.object(), "\xC1\x81\xE0\x81\x82"), (Bytes{KEL_DONE, "AB"}));
}

TEST(AsciiSbcs, SurrogateUnitsAreLookedUpOneByOne)
{
    TableWriter table = sbcs_table();

    EXPECT_EQ(from_ucs2(table.object(), std::u16string{char16_t{0xD83D}, char16_t{0xDE00}}),
              (Bytes{KEL_DONE, "??"}));
}

// ---- double-byte ----

// 0x81 is a lead: 81 40 is U+3000, 81 20 is U+4E00; 0xA1 stands alone for U+FF61; 0x90 has class 3.
[[nodiscard]] TableWriter dbcs_table()
{
    TableWriter table(KEL_TYPE_ASCII_DBCS);
    table.set_class(0x81, 2);
    table.set_class(0xA1, 1);
    table.set_class(0xA2, 1);
    table.set_class(0x90, 3);
    const unsigned row = table.add(512, '\xFF');
    table.put16(TableWriter::place(row) + 2 * 0x40, 0x3000);
    table.put16(TableWriter::place(row) + 2 * 0x20, 0x4E00);
    table.set_byte_value(0x81, row);
    const unsigned singles = table.add(512, '\xFF');
    table.put16(TableWriter::place(singles) + 2 * 0xA1, 0xFF61);
    table.set_byte_value(0, singles);
    const unsigned page30 = table.add(512, '\xFF');
    table.put16(TableWriter::place(page30), 0x8140);
    table.set_page(0x30, page30);
    const unsigned page_ff = table.add(512, '\xFF');
    table.put16(TableWriter::place(page_ff) + 2 * 0x61, 0xA1);
    table.set_page(0xFF, page_ff);
    return table;
}

TEST(AsciiDbcs, ReadsByTheClassOfAByte)
{
    TableWriter table = dbcs_table();

    EXPECT_EQ(to_ucs2(table.object(), "A\x81\x40\xA1\xA2\x90\xFF"),
              (Units{KEL_DONE, u"A\u3000\uFF61???"}));
    EXPECT_EQ(to_utf8(table.object(), "\x81\x40\xA1"),
              (Bytes{KEL_DONE, "\xE3\x80\x80\xEF\xBD\xA1"}));
}

TEST(AsciiDbcs, TakesTheTrailByteAsItIs)
{
    TableWriter table = dbcs_table();

    EXPECT_EQ(to_ucs2(table.object(), "\x81\x20\x81\x81"), (Units{KEL_DONE, u"\u4E00?"}));
}

TEST(AsciiDbcs, LeadByteAtTheEndWaitsForItsTrail)
{
    TableWriter table = dbcs_table();
    kel_cs_t cs = table.object();
    const char text[] = "A\x81\x40";
    const char* from = text;
    std::uint32_t from_left = 2;
    std::uint16_t units[4] = {};
    std::uint16_t* to = units;
    std::uint32_t to_left = 4;

    EXPECT_EQ(kel_to_ucs2_r(&cs, &from, &from_left, &to, &to_left), KEL_INCOMPLETE);
    EXPECT_EQ(from, text + 1);
    EXPECT_EQ(from_left, 1U);
    EXPECT_EQ(to_left, 3U);
    from_left = 2;
    EXPECT_EQ(kel_to_ucs2_r(&cs, &from, &from_left, &to, &to_left), KEL_DONE);
    EXPECT_EQ(units[1], 0x3000);
}

TEST(AsciiDbcs, WritesOneOrTwoBytes)
{
    TableWriter table = dbcs_table();

    EXPECT_EQ(from_ucs2(table.object(), u"A\u3000\uFF61\u3001\u4E00"),
              (Bytes{KEL_DONE, "A\x81\x40\xA1??"}));
    EXPECT_EQ(from_utf8(table.object(), "\xE3\x80\x80\xEF\xBD\xA1"),
              (Bytes{KEL_DONE, "\x81\x40\xA1"}));
}

TEST(AsciiDbcs, TwoByteCodeNeedsRoomForTwo)
{
    TableWriter table = dbcs_table();
    kel_cs_t cs = table.object();
    const std::uint16_t text[] = {'A', 0x3000};
    const std::uint16_t* from = text;
    std::uint32_t from_left = 2;
    char out[2] = {'#', '#'};
    char* to = out;
    std::uint32_t to_left = 2;

    EXPECT_EQ(kel_from_ucs2_r(&cs, &from, &from_left, &to, &to_left), KEL_FULL);
    EXPECT_EQ(from, text + 1);
    EXPECT_EQ(to_left, 1U);
    EXPECT_EQ(out[1], '#');
}

// The substitution pair is the single-byte sets' alone.
TEST(AsciiDbcs, MakesNoSubstitutionTest)
{
    TableWriter table = dbcs_table();
    table.set_substitution(0x1234, 0xA1);

    EXPECT_EQ(from_ucs2(table.object(), u"\uFF61"), (Bytes{KEL_DONE, "\xA1"}));
}

// ---- multi-byte ----

// 0x8E leads two bytes, 0x8F three; 0x85 stands alone. U+4E01 has a prefix of one byte, U+4E02 of
// none, U+4E03 is one byte, U+4E04 has no prefix index, U+4E05 a record that says fifteen bytes.
[[nodiscard]] TableWriter mbcs_table()
{
    TableWriter table(KEL_TYPE_ASCII_MBCS);
    table.set_class(0x85, 1);
    table.set_byte_value(0x85, 0x0085);
    table.set_class(0x8E, 2);
    table.set_class(0x8F, 3);
    const unsigned leaf = table.add(4 + 2 * 2, '\xFF');
    table.put16(TableWriter::place(leaf), 2);
    table.put16(TableWriter::place(leaf) + 2, 0xA1);
    table.put16(TableWriter::place(leaf) + 4, 0xFF61);
    table.set_byte_value(0x8E, leaf);
    const unsigned inner = table.add(4 + 2 * 1, '\xFF');
    table.put16(TableWriter::place(inner), 1);
    table.put16(TableWriter::place(inner) + 2, 0xB0);
    table.put16(TableWriter::place(inner) + 4, leaf);
    table.set_byte_value(0x8F, inner);
    const unsigned none = table.add(16, 0);
    const unsigned one = table.add(16, 0);
    table.image[TableWriter::place(one)] = '\x8F';
    table.put16(TableWriter::place(one) + 14, 1);
    const unsigned fifteen = table.add(16, 0);
    table.put16(TableWriter::place(fifteen) + 14, 15);
    const unsigned page = table.add(1024, '\xFF');
    const auto set = [&](unsigned low, unsigned prefix, unsigned code) {
        table.put16(TableWriter::place(page) + std::size_t{4} * low, prefix);
        table.put16(TableWriter::place(page) + std::size_t{4} * low + 2, code);
    };
    set(1, one / 4, 0xB0A1);
    set(2, none / 4, 0x8EA1);
    set(3, 0xFFFF, 0x85);
    set(4, 0xFFFF, 0x8EA1);
    set(5, fifteen / 4, 0x8EA1);
    table.set_page(0x4E, page);
    return table;
}

TEST(AsciiMbcs, WalksTheNodesOfASequence)
{
    TableWriter table = mbcs_table();

    EXPECT_EQ(to_ucs2(table.object(), "A\x85\x8E\xA1\x8F\xB0\xA1"),
              (Units{KEL_DONE, u"A\u0085\uFF61\uFF61"}));
    EXPECT_EQ(to_utf8(table.object(), "\x8F\xB0\xA1"), (Bytes{KEL_DONE, "\xEF\xBD\xA1"}));
}

TEST(AsciiMbcs, ConsumesTheWholeSequenceOnAMiss)
{
    TableWriter table = mbcs_table();

    EXPECT_EQ(to_ucs2(table.object(), "\x8F\x20\x21Z"), (Units{KEL_DONE, u"?Z"}));
    EXPECT_EQ(to_ucs2(table.object(), "\x8E\xA0Z"), (Units{KEL_DONE, u"?Z"}));  // below the lowest
    EXPECT_EQ(to_ucs2(table.object(), "\x8E\xA2Z"), (Units{KEL_DONE, u"?Z"}));  // an empty entry
    EXPECT_EQ(to_ucs2(table.object(), "\x8E\xA3Z"), (Units{KEL_DONE, u"?Z"}));  // behind the last
}

TEST(AsciiMbcs, InvalidByteIsOneQuestionMark)
{
    TableWriter table = mbcs_table();
    table.set_class(0x90, 0);  // a length that would never end

    EXPECT_EQ(to_ucs2(table.object(), "\xFF\x90Z"), (Units{KEL_DONE, u"??Z"}));
}

TEST(AsciiMbcs, CutSequenceWaits)
{
    TableWriter table = mbcs_table();

    EXPECT_EQ(to_ucs2(table.object(), "A\x8F\xB0"), (Units{KEL_INCOMPLETE, u"A"}));
}

TEST(AsciiMbcs, WritesThePrefixBeforeTheCode)
{
    TableWriter table = mbcs_table();

    EXPECT_EQ(from_ucs2(table.object(), u"\u4E01\u4E02\u4E03\u4E04\u4E05\u4E06\u4F00"),
              (Bytes{KEL_DONE, "\x8F\xB0\xA1\x8E\xA1\x85????"}));
    EXPECT_EQ(from_utf8(table.object(), "\xE4\xB8\x81"), (Bytes{KEL_DONE, "\x8F\xB0\xA1"}));
}

TEST(AsciiMbcs, CodeThatDoesNotFitIsNotBegun)
{
    TableWriter table = mbcs_table();
    kel_cs_t cs = table.object();
    const std::uint16_t text[] = {0x4E01};
    const std::uint16_t* from = text;
    std::uint32_t from_left = 1;
    char out[2] = {'#', '#'};
    char* to = out;
    std::uint32_t to_left = 2;

    EXPECT_EQ(kel_from_ucs2_r(&cs, &from, &from_left, &to, &to_left), KEL_FULL);
    EXPECT_EQ(from_left, 1U);
    EXPECT_EQ(to_left, 2U);
    EXPECT_EQ(out[0], '#');
}

// ---- flush calls ----

// The states of a code set after a flush call, which must take and write nothing.
struct States {
    unsigned from, to;
    bool operator==(const States&) const = default;
};
template <class From, class To>
[[nodiscard]] States states_after_flush(unsigned type,
                                        std::int32_t (*convert)(kel_cs_t*, const From**,
                                                                std::uint32_t*, To**,
                                                                std::uint32_t*) noexcept)
{
    TableWriter table(static_cast<std::uint16_t>(type));
    kel_cs_t cs = table.object();
    cs.from_state = cs.to_state = 1;
    const From* from = nullptr;
    std::uint32_t from_left = 0;
    To out[1] = {'#'};
    To* to = out;
    std::uint32_t to_left = 1;
    EXPECT_EQ(convert(&cs, &from, &from_left, &to, &to_left), KEL_DONE);
    EXPECT_EQ(to, out);
    EXPECT_EQ(to_left, 1U);
    EXPECT_EQ(out[0], '#');
    return {cs.from_state, cs.to_state};
}

TEST(Flush, ClearsTheStateOfItsDirectionAlone)
{
    for (const unsigned type : {KEL_TYPE_ASCII_SBCS, KEL_TYPE_ASCII_DBCS, KEL_TYPE_ASCII_MBCS,
                                KEL_TYPE_EBCDIC_SBCS, KEL_TYPE_OS, KEL_TYPE_GB18030}) {
        SCOPED_TRACE(type);
        EXPECT_EQ(states_after_flush(type, kel_to_ucs2_r), (States{1, 0}));
        EXPECT_EQ(states_after_flush(type, kel_to_utf8_r), (States{1, 0}));
        EXPECT_EQ(states_after_flush(type, kel_from_ucs2_r), (States{0, 1}));
        EXPECT_EQ(states_after_flush(type, kel_from_utf8_r), (States{0, 1}));
    }
}

}  // namespace

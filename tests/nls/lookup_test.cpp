// Looking up texts: sets, messages, lazy loading, corrupt blocks, what stands in for a missing
// text.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "codeset/kel.h"
#include "nls/set_state.hpp"
#include "tests/nls/support.hpp"

namespace {

using namespace corvane::test;

class Lookup : public testing::Test {
protected:
    ~Lookup() override { empty_cache(); }

    vor_cat_t open_bytes(const std::string& bytes, std::uint32_t flags = 0)
    {
        path = folder.file(std::to_string(++files) + ".cat", bytes);
        return vor_catopen(path.c_str(), flags);
    }
    // The text of a message as the catalogue has it, or "(none)".
    static std::string text(vor_cat_t catalogue, std::int32_t set, std::int32_t message)
    {
        const MCMsgT* const found = MCGetMsg(MCGetSet(catalogue, set), message);
        return found == nullptr ? "(none)" : corvane::slot_address<const char>(found->textOffset);
    }

    PrivateSettings settings;
    ScratchFolder folder;
    std::string path;
    int files = 0;
};

TEST_F(Lookup, GivesTheTextOfSetAndMessage)
{
    const vor_cat_t cat =
        open_bytes(catalogue({{1, {{1, "a"}, {2, "b"}}}, {2, {{1, "c"}, {9, "d"}}}}), 1);

    EXPECT_STREQ(vor_catgets(cat, 1, 1, "default"), "a");
    EXPECT_STREQ(vor_catgets(cat, 1, 2, "default"), "b");
    EXPECT_STREQ(vor_catgets(cat, 2, 1, "default"), "c");
    EXPECT_STREQ(vor_catgets(cat, 2, 9, "default"), "d");
}

TEST_F(Lookup, MissingMessageFallsBackToTheTableWhateverTheSet)
{
    const vor_cat_t cat = open_bytes(catalogue({{2, {{5, "five"}}}}));

    EXPECT_STREQ(vor_catgets(cat, 2, 1, "default"), "FTX1000W %s failed: %s\n");
    EXPECT_STREQ(vor_catgets(cat, 1, 1, "default"), "FTX1000W %s failed: %s\n");
    EXPECT_STREQ(vor_catgets(cat, -1, 5, "default"), "unused5");
    EXPECT_STREQ(vor_catgets(cat, 2, 1054, "default"), "unused1054");
}

TEST_F(Lookup, MessageZeroIsNeverInACatalogue)
{
    const vor_cat_t cat = open_bytes(catalogue({{2, {{0, "zero"}, {1, "one"}}}}));

    EXPECT_STREQ(vor_catgets(cat, 2, 0, "default"), "corvanecat");
    EXPECT_EQ(MCGetMsg(MCGetSet(cat, 2), 0), nullptr);
    EXPECT_EQ(MCGetMsg(MCGetSet(cat, 2), -1), nullptr);
}

TEST_F(Lookup, NoCatalogueGivesTheDefault)
{
    const char* const text = "default";
    EXPECT_EQ(vor_catgets(VOR_NO_CATALOGUE, 2, 1, text), text);
    EXPECT_EQ(vor_catgets(VOR_NO_CATALOGUE, 2, 99999, text), text);
    EXPECT_STREQ(vor_catgets(VOR_NO_CATALOGUE, 2, 1, nullptr), "");
}

TEST_F(Lookup, HandleOfAFileThatIsNoneFallsBackToTheTable)
{
    EXPECT_STREQ(vor_catgets(nullptr, 2, 2, "default"), "FTX1001W Write of %s failed: %s\n");
}

TEST_F(Lookup, CataloguesSwitchedOffGiveTheTable)
{
    const vor_cat_t cat = open_bytes(catalogue({{2, {{1, "one"}}}}));
    settings->nlsEnabled = 0;

    EXPECT_STREQ(vor_catgets(cat, 2, 1, "default"), "FTX1000W %s failed: %s\n");
    EXPECT_STREQ(vor_catgets(VOR_NO_CATALOGUE, 2, 0, "default"), "corvanecat");
    EXPECT_STREQ(vor_catgets(VOR_NO_CATALOGUE, 2, 1000, "default"),
                 "FTX3000W Successful normal completion");
    EXPECT_STREQ(vor_catgets(VOR_NO_CATALOGUE, 2, 1054, "default"), "unused1054");
}

TEST_F(Lookup, NumbersOutsideTheTableAreBadIds)
{
    const vor_cat_t cat = open_bytes(catalogue({{2, {{1, "one"}}}}));
    for (const std::int32_t enabled : {0, 1}) {
        settings->nlsEnabled = enabled;
        for (const std::int32_t message : {-1, INT32_MIN, 1055, 5111, 5112, INT32_MAX}) {
            Capture out(STDOUT_FILENO);
            EXPECT_STREQ(vor_catgets(cat, 2, message, "default"), "BAD MSGID VALUE");
            EXPECT_EQ(out.take(), "vor_catgets: bad id:" + std::to_string(message) + "\n");
        }
    }
}

TEST_F(Lookup, NumberBehindTheTableMayStandInACatalogue)
{
    const vor_cat_t cat = open_bytes(catalogue({{2, {{6000, "far"}}}}));
    EXPECT_STREQ(vor_catgets(cat, 2, 6000, "default"), "far");
}

// Every number around the set's own, found exactly where a plain search finds it.
void compare_with_plain_search(vor_cat_t cat,
                               const std::vector<std::pair<std::uint32_t, Messages>>& sets,
                               std::int32_t limit)
{
    for (std::int32_t set = -1; set <= limit; ++set) {
        const auto own = std::find_if(sets.begin(), sets.end(), [&](const auto& candidate) {
            return std::int64_t{candidate.first} == set;
        });
        MCSetT* const found = MCGetSet(cat, set);
        ASSERT_EQ(found != nullptr, own != sets.end()) << "set " << set;
        if (found == nullptr) continue;
        ASSERT_EQ(found->setId, own->first);
        for (std::int32_t message = -1; message <= limit; ++message) {
            const auto wanted = std::find_if(
                own->second.begin(), own->second.end(),
                [&](const auto& candidate) { return std::int64_t{candidate.first} == message; });
            const MCMsgT* const got = MCGetMsg(found, message);
            ASSERT_EQ(got != nullptr, wanted != own->second.end()) << "message " << message;
            if (got == nullptr) continue;
            ASSERT_STREQ(corvane::slot_address<const char>(got->textOffset),
                         wanted->second.c_str());
        }
    }
}

TEST_F(Lookup, FindsWhatAPlainSearchFindsInCataloguesWithGaps)
{
    std::mt19937 random(20240229);
    for (int round = 0; round < 40; ++round) {
        const int density = 1 + round % 10;
        const auto numbers = [&](std::uint32_t first) {
            std::vector<std::uint32_t> all;
            for (std::uint32_t number = first; number < 40; ++number) {
                if (static_cast<int>(random() % 10) < density) all.push_back(number);
            }
            return all;
        };
        std::vector<std::pair<std::uint32_t, Messages>> sets;
        for (const std::uint32_t set : numbers(0)) {
            Messages messages;
            for (const std::uint32_t number : numbers(1)) {
                messages.emplace_back(number, std::to_string(set) + "/" + std::to_string(number));
            }
            sets.emplace_back(set, messages);
        }
        if (sets.empty()) continue;
        empty_cache();
        compare_with_plain_search(open_bytes(catalogue(sets)), sets, 45);
    }
}

TEST_F(Lookup, SetsLoadOnFirstUseOnly)
{
    const vor_cat_t cat = open_bytes(catalogue({{1, {{1, "a"}}}, {2, {{1, "b"}}}}));

    EXPECT_EQ(text(cat, 2, 1), "b");

    EXPECT_EQ(cat->sets[0].invalid, static_cast<std::uint32_t>(-1));
    EXPECT_EQ(cat->sets[1].invalid, 0U);
    EXPECT_EQ(MCGetMsg(&cat->sets[0], 1), nullptr) << "a set that is not loaded has no messages";
}

TEST_F(Lookup, LoadedSetHoldsTextsInOneBufferOfTwiceTheirSize)
{
    const vor_cat_t cat = open_bytes(catalogue({{2, {{1, "ab"}, {2, ""}, {3, "c"}}}}));
    MCSetT* const set = MCGetSet(cat, 2);

    ASSERT_NE(set, nullptr);
    EXPECT_EQ(set->dataLen, 12U);
    EXPECT_EQ(set->numMsgs, 3U);
    const char* const buffer = corvane::slot_address<const char>(set->dataOffset);
    EXPECT_EQ(std::string(buffer, 6), std::string("ab\0\0c\0", 6));
    EXPECT_EQ(corvane::slot_address<const char>(MCGetMsg(set, 3)->textOffset), buffer + 4);
}

TEST_F(Lookup, DeletedMessagesAreSkipped)
{
    const std::string data("one\0two\0", 8);
    const vor_cat_t cat =
        open_bytes(header(1) + set_record(2, 0, 72, 64, 8, 3) + data + message_record(1, 0) +
                   message_record(2, 4, /*invalid=*/1) + message_record(3, 4));

    EXPECT_EQ(MCGetSet(cat, 2)->numMsgs, 2U);
    EXPECT_EQ(text(cat, 2, 1), "one");
    EXPECT_EQ(text(cat, 2, 2), "(none)");
    EXPECT_EQ(text(cat, 2, 3), "two");
}

TEST_F(Lookup, SetThatCannotBeLoadedIsFoundWithoutMessages)
{
    for (const std::string& record : {
             set_record(2, 0, 64, 64, 1000, 1),        // text block past the end
             set_record(2, 0, 64, 1000, 1, 1),         // text block behind the end
             set_record(2, 0, 64, 64, UINT32_MAX, 1),  // text block of 4 GiB
             set_record(2, 0, 64, 64, 4, 2),           // records past the end
             set_record(2, 0, 64, 64, 4, UINT32_MAX),  // 64 GiB of records
             set_record(2, 0, UINT32_MAX, 64, 4, 1),   // records behind the end
         }) {
        const vor_cat_t cat = open_bytes(header(1) + record + message_record(1, 0));
        MCSetT* const set = MCGetSet(cat, 2);
        ASSERT_NE(set, nullptr);
        EXPECT_EQ(set->invalid, static_cast<std::uint32_t>(-1));
        EXPECT_EQ(MCGetMsg(set, 1), nullptr);
        EXPECT_STREQ(vor_catgets(cat, 2, 1, "default"), "FTX1000W %s failed: %s\n");
        empty_cache();
    }
}

TEST_F(Lookup, LoadSetSaysWhetherTheFileIsCorrupt)
{
    const vor_cat_t cat =
        open_bytes(header(2) + set_record(1, 64, 0, 100, 50, 0) + set_record(2, 0, 100, 100, 0, 0));
    EXPECT_EQ(loadSet(cat, &cat->sets[0]), 0);
    EXPECT_EQ(loadSet(cat, &cat->sets[1]), 1);
}

TEST_F(Lookup, TextOutsideItsBlockIsAMiss)
{
    const std::string data("ok\0open", 7);  // the last text has no zero byte
    const vor_cat_t cat =
        open_bytes(header(1) + set_record(2, 0, 71, 64, 7, 5) + data + message_record(1, 0) +
                   message_record(2, 3) + message_record(3, 7) + message_record(4, UINT32_MAX) +
                   message_record(5, 1));

    EXPECT_EQ(text(cat, 2, 1), "ok");
    EXPECT_EQ(text(cat, 2, 2), "(none)");
    EXPECT_EQ(text(cat, 2, 3), "(none)");
    EXPECT_EQ(text(cat, 2, 4), "(none)");
    EXPECT_EQ(text(cat, 2, 5), "k");
}

TEST_F(Lookup, TextsThatShareBytesEndWithTheBuffer)
{
    // Five messages of the same three bytes; the buffer has room for two of them.
    std::string records;
    for (std::uint32_t number = 1; number <= 5; ++number) records += message_record(number, 0);
    const vor_cat_t cat =
        open_bytes(header(1) + set_record(2, 0, 67, 64, 3, 5) + std::string("ab\0", 3) + records);

    EXPECT_EQ(text(cat, 2, 1), "ab");
    EXPECT_EQ(text(cat, 2, 2), "ab");
    EXPECT_EQ(text(cat, 2, 3), "(none)");
    EXPECT_EQ(text(cat, 2, 5), "(none)");
}

TEST_F(Lookup, SetsMayShareABlockButNotWithoutBound)
{
    // A thousand sets of the one block, which is all that lies behind them.
    constexpr std::uint32_t kSets = 1000;
    constexpr std::uint32_t kBlock = 28 + kSets * 36;
    const std::string block = std::string(19999, 'x') + '\0';
    std::string bytes = header(kSets);
    for (std::uint32_t set = 0; set < kSets; ++set) {
        const std::uint32_t next = set + 1 == kSets ? 0 : 28 + (set + 1) * 36;
        bytes += set_record(set, next, kBlock + 20000, kBlock, 20000, 1);
    }
    const vor_cat_t cat = open_bytes(bytes + block + message_record(1, 19990));

    std::uint32_t found = 0;
    for (std::uint32_t set = 0; set < kSets; ++set) {
        found += text(cat, static_cast<std::int32_t>(set), 1) == "xxxxxxxxx" ? 1 : 0;
    }

    EXPECT_GT(found, 100U);
    EXPECT_LT(found, 200U) << "64 times the size of the file";
}

TEST_F(Lookup, RecordsInNoOrderEndTheSearch)
{
    const std::string data("x\0", 2);
    std::string records;
    for (const std::uint32_t number : {900U, 3U, UINT32_MAX, 2U, 0U, 7U})
        records += message_record(number, 0);
    const vor_cat_t cat = open_bytes(header(1) + set_record(2, 0, 66, 64, 2, 6) + data + records);

    for (const std::int32_t number : {1, 2, 3, 7, 900, 1000, INT32_MAX}) {
        const std::string found = text(cat, 2, number);
        EXPECT_TRUE(found == "x" || found == "(none)") << number;
    }
}

TEST_F(Lookup, FileThatShrinksWhileOpenIsAMiss)
{
    const vor_cat_t cat = open_bytes(catalogue({{2, {{1, "one"}}}}));
    std::filesystem::resize_file(path, 64);

    EXPECT_STREQ(vor_catgets(cat, 2, 1, "default"), "FTX1000W %s failed: %s\n");
}

TEST_F(Lookup, FileThatIsRemovedWhileOpenStillServes)
{
    const vor_cat_t cat = open_bytes(catalogue({{2, {{1, "one"}}}}));
    std::filesystem::remove(path);

    EXPECT_STREQ(vor_catgets(cat, 2, 1, "default"), "one");
}

TEST_F(Lookup, TextsAreConvertedToTheDefaultCodeSet)
{
    // Type 6 decodes and encodes again: what is not UTF-8 becomes "?".
    ASSERT_EQ(kel_set_def_cs(utf8_cs), 0);
    const vor_cat_t cat =
        open_bytes(catalogue({{2, {{1, "gr\xC3\xBC\xC3\x9F \xE6\x97\xA5"}, {2, "a\xFFz"}}}}));

    EXPECT_EQ(text(cat, 2, 1), "gr\xC3\xBC\xC3\x9F \xE6\x97\xA5");
    EXPECT_EQ(text(cat, 2, 2), "a?z");

    ASSERT_EQ(kel_set_def_cs(nullptr), 0);
}

}  // namespace

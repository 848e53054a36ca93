// The built-in table and the C catalogue, which come from the same source.
#include <gtest/gtest.h>

#include "nls/set_state.hpp"
#include "tests/nls/support.hpp"

namespace {

using namespace corvane::test;

const std::string kCatalogue = CORVANE_BUILD_DIR "/nls/C/corvanecat.cat";

TEST(BuiltInTable, HoldsTheDaemonsTextsByNumber)
{
    EXPECT_STREQ(corvanecat[0], "corvanecat");
    EXPECT_STREQ(corvanecat[1], "FTX1000W %s failed: %s\n");
    EXPECT_STREQ(corvanecat[2], "FTX1001W Write of %s failed: %s\n");
    EXPECT_STREQ(corvanecat[595],
                 "FTX1194W DGRAM_BindListener failed %d.  Perhaps another corvaned is running.\n");
    EXPECT_STREQ(corvanecat[625],
                 "FTX1200I Could not find the smb.conf file.\n"
                 "If you are using Samba to share volumes to a Windows based machine.\n"
                 "Set CORVANE_SMBPATH to the full path where the smb.conf file is located.\n"
                 "(ex: CORVANE_SMBPATH set to \"/usr/local/samba/lib/smb.conf\").\n"
                 " Otherwise disreguard this message.\n");
    EXPECT_STREQ(corvanecat[626], "FTX1201W mdcfslib_checkmnttab failed name is: %s.\n");
    EXPECT_STREQ(corvanecat[1000], "FTX3000W Successful normal completion");
    EXPECT_STREQ(corvanecat[1018], "FTX3018W Success, but not fully alloctd");
}

TEST(BuiltInTable, UnusedNumbersHoldPlaceholders)
{
    EXPECT_STREQ(corvanecat[648], "unused648");
    EXPECT_STREQ(corvanecat[3], "unused3");
    EXPECT_STREQ(corvanecat[1054], "unused1054");
    for (const char* const text : corvanecat) ASSERT_NE(text, nullptr);
}

TEST(BuiltInTable, LeavesThePluginLoadersTextsToTheCatalogue)
{
    for (int number = 326; number <= 331; ++number)
        EXPECT_STREQ(corvanecat[number], "Error not defined\n");
}

TEST(CCatalogue, HoldsTheTextsOfTheTableAndThePluginLoaders)
{
    const PrivateSettings settings;
    const vor_cat_t cat = vor_catopen(kCatalogue.c_str(), 1);
    ASSERT_NE(cat, nullptr);
    ASSERT_NE(cat, VOR_NO_CATALOGUE);
    MCSetT* const set = MCGetSet(cat, 2);
    ASSERT_NE(set, nullptr);
    EXPECT_EQ(cat->numSets, 1);

    int own = 0;
    for (std::int32_t number = 1; number < CORVANECAT_ENTRIES; ++number) {
        const std::string table = corvanecat[number];
        const std::string placeholder = "unused" + std::to_string(number);
        const MCMsgT* const message = MCGetMsg(set, number);
        EXPECT_EQ(message == nullptr, table == placeholder) << number;
        if (message == nullptr) continue;
        const std::string text = corvane::slot_address<const char>(message->textOffset);
        if (number >= 326 && number <= 331) {
            EXPECT_EQ(text.substr(0, 3), "FTX") << number;
            ++own;
        } else {
            EXPECT_EQ(text, table) << number;
        }
    }
    EXPECT_EQ(own, 6);
    empty_cache();
}

}  // namespace

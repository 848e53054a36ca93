// Locale and language names.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "codeset/kel_lang.h"

namespace {

// Calls one of the name functions on a buffer whose bytes are all set, and looks at its end.
template <class Function>
[[nodiscard]] std::string canonical(Function function, const char* name, std::uint32_t size = 32)
{
    char buffer[32];
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(function(name, buffer, size), 0U);
    EXPECT_EQ(buffer[size - 1], '\0');
    return buffer;
}

using Row = std::pair<const char*, const char*>;

TEST(CanonicalLocale, FollowsItsTableAndForms)
{
    constexpr Row kRows[] = {
        {"C", "C"},
        {"american", "C"},
        {"ar_AA", "ar"},
        {"Ar_AA", "ar"},
        {"cz", "cs"},
        {"japanese", "ja_JP"},
        {"Jp_JP", "ja_JP"},
        {"jp_JP", "jp_JP"},        // the table is exact
        {"de", "de"},              // two letters and the end,
        {"DE", "de"},              // in small letters,
        {"de.ISO8859-1", "de"},    // a dot
        {"de@euro", "de"},         // or an at-sign
        {"EN-us", "en_US"},        // a hyphen is an underscore
        {"en_US.UTF-8", "en_US"},  // the rest is cut off
        {"en_us", "en_US"},        // the territory is in capitals
        {"en_US@x", "en_US"},
        {"POSIX", "POSIX"},  // nothing fits: unchanged
        {"english", "english"},
        {"e1_US", "e1_US"},
        {"en_USA", "en_USA"},  // six characters decide
        {"en_US1", "en_US1"},
        {"en_U", "en_U"},
        {"en_1S", "en_1S"},
        {"de_", "de_"},
        {"den", "den"},
        {"de1", "de1"},
        {"EN-usa", "EN-usa"},  // unchanged means unchanged
        {"", ""},
        {"e", "e"},
        {"\xE4\xF6_DE", "\xE4\xF6_DE"},
    };

    for (const auto& [name, expected] : kRows) {
        EXPECT_EQ(canonical(kel_canonical_loc, name), expected) << name;
    }
}

TEST(CanonicalLanguage, FollowsItsTableAndForms)
{
    constexpr Row kRows[] = {
        {"C", "C"},           {"en", "C"},
        {"en_US", "C"},       {"en_GB.UTF-8", "C"},
        {"american", "C"},    {"fr", "fr_FR"},
        {"fr_CA", "fr_FR"},   {"ja", "ja_JP"},
        {"ja_JP", "ja_JP"},   {"japanese", "ja_JP"},
        {"pt", "pt_BR"},      {"pt_BR", "pt_BR"},
        {"pt_PT", "pt_BR"},   {"zh", "zh_CN"},
        {"zh_CN", "zh_CN"},   {"zh_TW.big5", "zh_TW"},
        {"zh_HK", "zh_CN"},   {"de_DE", "de"},
        {"de", "de"},         {"cz", "cs"},
        {"ar_AA", "ar"},      {"POSIX", "POSIX"},
        {"english", "engli"}, {"", ""},
        {"e1_US", "e1"},      {"portuguese", "portu"},
        {"en_USA", "C"},      {"x", "x"},
    };

    for (const auto& [name, expected] : kRows) {
        EXPECT_EQ(canonical(kel_canonical_lang, name), expected) << name;
    }
}

TEST(CanonicalNames, AreCutAndTerminated)
{
    EXPECT_EQ(canonical(kel_canonical_loc, "en_US.UTF-8", 4), "en_");
    EXPECT_EQ(canonical(kel_canonical_loc, "english", 3), "en");
    EXPECT_EQ(canonical(kel_canonical_lang, "fr_CA", 1), "");
    char untouched = '#';
    EXPECT_EQ(kel_canonical_loc("de", &untouched, 0), 0U);
    EXPECT_EQ(kel_canonical_lang("de", &untouched, 0), 0U);
    EXPECT_EQ(untouched, '#');
}

TEST(MapString, FindsTheFirstExactKey)
{
    const kel_string_pair table[] = {{"a", "1"}, {"a", "2"}, {"B", "3"}, {nullptr, nullptr}};

    EXPECT_STREQ(map_string(table, "a"), "1");
    EXPECT_EQ(map_string(table, "b"), nullptr);
    EXPECT_EQ(map_string(table, ""), nullptr);
    EXPECT_STREQ(map_string(to_canonical_lang, "zh"), "zh_CN");
    EXPECT_EQ(to_os_loc[0].key, nullptr);
}

// Callers may walk the tables, so their order counts too.
TEST(MapString, TablesHaveTheirPairsInOrder)
{
    using Pairs = std::vector<std::pair<std::string, std::string>>;
    const auto pairs = [](const kel_string_pair* pair) {
        Pairs all;
        for (; pair->key != nullptr; ++pair) all.emplace_back(pair->key, pair->value);
        return all;
    };

    EXPECT_EQ(pairs(to_canonical_loc), (Pairs{{"C", "C"},
                                              {"american", "C"},
                                              {"ar_AA", "ar"},
                                              {"Ar_AA", "ar"},
                                              {"cz", "cs"},
                                              {"japanese", "ja_JP"},
                                              {"Jp_JP", "ja_JP"}}));
    EXPECT_EQ(pairs(to_canonical_lang), (Pairs{{"C", "C"},
                                               {"en", "C"},
                                               {"fr", "fr_FR"},
                                               {"ja", "ja_JP"},
                                               {"pt", "pt_BR"},
                                               {"pt_BR", "pt_BR"},
                                               {"zh", "zh_CN"},
                                               {"zh_TW", "zh_TW"}}));
}

TEST(OsLanguage, IsLANG)
{
    char buffer[8] = "#######";
    EXPECT_EQ(kel_os_lang_name(buffer, 0), 0U);
    EXPECT_EQ(buffer[0], '#');

    setenv("LANG", "de_DE.UTF-8", 1);
    EXPECT_EQ(kel_os_lang_name(buffer, sizeof buffer), 0U);
    EXPECT_STREQ(buffer, "de_DE.U");
    setenv("LANG", "", 1);
    EXPECT_EQ(kel_os_lang_name(buffer, sizeof buffer), 0U);
    EXPECT_STREQ(buffer, "C");
    unsetenv("LANG");
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(kel_os_lang_name(buffer, sizeof buffer), 0U);
    EXPECT_STREQ(buffer, "C");
}

TEST(SetLocale, ReturnsTheCallersOwnPointer)
{
    const char name[] = "C.UTF-8";

    EXPECT_EQ(kel_setlocale(LC_ALL, name), name);
    EXPECT_STREQ(setlocale(LC_ALL, nullptr), "C.UTF-8");
    EXPECT_STREQ(kel_setlocale(LC_ALL, nullptr), "C.UTF-8");  // a question
    (void)setlocale(LC_ALL, "C");
}

TEST(SetLocale, UnknownLocaleEndsInC)
{
    ASSERT_NE(setlocale(LC_ALL, "C.UTF-8"), nullptr);

    EXPECT_STREQ(kel_setlocale(LC_ALL, "xx_YY"), "C");

    EXPECT_STREQ(setlocale(LC_ALL, nullptr), "C");
}

}  // namespace

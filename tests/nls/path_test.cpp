// Finding a catalogue's path: parts of locale names, templates, the search, the shipped languages.
#include <gtest/gtest.h>

#include <array>

#include "tests/mdcmain/private_machine.hpp"
#include "tests/nls/support.hpp"

namespace {

using namespace corvane::test;

std::string part(std::size_t (*copy)(char*, const char*, std::size_t) noexcept, const char* locale)
{
    std::array<char, 64> out{};
    const std::size_t length = copy(out.data(), locale, out.size());
    EXPECT_EQ(std::string(out.data()).size(), length);
    return {out.data(), length};
}

struct Parts {
    const char* locale;
    const char* language;
    const char* territory;
    const char* code_set;
};

constexpr Parts kParts[] = {
    {"de_DE.ISO8859-1", "de", "DE", "ISO8859-1"},
    {"de_DE", "de", "DE", ""},
    {"de.UTF-8", "de", "", "UTF-8"},
    {"de", "de", "", ""},
    {"", "", "", ""},
    {"_DE.x", "", "DE", "x"},
    {"de_.x", "de", "", "x"},
    {"a.b_c.d", "a.b", "c", "b_c.d"},
    {"a_b_c", "a", "b_c", ""},
    {"a.", "a", "", ""},
};

TEST(LocaleParts, AreCutAtUnderscoreAndDot)
{
    for (const Parts& row : kParts) {
        EXPECT_EQ(part(copy_language, row.locale), row.language) << row.locale;
        EXPECT_EQ(part(copy_territory, row.locale), row.territory) << row.locale;
        EXPECT_EQ(part(copy_codeset, row.locale), row.code_set) << row.locale;
    }
}

TEST(LocaleParts, StayWithinTheirRoom)
{
    std::string out = "......";
    EXPECT_EQ(copy_language(out.data(), "english_US", 3), 7U);
    EXPECT_EQ(out, "eng...");
}

std::string expanded(const std::string& path_template, const char* locale)
{
    std::array<char, VOR_PATH_BYTES> path{};
    (void)try_path(path_template.c_str(), locale, "cat", path.data());
    return path.data();
}

TEST(TryPath, ExpandsDirectives)
{
    const char* const locale = "de_DE.ISO8859-1";
    EXPECT_EQ(expanded("/n/%L/%N.cat", locale), "/n/de_DE.ISO8859-1/cat.cat");
    EXPECT_EQ(expanded("%l-%t-%c", locale), "de-DE-ISO8859-1");
    EXPECT_EQ(expanded("%l-%t-%c", "de"), "de--");
    EXPECT_EQ(expanded("%%L", locale), "%de_DE.ISO8859-1")
        << "the first % is copied, the next begins anew";
    EXPECT_EQ(expanded("%x%T%", locale), "%x%T%");
    EXPECT_EQ(expanded("", locale), "");
}

TEST(TryPath, FindsAFileThatExists)
{
    const ScratchFolder folder;
    folder.file("de.cat", "anything");
    std::array<char, VOR_PATH_BYTES> path{};
    const std::string path_template = folder.path("%L.cat");
    EXPECT_EQ(try_path(path_template.c_str(), "de", "cat", path.data()), 1);
    EXPECT_EQ(path.data(), folder.path("de.cat"));
    EXPECT_EQ(try_path(path_template.c_str(), "fr", "cat", path.data()), 0);
}

TEST(TryPath, FindsACachedCatalogueWhoseFileIsGone)
{
    const ScratchFolder folder;
    const std::string file = folder.file("de.cat", catalogue({{1, {}}}));
    ASSERT_NE(vor_catopen(file.c_str(), 0), VOR_NO_CATALOGUE);
    std::filesystem::remove(file);
    std::array<char, VOR_PATH_BYTES> path{};

    EXPECT_EQ(try_path(folder.path("%L.cat").c_str(), "de", "cat", path.data()), 1);

    EXPECT_EQ(lookTicker, 0U) << "looking for a path is no use of the catalogue";
    empty_cache();
}

TEST(TryPath, PathThatDoesNotFitIsNotFound)
{
    std::array<char, VOR_PATH_BYTES> path{};
    // "/" and 254 dots and slashes name the root; one more does not fit.
    const std::string fits = "/" + std::string(254, '/');
    EXPECT_EQ(try_path(fits.c_str(), "x", "y", path.data()), 1);
    EXPECT_EQ(path.data(), fits);
    EXPECT_EQ(try_path((fits + "/").c_str(), "x", "y", path.data()), 0);
    EXPECT_EQ(try_path("%L%L", std::string(200, '/').c_str(), "y", path.data()), 0);
}

constexpr char kNls[] = "/usr/Corvane/nls/";

// The directory that is found with these directories there, or "" when none is.
std::string found_among(const std::vector<std::string>& directories)
{
    std::filesystem::remove_all(kNls);
    for (const std::string& directory : directories)
        write_file(kNls + directory + "/corvanecat.cat", "x");
    std::array<char, VOR_PATH_BYTES> path{};
    vor_getNlsPath(path.data());
    const std::string found = path.data();
    const std::string end = "/corvanecat.cat";
    if (found.empty()) return found;
    EXPECT_EQ(found.substr(0, sizeof kNls - 1), kNls);
    EXPECT_EQ(found.substr(found.size() - end.size()), end);
    return found.substr(sizeof kNls - 1, found.size() - end.size() - (sizeof kNls - 1));
}

TEST(NlsPath, TriesLocaleThenShortNameThenLanguageThenC)
{
    in_private_machine([] {
        setenv("LC_ALL", "fr_CA.ISO8859-1", 1);
        EXPECT_EQ(found_among({"fr_CA", "fr", "fr_FR", "C"}), "fr_CA");
        EXPECT_EQ(found_among({"fr", "fr_FR", "C"}), "fr");
        EXPECT_EQ(found_among({"fr_FR", "C"}), "fr_FR");
        EXPECT_EQ(found_among({"C", "de", "fr_CA.ISO8859-1"}), "C");
    });
}

TEST(NlsPath, TwoLetterLocaleHasNoShortName)
{
    in_private_machine([] {
        setenv("LC_ALL", "ja.eucJP", 1);
        EXPECT_EQ(found_among({"ja", "ja_JP", "C"}), "ja");
        EXPECT_EQ(found_among({"ja_JP", "C"}), "ja_JP");
    });
}

TEST(NlsPath, EnvironmentIsAskedInItsOrder)
{
    in_private_machine([] {
        const std::vector<std::string> all = {"de", "es", "it", "C"};
        EXPECT_EQ(found_among(all), "C") << "nothing set";
        setenv("LANG", "it_IT", 1);
        EXPECT_EQ(found_among(all), "it");
        setenv("LC_MESSAGES", "es_ES", 1);
        EXPECT_EQ(found_among(all), "es");
        setenv("LC_ALL", "de_DE", 1);
        EXPECT_EQ(found_among(all), "de");
        setenv("LC_ALL", "", 1);
        EXPECT_EQ(found_among(all), "es") << "an empty value is none";
        setenv("LC_CTYPE", "de_DE", 1);
        setenv("NLSPATH", "/usr/Corvane/nls/de/%N.cat", 1);
        EXPECT_EQ(found_among(all), "es") << "other variables play no part";
    });
}

TEST(NlsPath, OddNamesAreCanonicalized)
{
    in_private_machine([] {
        setenv("LANG", "japanese", 1);
        EXPECT_EQ(found_among({"ja_JP", "C"}), "ja_JP");
        setenv("LANG", "EN-us", 1);
        EXPECT_EQ(found_among({"en_US", "C"}), "en_US");
        setenv("LANG", "POSIX", 1);
        EXPECT_EQ(found_among({"POSIX", "PO", "C"}), "POSIX");
        EXPECT_EQ(found_among({"PO", "C"}), "PO");
        setenv("LANG", std::string(300, 'x').c_str(), 1);
        EXPECT_EQ(found_among({"C"}), "C");
    });
}

TEST(NlsPath, LeavesTheBufferAloneWhenNothingIsFound)
{
    in_private_machine([] {
        std::filesystem::remove_all(kNls);
        std::array<char, VOR_PATH_BYTES> path{"untouched"};
        vor_getNlsPath(path.data());
        EXPECT_STREQ(path.data(), "untouched");
    });
}

TEST(NlsPath, FindsEveryShippedLanguage)
{
    in_private_machine([] {
        std::filesystem::remove_all(kNls);
        for (const auto& entry : std::filesystem::directory_iterator(CORVANE_BUILD_DIR "/nls")) {
            const std::string catalogue = "/corvanecat.cat";
            if (!std::filesystem::exists(entry.path().string() + catalogue)) continue;
            write_file(kNls + entry.path().filename().string() + catalogue, "x");
        }
        const std::pair<const char*, const char*> rows[] = {
            {"C", "C"},
            {"POSIX", "C"},
            {"en_US.UTF-8", "C"},
            {"nl_NL", "C"},
            {"de_DE.UTF-8", "de"},
            {"de_AT", "de"},
            {"de", "de"},
            {"fr_FR", "fr_FR"},
            {"fr", "fr_FR"},
            {"fr_CA.UTF-8", "fr_FR"},
            {"es_ES", "es"},
            {"es_MX@x", "es"},
            {"it_IT", "it"},
            {"it_CH", "it"},
            {"pt_BR", "pt_BR"},
            {"pt_PT", "pt_BR"},
            {"pt", "pt_BR"},
            {"ja_JP.eucJP", "ja_JP"},
            {"ja", "ja_JP"},
            {"ko_KR.eucKR", "ko"},
            {"ko", "ko"},
            {"zh_CN.GB18030", "zh_CN"},
            {"zh", "zh_CN"},
            {"zh_SG", "zh_CN"},
            {"zh_TW.Big5", "zh_TW"},
            {"zh_HK", "zh_HK"},
            {"zh_MO.UTF-8", "zh_MO"},
        };
        for (const auto& [locale, directory] : rows) {
            setenv("LANG", locale, 1);
            std::array<char, VOR_PATH_BYTES> path{};
            vor_getNlsPath(path.data());
            EXPECT_EQ(path.data(), std::string(kNls) + directory + "/corvanecat.cat") << locale;
        }
    });
}

}  // namespace

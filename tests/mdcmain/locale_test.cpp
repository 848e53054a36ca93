// Language set-up: locale string, catalogue path, punctuation; new and existing segments.
#include "mdcmain/locale.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/shm.h>

#include <array>
#include <cstring>
#include <string>

#include "mdcmain/language.hpp"
#include "mdcmain/log.hpp"
#include "mdcmain/segment.h"
#include "tests/mdcmain/private_machine.hpp"

namespace {

using corvane::message_text;
using corvane::test::in_private_machine;
using corvane::test::kCatalogue;
using corvane::test::read_file;
using corvane::test::write_catalogue;
using corvane::test::write_file;
using ::testing::EndsWith;

// -1 is how the catalogue's interface says "none".
auto* const kNoCatalogue = VOR_NO_CATALOGUE;  // NOLINT(performance-no-int-to-ptr): as said
constexpr char kLanguageFile[] = "/usr/Corvane/lang.txt";
constexpr char kLog[] = "/usr/Corvane/mclog0";

struct LocaleString {
    std::string text;
    bool is_null;
};

LocaleString locale_string()
{
    std::array<char, 256> buffer{"untouched"};
    char* const result = corvaneSetLocale(buffer.data());
    EXPECT_TRUE(result == nullptr || result == buffer.data());
    return {buffer.data(), result == nullptr};
}

// The next program of the product, with this process's environment.
void attach_again()
{
    if (fs != nullptr) shmdt(fs);
    fs = nullptr;
    corvane_cat = nullptr;
    std::memset(glbNlsPath, 0, sizeof glbNlsPath);
    fused_mapShared();
}

TEST(LocaleString, IsEmptyAndNullWithoutVariables)
{
    in_private_machine([] {
        EXPECT_EQ(locale_string().text, "");
        EXPECT_TRUE(locale_string().is_null);
    });
}

TEST(LocaleString, HoldsWhatIsSetInOrder)
{
    in_private_machine([] {
        setenv("LANG", "fr_FR", 1);
        EXPECT_EQ(locale_string().text, "/fr_FR");
        EXPECT_FALSE(locale_string().is_null);
        setenv("LC_CTYPE", "en_US", 1);
        EXPECT_EQ(locale_string().text, "/en_US/fr_FR");
        int number = 0;
        for (const char* name : {"LC_CTYPE", "LC_COLLATE", "LC_TIME", "LC_NUMERIC", "LC_MONETARY",
                                 "LC_MESSAGES", "LANG"}) {
            setenv(name, std::to_string(++number).c_str(), 1);
        }
        setenv("LC_ALL", "ignored", 1);
        EXPECT_EQ(locale_string().text, "/1/2/3/4/5/6/7");
        setenv("LC_TIME", "", 1);
        EXPECT_EQ(locale_string().text, "/1/2//4/5/6/7");
        unsetenv("LANG");
        EXPECT_EQ(locale_string().text, "/1/2//4/5/6");
        EXPECT_TRUE(locale_string().is_null);
    });
}

TEST(LocaleString, IsCutAt255)
{
    in_private_machine([] {
        setenv("LC_CTYPE", std::string(200, 'x').c_str(), 1);
        setenv("LANG", std::string(200, 'y').c_str(), 1);
        EXPECT_EQ(locale_string().text, "/" + std::string(200, 'x') + "/" + std::string(53, 'y'));
        EXPECT_FALSE(locale_string().is_null);
    });
}

std::string checked_language()
{
    std::array<char, 256> buffer{"untouched"};
    checkLang(buffer.data());
    return buffer.data();
}

TEST(LanguageFile, GivesItsFirstLine)
{
    in_private_machine([] {
        EXPECT_EQ(checked_language(), "untouched");
        write_file(kLanguageFile, "");
        EXPECT_EQ(checked_language(), "untouched");
        write_file(kLanguageFile, "/opt/msg/%N.cat\nmore\n");
        EXPECT_EQ(checked_language(), "/opt/msg/%N.cat");
        write_file(kLanguageFile, "/opt/msg/%N.cat");
        EXPECT_EQ(checked_language(), "/opt/msg/%N.cat");
        write_file(kLanguageFile, "\n/second\n");
        EXPECT_EQ(checked_language(), "");
        write_file(kLanguageFile, std::string(400, 'p') + "\n");
        EXPECT_EQ(checked_language(), std::string(255, 'p'));
    });
}

TEST(NlsSetup, PrefersTheLanguageFileAndRemembersIt)
{
    in_private_machine([] {
        fused_mapShared();
        std::array<char, 256> path{"old"};
        nlsSetup(path.data());
        EXPECT_STREQ(path.data(), kCatalogue);
        EXPECT_EQ(fs->langFromFile, 0);

        write_file(kLanguageFile, "/opt/msg/%N.cat\n");
        nlsSetup(path.data());
        EXPECT_STREQ(path.data(), "/opt/msg/%N.cat");
        EXPECT_EQ(fs->langFromFile, 1);
    });
}

TEST(NlsSetup, FindsTheProcesssLanguage)
{
    in_private_machine([] {
        fused_mapShared();
        write_catalogue("/usr/Corvane/nls/de/corvanecat.cat", "1 eins\n");
        setenv("LC_ALL", "de_DE.ISO8859-1", 1);
        std::array<char, 256> path{};
        nlsSetup(path.data());
        EXPECT_STREQ(path.data(), "/usr/Corvane/nls/de/corvanecat.cat");
    });
}

TEST(NlsSetup, NoPathIsLogged)
{
    in_private_machine([] {
        fused_mapShared();
        std::filesystem::remove(kCatalogue);
        std::array<char, 256> path{"old"};
        nlsSetup(path.data());
        EXPECT_STREQ(path.data(), "");
        EXPECT_THAT(
            read_file(kLog),
            EndsWith("No nlsPath found, This will cause the system to be very unstable.\n"));
    });
}

TEST(ThousandSeparator, IsAPointWhereALanguageNameOccursAnywhere)
{
    in_private_machine([] {
        fused_mapShared();
        for (const char* text : {"/opt/msg/de/%N.cat", "es", "/it/", "/usr/fr/C.cat", "x/pt_BR/y",
                                 "/files/bytes/C.cat", "/usr/share/units"}) {
            fs->thousandsSep = fs->decimalPoint = 0;
            setThousandSeperator(text);
            EXPECT_EQ(fs->thousandsSep, '.') << text;
            EXPECT_EQ(fs->decimalPoint, ',') << text;
        }
        for (const char* text : {"/opt/msg/%N.cat", "", "/usr/Corvane/nls/C/corvanecat.cat", "/pt/",
                                 "/DE/FR/ES/IT/"}) {
            fs->thousandsSep = fs->decimalPoint = 0;
            setThousandSeperator(text);
            EXPECT_EQ(fs->thousandsSep, ',') << text;
            EXPECT_EQ(fs->decimalPoint, '.') << text;
        }
    });
}

TEST(NewSegment, KeepsLocaleAndPathAndOpensNoCatalogue)
{
    in_private_machine([] {
        setenv("LANG", "en_US", 1);
        fused_mapShared();
        EXPECT_STREQ(fs->langName, "/en_US");
        EXPECT_STREQ(fs->nlsPath, kCatalogue);
        EXPECT_EQ(fs->nlsReady, -1);
        EXPECT_EQ(fs->thousandsSep, ',');
        EXPECT_EQ(corvane_cat, nullptr);
        EXPECT_STREQ(glbNlsPath, "");
    });
}

TEST(NewSegment, TakesTheLanguageFileAndItsPunctuation)
{
    in_private_machine([] {
        write_file(kLanguageFile, "/opt/msg/de/corvane.cat\n");
        fused_mapShared();
        EXPECT_STREQ(fs->nlsPath, "/opt/msg/de/corvane.cat");
        EXPECT_EQ(fs->langFromFile, 1);
        EXPECT_EQ(fs->thousandsSep, '.');
        EXPECT_EQ(fs->decimalPoint, ',');
    });
}

TEST(NewSegment, StartUpOpensItsCatalogue)
{
    in_private_machine([] {
        write_catalogue(kCatalogue, "595 from the file\n");
        fused_mapShared();
        corvane::open_creators_catalogue();
        EXPECT_NE(corvane_cat, nullptr);
        EXPECT_NE(corvane_cat, kNoCatalogue);
        EXPECT_STREQ(message_text(595), "from the file");
        auto* const open = corvane_cat;
        std::strcpy(fs->nlsPath, "/tmp/other");
        corvane::open_creators_catalogue();
        EXPECT_EQ(corvane_cat, open);
    });
}

TEST(ExistingSegment, AFileThatIsNoCatalogueIsTriedOnce)
{
    in_private_machine([] {
        fused_mapShared();
        write_file(kCatalogue, "no catalogue");
        attach_again();
        EXPECT_EQ(corvane_cat, nullptr);
        write_catalogue(kCatalogue, "595 too late\n");
        corvane::open_creators_catalogue();
        EXPECT_EQ(corvane_cat, nullptr);
    });
}

TEST(ExistingSegment, WithTheSameLocaleGivesItsPathAndOpensTheCatalogue)
{
    in_private_machine([] {
        setenv("LANG", "en_US", 1);
        fused_mapShared();
        write_catalogue("/tmp/kept.cat", "595 kept\n");
        std::strcpy(fs->nlsPath, "/tmp/kept.cat");
        fs->thousandsSep = 7;

        attach_again();

        EXPECT_STREQ(glbNlsPath, "/tmp/kept.cat");
        EXPECT_STREQ(fs->nlsPath, "/tmp/kept.cat");
        EXPECT_STREQ(message_text(595), "kept");
        EXPECT_EQ(fs->thousandsSep, 7);  // nothing was settled anew
    });
}

TEST(ExistingSegment, WithAnotherLocaleIsSettledAnew)
{
    in_private_machine([] {
        setenv("LANG", "C", 1);
        fused_mapShared();
        write_catalogue("/usr/Corvane/nls/de/corvanecat.cat", "595 deutsch\n");
        setenv("LANG", "de_DE", 1);
        setenv("LC_MESSAGES", "de_DE", 1);

        attach_again();

        EXPECT_STREQ(fs->langName, "/de_DE/de_DE");
        EXPECT_STREQ(fs->nlsPath, "/usr/Corvane/nls/de/corvanecat.cat");
        EXPECT_STREQ(glbNlsPath, fs->nlsPath);
        EXPECT_EQ(fs->thousandsSep, '.');
        EXPECT_EQ(fs->decimalPoint, ',');
        EXPECT_STREQ(message_text(595), "deutsch");
    });
}

TEST(ExistingSegment, WithoutAnyLocaleKeepsTheNameButLooksAgain)
{
    in_private_machine([] {
        setenv("LANG", "en_US", 1);
        fused_mapShared();
        std::strcpy(fs->nlsPath, "/tmp/old");
        unsetenv("LANG");

        attach_again();

        EXPECT_STREQ(fs->langName, "/en_US");
        EXPECT_STREQ(fs->nlsPath, kCatalogue);
    });
}

TEST(ExistingSegment, KeepsItsPathWhenNoneIsFoundAndTestsItsPunctuation)
{
    in_private_machine([] {
        fused_mapShared();
        std::strcpy(fs->nlsPath, "/opt/fr/x.cat");
        std::filesystem::remove(kCatalogue);
        setenv("LANG", "C", 1);

        attach_again();

        EXPECT_STREQ(fs->nlsPath, "/opt/fr/x.cat");
        EXPECT_STREQ(glbNlsPath, "");
        EXPECT_EQ(fs->thousandsSep, '.');
        EXPECT_EQ(corvane_cat, kNoCatalogue);
        EXPECT_STREQ(message_text(595), "Error not defined\n");
    });
}

TEST(ExistingSegment, ReadsTheLanguageFileEachTime)
{
    in_private_machine([] {
        setenv("LANG", "C", 1);
        fused_mapShared();
        for (const char* path : {"/opt/one.cat", "/opt/de/two.cat"}) {
            write_file(kLanguageFile, std::string(path) + "\n");
            attach_again();
            EXPECT_STREQ(fs->nlsPath, path);
            EXPECT_STREQ(glbNlsPath, path);
            EXPECT_STREQ(fs->langName, "/C");
            EXPECT_EQ(fs->langFromFile, 1);
        }
        EXPECT_EQ(fs->decimalPoint, ',');
    });
}

TEST(ExistingSegment, LooksAgainWhenTheLanguageFileHasGone)
{
    in_private_machine([] {
        setenv("LANG", "C", 1);
        write_file(kLanguageFile, "/opt/one.cat\n");
        fused_mapShared();
        EXPECT_EQ(fs->langFromFile, 1);
        std::filesystem::remove(kLanguageFile);

        attach_again();

        EXPECT_EQ(fs->langFromFile, 0);
        EXPECT_STREQ(fs->langName, "/C");
        EXPECT_STREQ(fs->nlsPath, kCatalogue);
    });
}

TEST(ExistingSegment, FollowsTheLanguageFileWithoutAnyLocaleToo)
{
    in_private_machine([] {
        fused_mapShared();
        for (const char* path : {"/opt/one.cat", "/opt/de/two.cat"}) {
            write_file(kLanguageFile, std::string(path) + "\n");
            attach_again();
            EXPECT_STREQ(fs->nlsPath, path);
            EXPECT_STREQ(glbNlsPath, path);
            EXPECT_EQ(fs->langFromFile, 1);
        }
        EXPECT_EQ(fs->decimalPoint, ',');
        std::filesystem::remove(kLanguageFile);

        attach_again();

        EXPECT_EQ(fs->langFromFile, 0);
        EXPECT_STREQ(fs->langName, "");
        EXPECT_STREQ(fs->nlsPath, kCatalogue);
        EXPECT_STREQ(glbNlsPath, kCatalogue);
        EXPECT_EQ(fs->decimalPoint, '.');
    });
}

TEST(ExistingSegment, AnOpenCatalogueStaysOpen)
{
    in_private_machine([] {
        fused_mapShared();
        attach_again();
        auto* const open = corvane_cat;
        write_catalogue("/tmp/other.cat", "595 other\n");
        std::strcpy(fs->nlsPath, "/tmp/other.cat");
        corvane::refresh_language();
        EXPECT_STREQ(glbNlsPath, "/tmp/other.cat");
        EXPECT_EQ(corvane_cat, open);
    });
}

TEST(MessageText, FallsBackToTheBuiltInTable)
{
    in_private_machine([] {
        fused_mapShared();
        EXPECT_EQ(corvane_cat, nullptr);
        EXPECT_STREQ(message_text(626), "FTX1201W mdcfslib_checkmnttab failed name is: %s.\n");
        fs->nlsEnabled = 0;
        EXPECT_STREQ(message_text(595),
                     "FTX1194W DGRAM_BindListener failed %d.  Perhaps another corvaned "
                     "is running.\n");
    });
}

}  // namespace

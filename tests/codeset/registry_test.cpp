// The registry: names, the search for tables, alias files and objects.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <langinfo.h>
#include <sys/stat.h>

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "tests/codeset/registry_fixture.hpp"

namespace {

using namespace corvane::test;

// Whether the C library names no code set for the locale; every locale at hand has one.
bool locale_has_no_code_set = false;

}  // namespace

// Stands before the C library's, which it asks.
extern "C" char* nl_langinfo(nl_item item) noexcept
{
    static char nothing[] = "";
    static auto* const real = reinterpret_cast<decltype(&nl_langinfo)>(dlsym(RTLD_NEXT, __func__));
    return locale_has_no_code_set && item == CODESET ? nothing : real(item);
}

namespace {

class Registry : public RegistryTest {
protected:
    void TearDown() override
    {
        locale_has_no_code_set = false;
        RegistryTest::TearDown();
    }
};

// ---- names ----

[[nodiscard]] std::string table_name(const char* name, std::uint32_t size = 128)
{
    char buffer[128];
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(get_table_name(name, buffer, size), 0U);
    EXPECT_EQ(buffer[size - 1], '\0');
    return buffer;
}

TEST_F(Registry, TableNameKeepsLettersAndDigitsInCapitals)
{
    EXPECT_EQ(table_name("ISO-8859-1"), "ISO88591");
    EXPECT_EQ(table_name("utf-8"), "UTF8");
    EXPECT_EQ(table_name("ZAR-943"), "943");
    EXPECT_EQ(table_name("zar-1047"), "ZAR1047");
    EXPECT_EQ(table_name("ZARZAR1"), "ZAR1");
    EXPECT_EQ(table_name(" e.u_c-\xE4jp "), "EUCJP");
    EXPECT_EQ(table_name(""), "");
}

TEST_F(Registry, TableNameIsCutAndTerminated)
{
    EXPECT_EQ(table_name("ISO-8859-1", 5), "ISO8");
    EXPECT_EQ(table_name("ISO-8859-1", 1), "");
    char untouched = '#';
    EXPECT_EQ(get_table_name("A", &untouched, 0), 0U);
    EXPECT_EQ(untouched, '#');
}

TEST_F(Registry, AliasHookDoesNothing)
{
    EXPECT_EQ(get_alias(), 1U);
}

TEST_F(Registry, CodeSetNameComesFromTheVariable)
{
    char buffer[16];
    setenv("KEL_CODESET", "zar-1047", 1);

    EXPECT_EQ(get_cs_name(buffer, sizeof buffer), 0U);
    EXPECT_STREQ(buffer, "zar-1047");
    EXPECT_EQ(kel_os_cs_name(buffer, sizeof buffer), 0U);
    EXPECT_STREQ(buffer, "ZAR1047");
    EXPECT_EQ(get_cs_name(buffer, 4), 0U);
    EXPECT_STREQ(buffer, "zar");
}

TEST_F(Registry, CodeSetNameWithoutRoomIsOne)
{
    char untouched = '#';

    EXPECT_EQ(get_cs_name(&untouched, 0), 1U);
    EXPECT_EQ(untouched, '#');
}

TEST_F(Registry, EmptyVariableMeansTheLocales)
{
    char buffer[32];
    setenv("KEL_CODESET", "", 1);
    setenv("LC_ALL", "C.UTF-8", 1);

    EXPECT_EQ(get_cs_name(buffer, sizeof buffer), 0U);
    EXPECT_STREQ(buffer, "UTF-8");
    EXPECT_STREQ(setlocale(LC_ALL, nullptr), "C.UTF-8");  // the environment's is now the process's
    EXPECT_EQ(kel_os_cs_name(buffer, sizeof buffer), 0U);
    EXPECT_STREQ(buffer, "UTF8");
}

TEST_F(Registry, LocaleWithoutACodeSetMeansLatin1)
{
    char buffer[32];
    locale_has_no_code_set = true;

    EXPECT_EQ(get_cs_name(buffer, sizeof buffer), 0U);
    EXPECT_STREQ(buffer, "ISO88591");
    EXPECT_EQ(kel_os_cs_name(buffer, sizeof buffer), 0U);
    EXPECT_STREQ(buffer, "ISO88591");
}

// However much room the caller has, the raw name is cut at 127 characters.
TEST_F(Registry, LongCodeSetNameIsCut)
{
    char buffer[256];
    setenv("KEL_CODESET", std::string(200, 'a').c_str(), 1);

    EXPECT_EQ(kel_os_cs_name(buffer, sizeof buffer), 0U);
    EXPECT_EQ(std::string(buffer), std::string(127, 'A'));
    EXPECT_EQ(kel_os_cs_name(buffer, 4), 0U);
    EXPECT_STREQ(buffer, "AAA");
}

// ---- search ----

TEST_F(Registry, SearchesItsPlacesInOrder)
{
    write("kel/codeset/NAME", table(1));
    write("kel/NAME", table(2));
    write("generic/codeset/NAME", table(3));
    fs::create_directories("bin");
    write("NAME", table(4));
    setenv("CORKELDIR", (folder_ / "kel").c_str(), 1);
    setenv("BINDIR", (folder_ / "bin").c_str(), 1);

    for (const unsigned mark : {1U, 2U, 3U, 4U}) {
        EXPECT_EQ(found("NAME"), mark);
        const char* const places[] = {"kel/codeset/NAME", "kel/NAME", "generic/codeset/NAME",
                                      "NAME"};
        fs::remove(places[mark - 1]);
    }
    EXPECT_EQ(found("NAME"), 0U);
}

TEST_F(Registry, EmptyVariablesAreNotPlaces)
{
    write("NAME", table(4));
    setenv("CORKELDIR", "", 1);
    setenv("BINDIR", "", 1);

    EXPECT_EQ(found("NAME"), 4U);
}

// Places whose variable is too long for them are left out, each by its own measure.
TEST_F(Registry, TooLongAVariableIsSkippedNotCut)
{
    const auto found_with_length = [&](const char* variable, std::size_t length) {
        std::string path = (folder_ / "kel").string();
        while (path.size() + 2 <= length) path += "/.";
        if (path.size() < length) path += "/";
        setenv(variable, path.c_str(), 1);
        return found("N");
    };
    write("kel/codeset/N", table(1));
    write("kel/N", table(2));
    write("generic/codeset/N", table(4));
    write("N", table(3));

    EXPECT_EQ(found_with_length("CORKELDIR", 244), 1U);
    EXPECT_EQ(found_with_length("CORKELDIR", 246), 2U);
    EXPECT_EQ(found_with_length("CORKELDIR", 252), 2U);
    EXPECT_EQ(found_with_length("CORKELDIR", 254), 3U);
    EXPECT_EQ(found_with_length("CORKELDIR", 400), 3U);
    EXPECT_EQ(found_with_length("BINDIR", 233), 4U);
    EXPECT_EQ(found_with_length("BINDIR", 235), 3U);
    EXPECT_EQ(found_with_length("BINDIR", 400), 3U);
}

TEST_F(Registry, NamesAreUsedAsSpelled)
{
    write("UTF-8", table(7));
    write("utf8", table(8));

    EXPECT_EQ(found("UTF-8"), 7U);
    EXPECT_EQ(found("utf8"), 8U);
    EXPECT_EQ(found("Utf-8"), 0U);
}

// ---- loading and aliases ----

TEST_F(Registry, LoadsATableWhole)
{
    write("dir/NAME", table(9));
    std::uint32_t size = 99;

    void* const image = load_table("dir/", "NAME", &size);

    ASSERT_NE(image, nullptr);
    EXPECT_EQ(size, table(9).size());
    EXPECT_EQ(std::memcmp(image, table(9).data(), size), 0);
    std::free(image);
}

TEST_F(Registry, MissingTableHasSizeZero)
{
    std::uint32_t size = 99;

    EXPECT_EQ(load_table("", "NAME", &size), nullptr);
    EXPECT_EQ(size, 0U);
    size = 99;
    EXPECT_EQ(get_table("NAME", &size), nullptr);
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(get_table("NAME", nullptr), nullptr);
}

TEST_F(Registry, AliasTextNamesAFileOfTheSameFolder)
{
    write("kel/codeset/ISO88591", table(5));
    write("kel/codeset/LATIN1",
          " ISO\t8859\x01"
          "1\r\n");
    write("ISO88591", table(6));
    setenv("CORKELDIR", (folder_ / "kel").c_str(), 1);

    EXPECT_EQ(found("LATIN1"), 5U);
}

TEST_F(Registry, AliasTextIsUsedAsItStands)
{
    write("A", "ZARb");
    write("ZARb", table(3));
    write("B", table(4));

    EXPECT_EQ(found("A"), 3U);
}

TEST_F(Registry, FourAliasesLeadToATableAndFiveDoNot)
{
    write("F", table(6));
    write("E", "F");
    write("D", "E");
    write("C", "D");
    write("B", "C");
    write("A", "B");

    EXPECT_EQ(found("B"), 6U);
    EXPECT_EQ(found("A"), 0U);
}

TEST_F(Registry, AliasOfItselfEnds)
{
    write("A", "A");

    EXPECT_EQ(found("A"), 0U);
}

TEST_F(Registry, ShortFileWithTheMagicIsAnAlias)
{
    std::string image = table(1);
    image.resize(1760);
    write("LONG", image);
    image.resize(1759);
    write("SHORT", image);

    EXPECT_EQ(found("LONG"), 1U);
    EXPECT_EQ(found("SHORT"), 0U);
}

TEST_F(Registry, LongFileWithoutTheMagicIsAnAlias)
{
    write("NAME", std::string(2000, ' ') + "OTHER");
    write("OTHER", table(2));

    EXPECT_EQ(found("NAME"), 2U);
}

// The text stops where the path has 255 characters.
TEST_F(Registry, AliasTextIsCutAtThePathsEnd)
{
    const std::string longest(255, 'n');
    write("NAME", longest + "more");
    write(longest, table(3));

    EXPECT_EQ(found("NAME"), 3U);
}

TEST_F(Registry, DirectoryAndNameAreBounded)
{
    const std::string name(252, 'n');
    write(name, table(1));
    std::uint32_t size = 0;

    void* const image = load_table("./", name.c_str(), &size);  // 2 + 252 + 2 = 256
    EXPECT_NE(image, nullptr);
    std::free(image);
    write(name + "n", table(1));
    EXPECT_EQ(load_table("./", (name + "n").c_str(), &size), nullptr);
}

TEST_F(Registry, EmptyFilesFoldersAndPipesAreNoTables)
{
    write("EMPTY", "");
    fs::create_directory("FOLDER");
    ASSERT_EQ(mkfifo("PIPE", 0600), 0);

    EXPECT_EQ(found("EMPTY"), 0U);
    EXPECT_EQ(found("FOLDER"), 0U);
    EXPECT_EQ(found("PIPE"), 0U);
    EXPECT_EQ(found(""), 0U);
    EXPECT_EQ(kel_cs_new(nullptr), nullptr);
}

// ---- objects ----

TEST_F(Registry, ObjectTakesItsFieldsFromTheHeader)
{
    TableWriter writer(KEL_TYPE_ASCII_MBCS);
    writer.put16(50, 0x2345);
    writer.put16(56, 0x5678);
    writer.put16(62, 0x1234);
    for (std::size_t i = 0; i < 16; ++i) writer.image[64 + i] = static_cast<char>(0xA0 + i);
    write("NAME", writer.image);

    const CsPtr cs(kel_cs_new("NAME"));

    ASSERT_NE(cs, nullptr);
    EXPECT_EQ(cs->type, KEL_TYPE_ASCII_MBCS);
    EXPECT_EQ(cs->table_backed, 1);
    EXPECT_EQ(cs->hdr_value_a, 0x1234);
    EXPECT_EQ(cs->hdr_value_b, 0x5678);
    EXPECT_EQ(cs->hdr_block[0], 0xA0);
    EXPECT_EQ(cs->hdr_block[15], 0xAF);
    EXPECT_EQ(cs->from_state, 0);
    EXPECT_EQ(cs->to_state, 0);
    EXPECT_EQ(cs->table_size, writer.image.size());
    std::uint32_t size = 0;
    EXPECT_EQ(kel_cs_table(cs.get(), &size), cs->table);
    EXPECT_EQ(size, writer.image.size());
}

TEST_F(Registry, EncodingSchemeOverridesTheType)
{
    TableWriter writer(KEL_TYPE_ASCII_MBCS);
    writer.put16(50, 0x1100);
    write("NAME", writer.image);

    const CsPtr cs(cs_new("NAME"));

    ASSERT_NE(cs, nullptr);
    EXPECT_EQ(cs->type, KEL_TYPE_EBCDIC_SBCS);
}

TEST_F(Registry, UnknownTypesOfTablesPassThrough)
{
    for (const std::uint16_t type : {std::uint16_t{5}, std::uint16_t{7}}) {
        write("NAME", TableWriter(type).image);
        const CsPtr cs(kel_cs_new("NAME"));
        ASSERT_NE(cs, nullptr);
        EXPECT_EQ(cs->type, type);
        EXPECT_EQ(cs->table_backed, 1);
        EXPECT_EQ(from_ucs2(*cs, u"\u20AC"), (Bytes{KEL_DONE, "\xAC"}));
    }
}

TEST_F(Registry, Utf8NeedsNoFile)
{
    const CsPtr cs(kel_cs_new("UTF8"));

    ASSERT_NE(cs, nullptr);
    EXPECT_NE(cs.get(), utf8_cs);
    EXPECT_EQ(cs->type, KEL_TYPE_UTF8);
    EXPECT_EQ(cs->table_backed, 0);
    std::uint32_t size = 99;
    EXPECT_EQ(kel_cs_table(cs.get(), &size), nullptr);
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(kel_cs_new("utf8"), nullptr);
}

TEST_F(Registry, BuiltInsAreNeverFreed)
{
    EXPECT_EQ(kel_cs_free(nullptr), 0U);
    EXPECT_EQ(kel_cs_free(utf8_cs), 0U);
    EXPECT_EQ(kel_cs_free(os_cs), 0U);
    EXPECT_EQ(utf8_cs, &utf8_uc_ch_t);
    EXPECT_EQ(os_cs, &os_uc_ch_t);
    EXPECT_EQ(utf8_cs->type, KEL_TYPE_UTF8);
    EXPECT_EQ(os_cs->type, KEL_TYPE_OS);
}

// ---- the shipped tables ----

TEST(Shipped, EveryAliasLeadsToItsTable)
{
    for (const ListedSet& set : listed_sets()) {
        const CsPtr table = open_built(set.table);
        ASSERT_NE(table, nullptr) << set.table;
        for (const std::string& alias : set.aliases) {
            const CsPtr other = open_built(alias);
            ASSERT_NE(other, nullptr) << alias;
            ASSERT_EQ(other->table_size, table->table_size) << alias;
            EXPECT_EQ(std::memcmp(other->table, table->table, table->table_size), 0) << alias;
        }
    }
}

// A table or alias is found by a locale's code-set name only if its own name is the normal form of
// one.
TEST(Shipped, NamesAreInNormalForm)
{
    for (const ListedSet& set : listed_sets()) {
        std::vector<std::string> names = set.aliases;
        names.push_back(set.table);
        for (const std::string& name : names) EXPECT_EQ(table_name(name.c_str()), name);
    }
}

}  // namespace

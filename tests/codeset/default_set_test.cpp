// The default code set: what a process starts with, and what changes it.
#include <cstdint>

#include "tests/codeset/registry_fixture.hpp"

namespace corvane::test {
namespace {

class DefaultSet : public RegistryTest {};

TEST_F(DefaultSet, InitTakesTheProcessesCodeSet)
{
    write("ISO88591", table(5));
    write("DEFAULT", table(6));
    setenv("KEL_CODESET", "iso-8859-1", 1);

    EXPECT_EQ(kel_init(), 0U);

    EXPECT_EQ(kel_initialized, 1);
    EXPECT_EQ(def_cs->hdr_value_a, 5);
    EXPECT_EQ(os_loc_cs, def_cs);
    kel_cs_t* const first = def_cs;
    EXPECT_EQ(kel_init(), 0U);
    EXPECT_EQ(def_cs, first);
}

TEST_F(DefaultSet, InitFallsBackToDEFAULTAndThenToPassThrough)
{
    setenv("KEL_CODESET", "nosuch", 1);
    write("DEFAULT", table(6));
    EXPECT_EQ(kel_init(), 0U);
    EXPECT_EQ(def_cs->hdr_value_a, 6);
    EXPECT_EQ(os_loc_cs, def_cs);

    (void)kel_uninit();
    fs::remove("DEFAULT");
    EXPECT_EQ(kel_init(), 0U);
    EXPECT_EQ(def_cs, os_cs);
    EXPECT_EQ(os_loc_cs, os_cs);
    EXPECT_EQ(kel_initialized, 1);
}

TEST_F(DefaultSet, Utf8LocaleNeedsNoFile)
{
    setenv("LC_ALL", "C.UTF-8", 1);

    EXPECT_EQ(kel_init(), 0U);
    EXPECT_EQ(def_cs->type, KEL_TYPE_UTF8);
}

TEST_F(DefaultSet, TableOfNullIsTheDefaults)
{
    setenv("KEL_CODESET", "NAME", 1);
    write("NAME", table(5));
    std::uint32_t size = 99;

    void* const image = kel_cs_table(nullptr, &size);

    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image, def_cs->table);
    EXPECT_EQ(size, table(5).size());
    (void)kel_set_def_cs(nullptr);
    EXPECT_EQ(kel_cs_table(nullptr, &size), nullptr);
    EXPECT_EQ(size, 0U);
}

TEST_F(DefaultSet, UninitFreesOnceAndResets)
{
    setenv("KEL_CODESET", "NAME", 1);
    write("NAME", table(5));
    (void)kel_init();

    EXPECT_EQ(kel_uninit(), 0U);

    EXPECT_EQ(kel_initialized, 0);
    EXPECT_EQ(def_cs, os_cs);
    EXPECT_EQ(os_loc_cs, os_cs);
    EXPECT_EQ(kel_uninit(), 0U);
}

TEST_F(DefaultSet, UninitFreesADefaultThatIsNotTheLocales)
{
    setenv("KEL_CODESET", "NAME", 1);
    write("NAME", table(5));
    write("OTHER", table(6));
    (void)kel_set_def_cs(kel_cs_new("OTHER"));
    EXPECT_EQ(def_cs->hdr_value_a, 6);
    EXPECT_EQ(os_loc_cs->hdr_value_a, 5);

    EXPECT_EQ(kel_uninit(), 0U);
    EXPECT_EQ(def_cs, os_cs);
    EXPECT_EQ(os_loc_cs, os_cs);
}

TEST_F(DefaultSet, SettingTheDefaultInitialisesFirst)
{
    setenv("KEL_CODESET", "NAME", 1);
    write("NAME", table(5));

    EXPECT_EQ(kel_set_def_cs(utf8_cs), 0U);
    EXPECT_EQ(kel_initialized, 1);
    EXPECT_EQ(kel_get_def_cs(), utf8_cs);
    EXPECT_EQ(kel_set_def_cs(nullptr), 0U);
    EXPECT_EQ(kel_get_def_cs(), os_cs);
    EXPECT_EQ(os_loc_cs->hdr_value_a, 5);
}

TEST_F(DefaultSet, FreeingTheDefaultLeavesPassThrough)
{
    setenv("KEL_CODESET", "NAME", 1);
    write("NAME", table(5));

    (void)kel_cs_free(kel_get_def_cs());

    EXPECT_EQ(def_cs, os_cs);
    EXPECT_EQ(os_loc_cs, os_cs);
}

TEST_F(DefaultSet, NullCodeSetInitialisesLazily)
{
    setenv("KEL_CODESET", "UTF-8", 1);
    std::uint16_t units[4];

    EXPECT_EQ(kel_to_ucs2(nullptr, "\xC3\xA4", 2, units, 4), 1U);
    EXPECT_EQ(units[0], 0xE4);
    EXPECT_EQ(kel_initialized, 1);
    (void)kel_uninit();
    EXPECT_EQ(kel_cs_table(nullptr, nullptr), nullptr);
    EXPECT_EQ(kel_initialized, 1);
    (void)kel_uninit();
    const char* from = "A";
    std::uint32_t from_left = 1;
    std::uint16_t* to = units;
    std::uint32_t to_left = 4;
    EXPECT_EQ(kel_to_ucs2_r(nullptr, &from, &from_left, &to, &to_left), KEL_DONE);
    EXPECT_EQ(kel_initialized, 1);
}

}  // namespace
}  // namespace corvane::test

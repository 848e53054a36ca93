/* The library by itself: a C program linked with its objects alone, by the C compiler. */
#include <stdio.h>
#include <string.h>

#include "codeset/kel.h"

static int failures = 0;

static void expect(int is_true, const char* what)
{
    if (!is_true) {
        printf("failed: %s\n", what);
        ++failures;
    }
}

int main(void)
{
    char bytes[16];
    uint16_t units[16];
    const char* from = "\xC3";
    uint32_t from_left = 1;
    uint16_t* to = units;
    uint32_t to_left = 16;
    kel_cs_t* cs;

    expect(utf8_cs == &utf8_uc_ch_t && utf8_cs->type == KEL_TYPE_UTF8, "the UTF-8 set at first");
    expect(os_cs == &os_uc_ch_t && os_cs->type == KEL_TYPE_OS, "the pass-through set at first");
    expect(def_cs == &os_uc_ch_t && os_loc_cs == &os_uc_ch_t, "the defaults at first");
    expect(kel_initialized == 0, "nothing is initialised at first");
    cs = kel_cs_new("UTF8");
    expect(kel_initialized == 0, "an object needs no initialisation");
    expect(cs != NULL && cs->type == KEL_TYPE_UTF8, "an object of UTF8");
    expect(kel_to_ucs2(cs, "A\xC3\xA4", -1, units, 16) == 3 && units[1] == 0xE4, "to UCS-2");
    expect(kel_from_ucs2(cs, units, -1, bytes, 16) == 4 && strcmp(bytes, "A\xC3\xA4") == 0, "back");
    expect(kel_to_ucs2_r(cs, &from, &from_left, &to, &to_left) == KEL_INCOMPLETE, "a cut sequence");
    expect(kel_wcslen(units) == 2, "a length in units");
    expect(kel_canonical_loc("EN-us", bytes, 16) == 0 && strcmp(bytes, "en_US") == 0, "a locale");
    expect(invar_eb_to_ucs[0xC1] != 0 && def_eb_to_ucs[0xC1] == 'A', "the built-in EBCDIC tables");
    expect(kel_cs_free(cs) == 0, "freeing");
    printf("%d failures\n", failures);
    return failures != 0;
}

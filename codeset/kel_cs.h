/* Code sets: the object, the built-in ones, the library's initialisation and the search for table
 * files. The globals have no lock: initialise before threads share the library. */
#ifndef CORVANE_CODESET_KEL_CS_H
#define CORVANE_CODESET_KEL_CS_H

#include <stdint.h>

#include "codeset/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Values of `kel_cs_t.type`; every other value behaves like KEL_TYPE_OS. */
enum {
    KEL_TYPE_ASCII_SBCS = 1,  /* one byte a character, 0x00-0x7F are ASCII */
    KEL_TYPE_ASCII_DBCS = 2,  /* one or two bytes */
    KEL_TYPE_ASCII_MBCS = 3,  /* sequences whose first byte tells the length */
    KEL_TYPE_EBCDIC_DBCS = 4, /* EBCDIC with shift-out and shift-in */
    KEL_TYPE_UTF8 = 6,        /* built in, no table */
    KEL_TYPE_EBCDIC_SBCS = 8, /* one byte a character */
    KEL_TYPE_OS = 9,          /* built in: passes bytes through */
    KEL_TYPE_GB18030 = 10
};

/* A code set. Resumable conversions keep their shift state in it, so one object serves one stream.
 */
typedef struct kel_cs_t {
    void* table;           /*  0: the table file's image, null for the built-in sets */
    uint16_t type;         /*  8: KEL_TYPE_* */
    uint16_t table_backed; /* 10: 1 when made from a table file */
    uint16_t hdr_value_a;  /* 12: from table offset 62; no converter reads it */
    uint16_t hdr_value_b;  /* 14: from table offset 56; no converter reads it */
    uint8_t hdr_block[16]; /* 16: from table offset 64; no converter reads it */
    uint8_t from_state;    /* 32: shift state of UCS-2 or UTF-8 to code set, 0 = initial */
    uint8_t to_state;      /* 33: shift state of code set to UCS-2 or UTF-8, 0 = initial */
    uint32_t table_size;   /* 36: bytes of the image, 0 for the built-in sets */
} kel_cs_t;

KEL_API extern kel_cs_t utf8_uc_ch_t;   /* the built-in UTF-8 code set */
KEL_API extern kel_cs_t os_uc_ch_t;     /* the built-in pass-through code set */
KEL_API extern kel_cs_t* utf8_cs;       /* always utf8_uc_ch_t; never freed */
KEL_API extern kel_cs_t* os_cs;         /* always os_uc_ch_t; never freed */
KEL_API extern kel_cs_t* def_cs;        /* stands in wherever a caller passes null */
KEL_API extern kel_cs_t* os_loc_cs;     /* the code set of the process locale */
KEL_API extern uint8_t kel_initialized; /* 1 after kel_init */

/* Chooses the default code set: the process's own, else the one named DEFAULT, else pass-through.
 * Does nothing when done before. Conversions with a null code set call it first. Always returns 0.
 */
KEL_API uint32_t kel_init(void) KEL_NOEXCEPT;

/* Frees the default and the locale's code set and forgets the initialisation, if there was one.
 * Returns 0. */
KEL_API uint32_t kel_uninit(void) KEL_NOEXCEPT;

/* Makes a code set. "UTF8" is built in; any other name is a table or alias file, looked for as it
 * is spelled. Returns null when there is no table or no memory; the caller frees with kel_cs_free.
 */
KEL_API kel_cs_t* kel_cs_new(const char* name) KEL_NOEXCEPT;

/* What kel_cs_new does. */
KEL_API kel_cs_t* cs_new(const char* name) KEL_NOEXCEPT;

/* Frees a code set and its table; null and the built-in sets are left alone. A default or locale
 * code set that is freed is replaced by the pass-through set. Returns 0. */
KEL_API uint32_t kel_cs_free(kel_cs_t* cs) KEL_NOEXCEPT;

/* Returns the table image of `cs`, or of the default code set for null, and stores its bytes in
 * `*size` (0 without a table; `size` may be null). The image stays the code set's. */
KEL_API void* kel_cs_table(kel_cs_t* cs, uint32_t* size) KEL_NOEXCEPT;

/* Makes `cs`, or the pass-through set for null, the default code set, which the library then owns.
 * The former default is not freed. Returns 0. */
KEL_API uint32_t kel_set_def_cs(kel_cs_t* cs) KEL_NOEXCEPT;

/* Returns the default code set, never null; it stays the library's. */
KEL_API kel_cs_t* kel_get_def_cs(void) KEL_NOEXCEPT;

/* Writes the table-file name of the process's code set into `buffer` of `size` bytes, cut and
 * terminated. Returns 0. */
KEL_API uint32_t kel_os_cs_name(char* buffer, uint32_t size) KEL_NOEXCEPT;

/* Writes the process's code-set name as the environment spells it: `KEL_CODESET`, else the locale's
 * (which makes the environment's locale the process's). Returns 1 if `size` is 0, else 0. */
KEL_API uint32_t get_cs_name(char* buffer, uint32_t size) KEL_NOEXCEPT;

/* Turns a code-set name into a table-file name: without a leading "ZAR", letters and digits alone,
 * in upper case; cut to `size` - 1 and terminated. Returns 0. */
KEL_API uint32_t get_table_name(const char* name, char* buffer, uint32_t size) KEL_NOEXCEPT;

/* A hook of other platforms; it has no effect here and takes no argument. Returns 1. */
KEL_API uint32_t get_alias(void) KEL_NOEXCEPT;

/* Finds the table `name` in the codeset folder of `CORKELDIR`, in `CORKELDIR`, in
 * ../generic/codeset of `BINDIR`, or in the working directory. Returns its image and stores its
 * bytes in `*size` (0 when there is none, the result then being null); `size` may be null. The
 * caller frees the image with free(). */
KEL_API void* get_table(const char* name, uint32_t* size) KEL_NOEXCEPT;

/* Reads the table `name` of `directory`, a path that ends in its separator or is empty, following
 * at most four alias files. Result as of get_table. */
KEL_API void* load_table(const char* directory, const char* name, uint32_t* size) KEL_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

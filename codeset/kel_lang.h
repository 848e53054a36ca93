/* Locale and language names: the short canonical forms that message catalogues are filed under, and
 * the process's language. Names are cut to the caller's buffer and always terminated. */
#ifndef CORVANE_CODESET_KEL_LANG_H
#define CORVANE_CODESET_KEL_LANG_H

#include <stdint.h>

#include "codeset/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A pair of a table of strings; a null key ends the table. */
typedef struct kel_string_pair {
    const char* key;
    const char* value;
} kel_string_pair;

KEL_API extern const kel_string_pair to_canonical_loc[];  /* odd locale names */
KEL_API extern const kel_string_pair to_canonical_lang[]; /* languages filed under another name */
KEL_API extern const kel_string_pair
    to_os_loc[]; /* canonical name to names that the system may know,
                   sorted by the first two characters; empty here */

/* Writes the value of `LANG`, or "C" if that is unset or empty, into `buffer` of `size` bytes;
 * nothing if `size` is 0. Returns 0. */
KEL_API uint32_t kel_os_lang_name(char* buffer, uint32_t size) KEL_NOEXCEPT;

/* Returns the value of the first pair of `table` whose key is exactly `key`, or null. */
KEL_API const char* map_string(const kel_string_pair* table, const char* key) KEL_NOEXCEPT;

/* Writes the canonical form of the locale `name`: language, or language_TERRITORY, without the
 * rest; `name` itself if it has neither form. Returns 0. */
KEL_API uint32_t kel_canonical_loc(const char* name, char* buffer, uint32_t size) KEL_NOEXCEPT;

/* Writes the canonical language of the locale `name`, at most five characters. Returns 0. */
KEL_API uint32_t kel_canonical_lang(const char* name, char* buffer, uint32_t size) KEL_NOEXCEPT;

/* Sets the locale `locale` for `category`, or a name for it that the system knows, or else "C";
 * only asks when `locale` is null. Returns the name that took effect: `locale` itself, a constant,
 * or for a question what setlocale says. Not thread-safe, as setlocale is not. */
KEL_API const char* kel_setlocale(int category, const char* locale) KEL_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

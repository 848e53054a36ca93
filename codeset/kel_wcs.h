/* Strings of 16-bit units ended by a zero unit, whatever the width of the platform's wide
 * character. The functions do what the C library's of the same base name do; counts are in units,
 * and a surrogate pair counts as two. No pointer may be null unless stated. Any thread. */
#ifndef CORVANE_CODESET_KEL_WCS_H
#define CORVANE_CODESET_KEL_WCS_H

#include <stdint.h>

#include "codeset/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Returns the units before the zero unit. */
KEL_API uint32_t kel_wcslen(const uint16_t* text) KEL_NOEXCEPT;

/* Returns the smaller of the length and `maximum`, reading no further. */
KEL_API uint32_t kel_wcsnlen(const uint16_t* text, uint32_t maximum) KEL_NOEXCEPT;

/* Copies `source` with its zero unit. Returns `destination`. */
KEL_API uint16_t* kel_wcscpy(uint16_t* destination, const uint16_t* source) KEL_NOEXCEPT;

/* Copies at most `count` units and fills up to `count` with zero units; leaves the copy
 * unterminated when `source` has `count` units or more. Returns `destination`. */
KEL_API uint16_t* kel_wcsncpy(uint16_t* destination, const uint16_t* source,
                              uint32_t count) KEL_NOEXCEPT;

/* Appends `source` with its zero unit. Returns `destination`. */
KEL_API uint16_t* kel_wcscat(uint16_t* destination, const uint16_t* source) KEL_NOEXCEPT;

/* Appends at most `count` units of `source` and always a zero unit. Returns `destination`. */
KEL_API uint16_t* kel_wcsncat(uint16_t* destination, const uint16_t* source,
                              uint32_t count) KEL_NOEXCEPT;

/* Compares at most `count` units, up to the first zero unit. Returns the first differing unit of
 * `a` minus that of `b`, 0 when there is none. */
KEL_API int32_t kel_wcsncmp(const uint16_t* a, const uint16_t* b, uint32_t count) KEL_NOEXCEPT;

/* Returns the first, or the last, place of `unit`, which may be the terminator; null if there is
 * none. */
KEL_API uint16_t* kel_wcschr(const uint16_t* text, uint16_t unit) KEL_NOEXCEPT;
KEL_API uint16_t* kel_wcsrchr(const uint16_t* text, uint16_t unit) KEL_NOEXCEPT;

/* Returns the length of the leading run of units that are, or are not, in `set`. */
KEL_API uint32_t kel_wcsspn(const uint16_t* text, const uint16_t* set) KEL_NOEXCEPT;
KEL_API uint32_t kel_wcscspn(const uint16_t* text, const uint16_t* set) KEL_NOEXCEPT;

/* Returns the first place of any unit of `set`, or null. */
KEL_API uint16_t* kel_wcspbrk(const uint16_t* text, const uint16_t* set) KEL_NOEXCEPT;

/* Returns the first place where `needle` occurs (`haystack` itself for an empty one), or null. */
KEL_API uint16_t* kel_wcswcs(const uint16_t* haystack, const uint16_t* needle) KEL_NOEXCEPT;

/* Cuts the next token out of `text`, or, when that is null, out of what `*rest` left over: skips
 * leading `delimiters`, ends the token with a zero unit and stores the place after it in `*rest`.
 * Returns null when there is no token any more. */
KEL_API uint16_t* kel_wcstok(uint16_t* text, const uint16_t* delimiters,
                             uint16_t** rest) KEL_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

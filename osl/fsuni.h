/* FSUNI strings: length, copy, compare, and the conversion to and from bytes. Narrowing keeps the
 * low 8 bits of a unit, widening extends the sign. Any thread. */
#ifndef CORVANE_OSL_FSUNI_H
#define CORVANE_OSL_FSUNI_H

#include <stddef.h>
#include <stdint.h>

#include "osl/export.h"
#include "osl/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Returns the number of units before the zero unit. `text` must not be null. */
CORVANE_API uint32_t OSL_FSUNILength(const FSUNI* text) CORVANE_NOEXCEPT;

/* Copies `text` with its zero unit. Returns null when memory is short; the caller frees the copy
 * with OSL_Free. `text` must not be null. */
CORVANE_API FSUNI* OSL_FSUNIdup(const FSUNI* text) CORVANE_NOEXCEPT;

/* Returns -1 when the lengths differ, else the byte order (OSL_MemCompare) of the units as they lie
 * in memory: 0 for equal strings. */
CORVANE_API int32_t OSL_FSUNIcmp(const FSUNI* a, const FSUNI* b) CORVANE_NOEXCEPT;

/* Turns every backslash of `text` into a slash, in place. Null is allowed and does nothing. */
CORVANE_API void OSL_TransPath(FSUNI* text) CORVANE_NOEXCEPT;

/* Narrows at most `capacity_bytes` - 1 units (signed: 0 copies none) and ends the text with a zero
 * byte, which is always written. Returns `destination`. */
CORVANE_API char* OSL_Uni2MultiByte(char* destination, const FSUNI* source,
                                    int32_t capacity_bytes) CORVANE_NOEXCEPT;

/* Widens at most `capacity_units` - 1 bytes (signed: 0 copies none), the sign extended, and ends
 * the text with a zero unit, which is always written. Returns `destination`. */
CORVANE_API FSUNI* OSL_MultiByte2Uni(FSUNI* destination, const char* source,
                                     int32_t capacity_units) CORVANE_NOEXCEPT;

/* Widens all of `source`, the sign extended, with its zero: the destination has room for it. */
CORVANE_API FSUNI* mb2fsuni(FSUNI* destination, const char* source) CORVANE_NOEXCEPT;

/* Narrows while the unit is not zero and the index is below `capacity_bytes` - 1 (unsigned: 0 means
 * no limit), then writes a zero byte. Returns `destination`. */
CORVANE_API char* fsuni2mb(char* destination, const FSUNI* source,
                           uint32_t capacity_bytes) CORVANE_NOEXCEPT;

/* Copies while the unit is not zero and the index is below `capacity_bytes` / 2 - 1 (unsigned:
 * below 2 bytes means no limit), then writes a zero unit. Returns `destination`. */
CORVANE_API FSUNI* fsunicpy(FSUNI* destination, const FSUNI* source,
                            uint32_t capacity_bytes) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

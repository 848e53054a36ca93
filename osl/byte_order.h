/* Byte order in place, byte dumps, and the sizes of the wire types. Any thread. */
#ifndef CORVANE_OSL_BYTE_ORDER_H
#define CORVANE_OSL_BYTE_ORDER_H

#include <stddef.h>
#include <stdint.h>

#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Reverses the `length_bytes` bytes of one field (2, 4, 8 or 16), wherever it lies. */
CORVANE_API void doendian(void* address, uint32_t length_bytes) CORVANE_NOEXCEPT;

/* Swaps the two bytes of each unit of an FSUNI array; an odd last byte stays as it is. */
CORVANE_API void endianizeFsUniArray(void* address, uint32_t length_bytes) CORVANE_NOEXCEPT;

/* Writes `count` bytes as "0A 1B ..." into `text` (3 x count + 1 bytes of room), then drops every
 * "0" and blank from the end: dumps of identifiers are meant to end so. Returns `text`. */
CORVANE_API char* bytesToString(const void* data, uint32_t count, char* text) CORVANE_NOEXCEPT;

/* Traces the wanted and the built size of the five wire types. Returns 0. */
CORVANE_API int32_t checkDataSizes(void) CORVANE_NOEXCEPT;

/* Stores the alignment for raw transfers (bytes, from the settings) and the smallest transfer (512
 * bytes). Neither pointer may be null. */
CORVANE_API void OSL_getDMAsizes(int32_t* alignment, int32_t* minimum_transfer) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

/* Memory of the portable code. Tags name an allocation on other platforms; here they are ignored.
 * Any thread. */
#ifndef CORVANE_OSL_MEMORY_H
#define CORVANE_OSL_MEMORY_H

#include <stddef.h>
#include <stdint.h>

#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Allocates `size` bytes with undefined content. `tag` is four characters in memory order, ignored.
 * Returns null when memory is short; the caller frees with OSL_Free. */
CORVANE_API void* OSL_Malloc(size_t size, uint32_t tag) CORVANE_NOEXCEPT;

/* Allocates `size` bytes; `alignment` is ignored, what malloc gives is what there is. Null when
 * memory is short; the caller frees with OSL_Free. */
CORVANE_API void* OSL_MallocAlign(size_t alignment, size_t size) CORVANE_NOEXCEPT;

/* Allocates `size` bytes and fills them with zeros. Null when memory is short; the caller frees
 * with OSL_Free. */
CORVANE_API void* OSL_Calloc(size_t size, uint32_t tag) CORVANE_NOEXCEPT;

/* Frees a block of this module; null is allowed and does nothing. */
CORVANE_API void OSL_Free(void* block) CORVANE_NOEXCEPT;

/* Copies `count` bytes between areas that do not overlap; nothing if either pointer is null. */
CORVANE_API void OSL_MemCopy(void* destination, const void* source, size_t count) CORVANE_NOEXCEPT;

/* Fills `count` bytes with the low 8 bits of `byte`. Returns `count`. */
CORVANE_API size_t OSL_MemSet(void* address, int byte, size_t count) CORVANE_NOEXCEPT;

/* Compares `count` unsigned bytes. Returns 1 or -1 as the first difference is greater or smaller in
 * `a`, 0 if there is none. */
CORVANE_API int32_t OSL_MemCompare(const void* a, const void* b, size_t count) CORVANE_NOEXCEPT;

/* strncpy: at most `count` bytes, padded with zeros, unterminated when `source` is as long as that.
 * Returns `destination`. */
CORVANE_API char* OSL_StrNCopy(char* destination, const char* source,
                               size_t count) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

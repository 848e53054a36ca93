/* Fields of delimited texts. Any thread. */
#ifndef CORVANE_OSL_TOKEN_H
#define CORVANE_OSL_TOKEN_H

#include <stdint.h>

#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Returns the number of delimiters in `text`, plus one unless the text ends in one; 0 for no text.
 */
CORVANE_API int32_t token_getNumTokens(const char* text, char delimiter) CORVANE_NOEXCEPT;

/* Copies field number `index` (from 0), cut to `capacity_bytes` - 1 bytes, into `result`, which is
 * always terminated; empty when there is no such field. Returns `result`. */
CORVANE_API char* token_getToken(const char* text, char delimiter, int32_t index, char* result,
                                 int32_t capacity_bytes) CORVANE_NOEXCEPT;

/* Removes every double quote from `text`, in place. Returns `text`. */
CORVANE_API char* unquote(char* text) CORVANE_NOEXCEPT;

/* Returns 1 when `path` begins with `prefix` and goes on with "/" or ends there, else 0. */
CORVANE_API int32_t doesMatch(const char* prefix, const char* path) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

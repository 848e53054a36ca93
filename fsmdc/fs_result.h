/* The result codes of every reply and plug-in call, and their texts. */
#ifndef CORVANE_FSMDC_FS_RESULT_H
#define CORVANE_FSMDC_FS_RESULT_H

#include <stdint.h>
#include <wchar.h>

#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

#define FS_E_SUCCESS 0u
#define FS_E_PARTIAL 1u /* success, but the map ends before the asked range does */
#define FS_E_WRONG_FS 2u
#define FS_E_BAD_PATH 3u   /* bad path or share name */
#define FS_E_BAD_COOKIE 4u /* bad volume cookie */
#define FS_E_OUT_OF_MEMORY 5u
#define FS_E_INVALID_MSG_LENGTH 6u
#define FS_E_INVALID_ENDIAN 7u
#define FS_UNKNOWN_FUNCTION 8u
#define FS_E_UNKNOWN_SHARE 100u
#define FS_E_UNKNOWN_FILE 101u
#define FS_E_UNKNOWN_STREAM 102u
#define FS_E_NO_DIRECT 103u /* a valid file, but no direct access */
#define FS_E_PRIVILEGE 104u
#define FS_E_BAD_FILE 201u /* bad file or volume cookie */
#define FS_E_SUBMAP 202u
#define FS_E_IVPARAM 203u /* start not aligned */
#define FS_E_NOT_LOCKED 300u
#define FS_E_SHORT_ALLOC 400u /* success, but not all was allocated */
#define FS_E_TRANSMOUNTPT 404u
#define FS_E_NO_LIBRARY 405u /* no plug-in owns the path or the cookie */
#define FS_E_INVALID_PATHNAME 406u
#define FS_E_INVALID_KEY 407u
#define FS_E_MISC_ERROR 408u
#define FS_E_UNABLE_TO_SET_LEASE 409u

/* Returns the text of `code`, or null when the code has none. The text is static. Any thread. */
CORVANE_API const wchar_t* FSERR_GetErrorString(uint32_t code) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

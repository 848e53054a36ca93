/* Share names: which directory a client's volume name means, by smb.conf and, for home shares, the
 * password file. Every call reads the files again. Any thread. */
#ifndef CORVANE_OSL_SHARE_NAME_H
#define CORVANE_OSL_SHARE_NAME_H

#include <stdint.h>

#include "osl/export.h"
#include "osl/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Writes the directory that `share_name` names into `result` (`capacity_units` units, the zero
 * included). A name that begins with "/" is a path already. Returns 0, or 3 (bad path or share
 * name) with a line in the log. */
CORVANE_API uint32_t OSL_ShareNameToMountPoint(const FSUNI* share_name, FSUNI* result,
                                               int32_t capacity_units) CORVANE_NOEXCEPT;

/* Looks for `share_name` in the configuration files; `path` has room for 256 bytes. Returns 0 when
 * found, -1 with a line in the log when not. */
CORVANE_API int32_t sambaCheck(const char* share_name, char* path) CORVANE_NOEXCEPT;

/* Looks for `share_name` in one file; `path` has room for 256 bytes. Returns 0, or -1. */
CORVANE_API int32_t parseSmbConfFile(const char* file, const char* share_name,
                                     char* path) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

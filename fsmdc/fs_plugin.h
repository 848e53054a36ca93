/* What a file-system plug-in exports: a shared library in /usr/Corvane/lib with these functions,
 * all of them but FS_GetMaxLeases and FS_GetPath required. The daemon calls them from several
 * threads at once. Cookies are FS_COOKIE_BYTES bytes; paths are FSUNI strings with "/" between
 * names. */
#ifndef CORVANE_FSMDC_FS_PLUGIN_H
#define CORVANE_FSMDC_FS_PLUGIN_H

#include <stdint.h>

#include "fsmdc/fs_result.h"
#include "fsmdc/records.h"
#include "osl/export.h"
#include "osl/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A plug-in is accepted only with a version below this one. */
#define FS_PLUGIN_VERSION_LIMIT 231

/* Map flags (the request's `flag`, handed through). */
#define FS_M_FLAG_UNLOCKED 8 /* the map is handed out, the file does not stay locked */
#define FS_M_FLAG_REMAP 32   /* set by the daemon: second map of one request, after a size change */

/* Called once, before anything else but FS_GetVersion. Returns 0 when ready; anything else rejects
 * the plug-in. */
CORVANE_API uint32_t FS_Init(void);

/* Returns the interface version, which replies carry as their revision. */
CORVANE_API int32_t FS_GetVersion(void);

/* Writes the cookie of the volume mounted at `mount_point`. Returns 0 when this plug-in owns it. */
CORVANE_API uint32_t FS_GetVolCookie(const FSUNI* mount_point, void* volume_cookie);

/* Writes the volume's VolumeInfo with its disk records to `record`, which may lie at any address.
 * `room_bytes`: in the bytes available (never write more), out the bytes written. */
CORVANE_API uint32_t FS_GetVolByCookie(const void* volume_cookie, void* record,
                                       uint32_t* room_bytes);

/* Writes both cookies of the file `path`. Returns 0 when this plug-in owns it. */
CORVANE_API uint32_t FS_GetCookies(const FSUNI* path, void* volume_cookie, void* file_cookie);

/* Maps `length` bytes (-1: to the end) of the file from byte `start` and locks the file until
 * FS_UnlockMap. Writes a MapInfo with its extents to `record`, at any address; `room_bytes` as
 * above. Returns 0, or 1 when the map ends early for want of room; anything else means no map and
 * no lock. */
CORVANE_API uint32_t FS_GetLockedMap(const void* volume_cookie, const void* file_cookie,
                                     int64_t start, int64_t length, int32_t flag, void* record,
                                     uint32_t* room_bytes);

/* The last map of the file came back. Called with the daemon's lease lock held: be quick. */
CORVANE_API uint32_t FS_UnlockMap(const void* volume_cookie, const void* file_cookie);

/* Sets the file's size and allocation in bytes (-1: unchanged). `unused` is 0, `reserved` -1.
 * Returns 0, or 400 when not all could be allocated. */
CORVANE_API uint32_t FS_SetFileSizes(const void* volume_cookie, const void* file_cookie,
                                     int32_t unused, int64_t file_size, int64_t allocation_size,
                                     int64_t reserved);

/* Optional. Stores the longest read and write lease in seconds (0: the default). Returns 0 when
 * both are valid. */
CORVANE_API uint32_t FS_GetMaxLeases(const void* volume_cookie, int32_t* read_s, int32_t* write_s);

/* Optional. Writes the path by which people know the file, in UTF-8 from the root of this host,
 * with a zero byte behind it; `file_cookie` null: the path of the volume's mount point.
 * `room_bytes`: in the bytes available, out the bytes written with the zero. Returns 0;
 * FS_E_OUT_OF_MEMORY when the path is longer than the room, or another code when it is not known.
 * Called for administrators' listings only, many files in a row: answer from memory. */
CORVANE_API uint32_t FS_GetPath(const void* volume_cookie, const void* file_cookie, char* path,
                                uint32_t* room_bytes);

#ifdef __cplusplus
}
#endif
#endif

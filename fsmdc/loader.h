/* The plug-in loader: finds the libraries in /usr/Corvane/lib, loads them one a call and resolves
 * their entry points (fsmdc/fs_plugin.h says what each does). At start-up only, on one thread. */
#ifndef CORVANE_FSMDC_LOADER_H
#define CORVANE_FSMDC_LOADER_H

#include <stdint.h>

#include "osl/export.h"
#include "osl/types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define FS_LIBRARY_SLOTS 32
#define FS_LIBRARY_PATH_BYTES 256

/* One loaded plug-in; never freed, its library never closed. */
typedef struct FsLibrary {
    int32_t version; /* what FS_GetVersion said; a reply's revision */
    int32_t (*FS_GetVersion)(void);
    uint32_t (*FS_GetVolCookie)(const FSUNI* mount_point, void* volume_cookie);
    uint32_t (*FS_GetVolByCookie)(const void* volume_cookie, void* record, uint32_t* room_bytes);
    uint32_t (*FS_GetCookies)(const FSUNI* path, void* volume_cookie, void* file_cookie);
    uint32_t (*FS_GetLockedMap)(const void* volume_cookie, const void* file_cookie, int64_t start,
                                int64_t length, int32_t flag, void* record, uint32_t* room_bytes);
    uint32_t (*FS_UnlockMap)(const void* volume_cookie, const void* file_cookie);
    uint32_t (*FS_SetFileSizes)(const void* volume_cookie, const void* file_cookie, int32_t unused,
                                int64_t file_size, int64_t allocation_size, int64_t reserved);
    uint32_t (*FS_GetMaxLeases)(const void* volume_cookie, int32_t* read_s,
                                int32_t* write_s); /* null when the library has none */
    uint32_t (*FS_Init)(void);
} FsLibrary;

/* A library that has not been tried yet. */
typedef struct LibraryCandidate {
    struct LibraryCandidate* next;
    struct LibraryCandidate* prev;
    char libName[FS_LIBRARY_PATH_BYTES]; /* full path */
} LibraryCandidate;

/* The plug-ins by slot. A rejected plug-in leaves an empty slot: walk all of them and skip the
 * nulls. */
CORVANE_API extern FsLibrary* libs[FS_LIBRARY_SLOTS];
/* Accepted plug-ins, wherever their slots are. */
CORVANE_API extern int32_t libCount;
/* Sentinel of the circular list of candidates, the next to try first. */
CORVANE_API extern LibraryCandidate libHead;

/* Loads the next candidate that can be loaded; those that cannot are logged and dropped. The first
 * call reads the directory. Returns a record with every entry resolved (FS_GetMaxLeases perhaps
 * null) and version 0, or null when no candidate is left or memory is short. */
CORVANE_API FsLibrary* FSMDCSP_LoadNextLibrary(void) CORVANE_NOEXCEPT;

/* Prints the candidates to standard output. */
CORVANE_API void dumpLibList(void) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif

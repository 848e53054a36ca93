/* A small complete plug-in: one read-only volume with one file, both of them the same flat backing
 * file.
 *
 * The line "/mnt/flat example /data/disk.img" of volumes.conf serves /data/disk.img as the disk of
 * the volume /mnt/flat, and all of that disk as its one file, /mnt/flat/data. A client knows the
 * disk by its first 16 bytes. docs/plugin-authors.md goes through this file function by function.
 */
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "fsmdc/fs_plugin.h"

enum { kBlockBytes = 4096, kPathBytes = 1024, kSignatureBytes = 16 };

static const char kFileName[] = "/data";
static const uint8_t kVolumeCookie[FS_COOKIE_BYTES] = "example volume 1";
static const uint8_t kFileCookie[FS_COOKIE_BYTES] = "example file 1";

/* Written by FS_Init, before other threads call; only read afterwards. */
static struct {
    char mount_point[kPathBytes];
    int64_t file_bytes;
    uint8_t signature[kSignatureBytes];
} g_volume;

/* What calls may change lies behind a lock of its own: FS_UnlockMap must never wait for a disk. */
static pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;
static int g_is_locked;

/* Reads the backing file's size and signature. Returns 0 when it can be served. */
static int open_backing_file(const char* path)
{
    struct stat status;
    FILE* file = fopen(path, "rbe");
    if (file == NULL) return -1;
    const size_t got = fread(g_volume.signature, 1, kSignatureBytes, file);
    const int failed = fstat(fileno(file), &status);
    (void)fclose(file);
    if (got != kSignatureBytes || failed != 0 || !S_ISREG(status.st_mode)) return -1;
    g_volume.file_bytes = status.st_size;
    return 0;
}

uint32_t FS_Init(void)
{
    const char* list_path = getenv("CORVANE_VOLUMES_FILE");
    char line[2 * kPathBytes];
    char kind[16];
    char source[kPathBytes];
    g_volume.mount_point[0] = '\0';
    g_is_locked = 0;
    FILE* list = fopen(list_path != NULL ? list_path : "/usr/Corvane/volumes.conf", "re");
    while (list != NULL && fgets(line, sizeof line, list) != NULL) {
        char mount_point[kPathBytes];
        if (sscanf(line, "%1023s %15s %1023s", mount_point, kind, source) != 3) continue;
        if (mount_point[0] != '/' || strcmp(kind, "example") != 0) continue; /* another's line */
        if (open_backing_file(source) != 0) continue;
        strcpy(g_volume.mount_point, mount_point);
    }
    if (list != NULL) (void)fclose(list);
    return g_volume.mount_point[0] != '\0' ? FS_E_SUCCESS : FS_E_MISC_ERROR;
}

int32_t FS_GetVersion(void)
{
    return 1;
}

/* Whether the units are exactly the bytes of `first` (not empty) and then of `second`. This volume
 * has no names beyond ASCII, so a unit equals its byte. */
static int is_path(const FSUNI* path, const char* first, const char* second)
{
    if (*first == '\0') return 0; /* no volume is served */
    for (; *first != '\0'; ++first, ++path) {
        if (*path != (FSUNI)*first) return 0;
    }
    for (; *second != '\0'; ++second, ++path) {
        if (*path != (FSUNI)*second) return 0;
    }
    return *path == 0;
}

uint32_t FS_GetVolCookie(const FSUNI* mount_point, void* volume_cookie)
{
    if (!is_path(mount_point, g_volume.mount_point, "")) return FS_E_WRONG_FS;
    memcpy(volume_cookie, kVolumeCookie, FS_COOKIE_BYTES);
    return FS_E_SUCCESS;
}

uint32_t FS_GetVolByCookie(const void* volume_cookie, void* record, uint32_t* room_bytes)
{
    const uint32_t room = *room_bytes;
    VolumeInfo info = {0};
    FSDisk disk = {0};
    *room_bytes = 0;
    if (memcmp(volume_cookie, kVolumeCookie, FS_COOKIE_BYTES) != 0) return FS_E_BAD_COOKIE;
    if (room < sizeof info + sizeof disk) return FS_E_OUT_OF_MEMORY;
    info.msgLen = (int32_t)(sizeof info + sizeof disk);
    info.FStype = 1;
    info.nDisks = 1;
    info.BlockSize = kBlockBytes;
    memcpy(disk.DiskID, g_volume.signature, kSignatureBytes);
    disk.IDlength = kSignatureBytes;
    disk.nBlocks = (g_volume.file_bytes + kBlockBytes - 1) / kBlockBytes;
    /* The record may lie at any address: copy, never point a structure at it. */
    memcpy(record, &info, sizeof info);
    memcpy((uint8_t*)record + sizeof info, &disk, sizeof disk);
    *room_bytes = (uint32_t)(sizeof info + sizeof disk);
    return FS_E_SUCCESS;
}

uint32_t FS_GetCookies(const FSUNI* path, void* volume_cookie, void* file_cookie)
{
    if (!is_path(path, g_volume.mount_point, kFileName)) {
        return FS_E_WRONG_FS;
    }
    memcpy(volume_cookie, kVolumeCookie, FS_COOKIE_BYTES);
    memcpy(file_cookie, kFileCookie, FS_COOKIE_BYTES);
    return FS_E_SUCCESS;
}

/* Both cookies come from a client: check them before anything is looked up by them. */
static uint32_t check_cookies(const void* volume_cookie, const void* file_cookie)
{
    if (memcmp(volume_cookie, kVolumeCookie, FS_COOKIE_BYTES) != 0) return FS_E_BAD_COOKIE;
    if (memcmp(file_cookie, kFileCookie, FS_COOKIE_BYTES) != 0) return FS_E_BAD_FILE;
    return FS_E_SUCCESS;
}

/* The file is its disk, byte for byte: one extent always says all, so no map is ever partial. */
static VerboseExtent extent_of(int64_t start, int64_t length)
{
    const int64_t blocks_end = (g_volume.file_bytes + kBlockBytes - 1) / kBlockBytes * kBlockBytes;
    VerboseExtent extent = {0};
    extent.LogicalByteAddr = start;
    extent.PhysicalByteAddr = start;
    extent.validity = FS_VALIDITY_DATA;
    if (start >= blocks_end) return extent; /* behind the end: nothing */
    extent.nBytes = blocks_end - start;
    if (length >= 0 && length < extent.nBytes) {
        extent.nBytes = (length + kBlockBytes - 1) / kBlockBytes * kBlockBytes;
    }
    return extent;
}

uint32_t FS_GetLockedMap(const void* volume_cookie, const void* file_cookie, int64_t start,
                         int64_t length, int32_t flag, void* record, uint32_t* room_bytes)
{
    const uint32_t room = *room_bytes;
    const uint32_t result = check_cookies(volume_cookie, file_cookie);
    *room_bytes = 0;
    if (result != FS_E_SUCCESS) return result;
    if (start < 0 || start % kBlockBytes != 0) return FS_E_IVPARAM;

    const VerboseExtent extent = extent_of(start, length);
    MapInfo info = {0};
    info.nExtents = extent.nBytes != 0 ? 1 : 0;
    const size_t record_bytes = sizeof info + (size_t)info.nExtents * sizeof extent;
    if (room < record_bytes) return FS_E_OUT_OF_MEMORY;
    info.fileSize = g_volume.file_bytes;
    info.allocation = extent_of(0, -1).nBytes;
    info.msgLen = (int32_t)record_bytes;
    info.extentType = FS_EXTENT_VERBOSE;
    info.fileOffset = start;
    info.fileBytes = extent.nBytes;
    memcpy(record, &info, sizeof info);
    if (info.nExtents != 0) memcpy((uint8_t*)record + sizeof info, &extent, sizeof extent);
    *room_bytes = (uint32_t)record_bytes;

    if ((flag & FS_M_FLAG_UNLOCKED) == 0) {
        (void)pthread_mutex_lock(&g_lock);
        g_is_locked = 1;
        (void)pthread_mutex_unlock(&g_lock);
    }
    return FS_E_SUCCESS;
}

uint32_t FS_UnlockMap(const void* volume_cookie, const void* file_cookie)
{
    const uint32_t result = check_cookies(volume_cookie, file_cookie);
    if (result != FS_E_SUCCESS) return result;
    (void)pthread_mutex_lock(&g_lock);
    const int was_locked = g_is_locked;
    g_is_locked = 0;
    (void)pthread_mutex_unlock(&g_lock);
    return was_locked ? FS_E_SUCCESS : FS_E_NOT_LOCKED;
}

/* Read-only: what changes nothing succeeds, since a reader's Close names the size that it saw. */
uint32_t FS_SetFileSizes(const void* volume_cookie, const void* file_cookie, int32_t unused,
                         int64_t file_size, int64_t allocation_size, int64_t reserved)
{
    (void)unused;
    (void)reserved;
    const uint32_t result = check_cookies(volume_cookie, file_cookie);
    if (result != FS_E_SUCCESS) return result;
    const int keeps_size = file_size == -1 || file_size == g_volume.file_bytes;
    const int keeps_blocks = allocation_size <= extent_of(0, -1).nBytes;
    return keeps_size && keeps_blocks ? FS_E_SUCCESS : FS_E_PRIVILEGE;
}

/* Optional: a minute for readers; 0 leaves writers to the daemon's default. */
uint32_t FS_GetMaxLeases(const void* volume_cookie, int32_t* read_s, int32_t* write_s)
{
    if (memcmp(volume_cookie, kVolumeCookie, FS_COOKIE_BYTES) != 0) return FS_E_BAD_COOKIE;
    *read_s = 60;
    *write_s = 0;
    return FS_E_SUCCESS;
}

/* Optional: what an administrator's listing calls the file, or without one the volume. */
uint32_t FS_GetPath(const void* volume_cookie, const void* file_cookie, char* path,
                    uint32_t* room_bytes)
{
    const uint32_t room = *room_bytes;
    *room_bytes = 0;
    if (memcmp(volume_cookie, kVolumeCookie, FS_COOKIE_BYTES) != 0) return FS_E_BAD_COOKIE;
    if (file_cookie != NULL && memcmp(file_cookie, kFileCookie, FS_COOKIE_BYTES) != 0) {
        return FS_E_BAD_FILE;
    }
    const int length =
        snprintf(path, room, "%s%s", g_volume.mount_point, file_cookie != NULL ? kFileName : "");
    if (length < 0 || (uint32_t)length >= room) return FS_E_OUT_OF_MEMORY;
    *room_bytes = (uint32_t)length + 1;
    return FS_E_SUCCESS;
}

// A file-system plug-in that keeps nothing and asks nobody: one volume at "/bench", any file in it,
// every answer computed from its arguments. What is measured through it is the daemon alone.
#include <array>
#include <cstdint>
#include <cstring>

#include "fsmdc/fs_plugin.h"

namespace {

constexpr std::array<char, FS_COOKIE_BYTES> kVolume{"corvane-bench-volume"};
constexpr char kMountPoint[] = "/bench";
constexpr std::int64_t kFileSize = 1 << 20;
constexpr std::int64_t kBlockSize = 4096;

// True when `path` begins with the mount point; `rest` is what follows it.
bool is_on_volume(const FSUNI* path, const FSUNI** rest)
{
    for (const char* expected = kMountPoint; *expected != '\0'; ++expected, ++path) {
        if (*path != static_cast<unsigned char>(*expected)) return false;
    }
    *rest = path;
    return *path == 0 || *path == '/';
}

bool is_volume(const void* cookie)
{
    return std::memcmp(cookie, kVolume.data(), kVolume.size()) == 0;
}

template <class Record>
void put(void* record, std::size_t offset, const Record& value)
{
    std::memcpy(static_cast<char*>(record) + offset, &value, sizeof value);
}

}  // namespace

extern "C" {

uint32_t FS_Init()
{
    return FS_E_SUCCESS;
}

int32_t FS_GetVersion()
{
    return 200;
}

uint32_t FS_GetVolCookie(const FSUNI* mount_point, void* volume_cookie)
{
    const FSUNI* rest = nullptr;
    if (!is_on_volume(mount_point, &rest) || *rest != 0) return FS_E_WRONG_FS;
    std::memcpy(volume_cookie, kVolume.data(), kVolume.size());
    return FS_E_SUCCESS;
}

uint32_t FS_GetCookies(const FSUNI* path, void* volume_cookie, void* file_cookie)
{
    const FSUNI* name = nullptr;
    if (!is_on_volume(path, &name)) return FS_E_WRONG_FS;
    std::memcpy(volume_cookie, kVolume.data(), kVolume.size());
    std::array<char, FS_COOKIE_BYTES> cookie{};  // the first letters of the name
    for (std::size_t i = 0; i < cookie.size() && name[i] != 0; ++i) {
        cookie[i] = static_cast<char>(name[i]);
    }
    std::memcpy(file_cookie, cookie.data(), cookie.size());
    return FS_E_SUCCESS;
}

uint32_t FS_GetVolByCookie(const void* volume_cookie, void* record, uint32_t* room_bytes)
{
    if (!is_volume(volume_cookie)) return FS_E_BAD_COOKIE;
    constexpr std::uint32_t kBytes = sizeof(VolumeInfo) + sizeof(FSDisk);
    if (*room_bytes < kBytes) return FS_E_OUT_OF_MEMORY;
    VolumeInfo volume{};
    volume.msgLen = kBytes;
    volume.nDisks = 1;
    volume.BlockSize = kBlockSize;
    FSDisk disk{};
    std::memcpy(disk.DiskID, "bench-disk", sizeof "bench-disk");
    disk.IDlength = sizeof "bench-disk";
    disk.nBlocks = 1 << 20;
    put(record, 0, volume);
    put(record, sizeof volume, disk);
    *room_bytes = kBytes;
    return FS_E_SUCCESS;
}

uint32_t FS_GetLockedMap(const void* volume_cookie, const void*, int64_t start, int64_t length,
                         int32_t, void* record, uint32_t* room_bytes)
{
    if (!is_volume(volume_cookie)) return FS_E_BAD_FILE;
    constexpr std::uint32_t kBytes = sizeof(MapInfo) + sizeof(VerboseExtent);
    if (*room_bytes < kBytes) return FS_E_OUT_OF_MEMORY;
    MapInfo map{};
    map.fileSize = kFileSize;
    map.allocation = kFileSize;
    map.msgLen = kBytes;
    map.nExtents = 1;
    map.extentType = FS_EXTENT_VERBOSE;
    map.fileOffset = start;
    map.fileBytes = length < 0 ? kFileSize : length;
    VerboseExtent extent{};
    extent.LogicalByteAddr = start;
    extent.PhysicalByteAddr = start + kBlockSize;
    extent.nBytes = map.fileBytes;
    put(record, 0, map);
    put(record, sizeof map, extent);
    *room_bytes = kBytes;
    return FS_E_SUCCESS;
}

uint32_t FS_UnlockMap(const void*, const void*)
{
    return FS_E_SUCCESS;
}

uint32_t FS_SetFileSizes(const void*, const void*, int32_t, int64_t, int64_t, int64_t)
{
    return FS_E_SUCCESS;
}

}  // extern "C"

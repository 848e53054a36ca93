// The plug-in's exported functions: check what came in, find the volume, hand on.
#include <utility>

#include "fsmdc/fs_plugin.h"
#include "plugins/common/calls.hpp"
#include "plugins/ext/registry.hpp"

namespace {

using namespace corvane::ext;
using corvane::plugin::answer;
using corvane::plugin::write_volume_cookie;

constexpr std::int32_t kInterfaceVersion = 1;

corvane::plugin::Served<Registry> g_served;

template <class Body>
std::uint32_t with_volume(const void* volume_cookie, Body body) noexcept
{
    return g_served.with_volume(kVolumeMark, volume_cookie, body);
}

// Runs `body(volume, file)` for a pair of cookies.
template <class Body>
std::uint32_t with_file(const void* volume_cookie, const void* file_cookie, Body body) noexcept
{
    return with_volume(volume_cookie, [&](Volume& volume) -> std::uint32_t {
        const auto file = read_file_cookie(volume.uuid, file_cookie);
        return file ? body(volume, *file) : FS_E_BAD_FILE;
    });
}

}  // namespace

std::uint32_t FS_Init()
{
    return answer([]() -> std::uint32_t {
        g_served.set(
            nullptr);  // an earlier call's volumes are closed first: their sources are locked
        initialize_ext2_error_table();
        g_served.set(Registry::load());
        return FS_E_SUCCESS;
    });
}

std::int32_t FS_GetVersion()
{
    return kInterfaceVersion;
}

std::uint32_t FS_GetVolCookie(const FSUNI* mount_point, void* volume_cookie)
{
    if (volume_cookie == nullptr) return FS_E_BAD_COOKIE;
    return g_served.with_path(mount_point, [&](Volume& volume, std::span<const PathName> below) {
        // A share may begin in a directory of the volume.
        const std::uint32_t result = find_directory(volume, below);
        if (result == FS_E_SUCCESS) write_volume_cookie(kVolumeMark, volume.uuid, volume_cookie);
        return result;
    });
}

std::uint32_t FS_GetVolByCookie(const void* volume_cookie, void* record, std::uint32_t* room_bytes)
{
    if (record == nullptr || room_bytes == nullptr) return FS_E_MISC_ERROR;
    return with_volume(volume_cookie, [&](Volume& volume) {
        return describe_volume(volume, record, *room_bytes);
    });
}

std::uint32_t FS_GetCookies(const FSUNI* path, void* volume_cookie, void* file_cookie)
{
    if (volume_cookie == nullptr || file_cookie == nullptr) return FS_E_BAD_COOKIE;
    return g_served.with_path(path, [&](Volume& volume, std::span<const PathName> below) {
        FileId file;
        const std::uint32_t result = find_file(volume, below, file);
        if (result == FS_E_SUCCESS) {
            write_volume_cookie(kVolumeMark, volume.uuid, volume_cookie);
            write_file_cookie(volume.uuid, file, file_cookie);
        }
        return result;
    });
}

std::uint32_t FS_GetLockedMap(const void* volume_cookie, const void* file_cookie,
                              std::int64_t start, std::int64_t length, std::int32_t flag,
                              void* record, std::uint32_t* room_bytes)
{
    if (record == nullptr || room_bytes == nullptr) return FS_E_MISC_ERROR;
    return with_file(volume_cookie, file_cookie, [&](Volume& volume, FileId file) {
        return map_file(volume, file, {start, length, flag}, record, *room_bytes);
    });
}

std::uint32_t FS_UnlockMap(const void* volume_cookie, const void* file_cookie)
{
    return with_file(volume_cookie, file_cookie,
                     [](Volume& volume, FileId file) { return unlock_file(volume, file); });
}

std::uint32_t FS_SetFileSizes(const void* volume_cookie, const void* file_cookie,
                              std::int32_t /*unused*/, std::int64_t file_size,
                              std::int64_t allocation_size, std::int64_t /*reserved*/)
{
    return with_file(volume_cookie, file_cookie, [&](Volume& volume, FileId file) {
        return set_file_sizes(volume, file, file_size, allocation_size);
    });
}

std::uint32_t FS_GetMaxLeases(const void* volume_cookie, std::int32_t* read_s,
                              std::int32_t* write_s)
{
    if (read_s == nullptr || write_s == nullptr) return FS_E_MISC_ERROR;
    return with_volume(volume_cookie, [&](Volume& volume) {
        *read_s = volume.line.max_read_s;
        *write_s = volume.line.max_write_s;
        return FS_E_SUCCESS;
    });
}

std::uint32_t FS_GetPath(const void* volume_cookie, const void* file_cookie, char* path,
                         std::uint32_t* room_bytes)
{
    if (path == nullptr || room_bytes == nullptr) return FS_E_MISC_ERROR;
    const std::span room(path, std::exchange(*room_bytes, 0));
    return with_volume(volume_cookie, [&](Volume& volume) -> std::uint32_t {
        if (file_cookie == nullptr) return write_path(volume, std::nullopt, room, *room_bytes);
        const auto file = read_file_cookie(volume.uuid, file_cookie);
        return file ? write_path(volume, file, room, *room_bytes) : FS_E_BAD_FILE;
    });
}

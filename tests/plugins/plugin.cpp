// Loads plug-ins and calls them with guarded buffers.
#include "tests/plugins/plugin.hpp"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

namespace corvane::test {
namespace {

constexpr std::size_t kGuard_bytes = 33;  // odd, so that the record lies at an odd address
constexpr char kGuardByte = 0x5A;

template <class Function>
void resolve(void* library, const char* name, Function*& function)
{
    function = reinterpret_cast<Function*>(dlsym(library, name));
}

const FSUNI* as_fsuni(const FsuniText& text)
{
    static_assert(sizeof(char16_t) == sizeof(FSUNI));
    return reinterpret_cast<const FSUNI*>(text.c_str());
}

}  // namespace

Plugin::Plugin(const std::string& file)
{
    void* const library = dlopen(file.c_str(), RTLD_LAZY);
    if (library == nullptr) {
        ADD_FAILURE() << dlerror();
        return;
    }
    resolve(library, "FS_Init", init);
    resolve(library, "FS_GetVersion", version);
    resolve(library, "FS_GetVolCookie", volume_cookie);
    resolve(library, "FS_GetVolByCookie", volume_by_cookie);
    resolve(library, "FS_GetCookies", cookies);
    resolve(library, "FS_GetLockedMap", locked_map);
    resolve(library, "FS_UnlockMap", unlock_map);
    resolve(library, "FS_SetFileSizes", set_file_sizes);
    resolve(library, "FS_GetMaxLeases", max_leases);
    resolve(library, "FS_GetPath", path_entry);
}

Cookies Plugin::find(const FsuniText& path) const
{
    Cookies found;
    found.result = cookies(as_fsuni(path), found.volume.data(), found.file.data());
    return found;
}

Cookies Plugin::find(const std::string& ascii_path) const
{
    return find(widen(ascii_path));
}

Map Plugin::map(const Cookies& file, std::int64_t start, std::int64_t length, std::int32_t flag,
                std::uint32_t room_bytes) const
{
    std::vector<char> buffer(kGuard_bytes + room_bytes + kGuard_bytes, kGuardByte);
    char* const record = buffer.data() + kGuard_bytes;
    Map map;
    map.used_bytes = room_bytes;
    map.result = locked_map(file.volume.data(), file.file.data(), start, length, flag, record,
                            &map.used_bytes);
    EXPECT_LE(map.used_bytes, room_bytes);
    for (std::size_t i = 0; i < kGuard_bytes; ++i) {
        EXPECT_EQ(buffer[i], kGuardByte) << "written before the record";
        EXPECT_EQ(buffer[buffer.size() - 1 - i], kGuardByte) << "written behind the room";
    }
    if (map.result > FS_E_PARTIAL) return map;
    std::memcpy(&map.info, record, sizeof map.info);
    map.extents.resize(static_cast<std::size_t>(map.info.nExtents));
    if (!map.extents.empty()) {
        std::memcpy(map.extents.data(), record + sizeof map.info,
                    map.extents.size() * sizeof(VerboseExtent));
    }
    EXPECT_EQ(map.used_bytes, 64 + 32 * map.extents.size());
    EXPECT_EQ(map.info.msgLen, static_cast<std::int32_t>(map.used_bytes));
    return map;
}

namespace {

std::string ask_path(const Plugin& plugin, const void* volume, const void* file,
                     std::uint32_t room_bytes)
{
    std::vector<char> room(room_bytes + 1, kGuardByte);
    std::uint32_t used_bytes = room_bytes;
    const std::uint32_t result = plugin.path_entry(volume, file, room.data(), &used_bytes);
    EXPECT_EQ(room[room_bytes], kGuardByte) << "written behind the room";
    if (result != FS_E_SUCCESS) {
        EXPECT_EQ(used_bytes, 0U);
        return "result " + std::to_string(result);
    }
    std::string text(room.data());
    EXPECT_EQ(used_bytes, text.size() + 1);
    return text;
}

}  // namespace

std::string Plugin::path_of(const Cookies& file, std::uint32_t room_bytes) const
{
    return ask_path(*this, file.volume.data(), file.file.data(), room_bytes);
}

std::string Plugin::mount_point_of(const Cookies& file) const
{
    return ask_path(*this, file.volume.data(), nullptr, 4096);
}

std::uint32_t Plugin::unlock(const Cookies& file) const
{
    return unlock_map(file.volume.data(), file.file.data());
}

std::uint32_t Plugin::set_sizes(const Cookies& file, std::int64_t size,
                                std::int64_t allocation) const
{
    return set_file_sizes(file.volume.data(), file.file.data(), 0, size, allocation, -1);
}

FsuniText widen(const std::string& ascii)
{
    return {ascii.begin(), ascii.end()};
}

FsuniText widen_signed(const std::string& bytes)
{
    FsuniText units;
    for (const char byte : bytes) {
        units.push_back(
            static_cast<char16_t>(static_cast<std::int16_t>(static_cast<signed char>(byte))));
    }
    return units;
}

std::string to_text(const std::vector<VerboseExtent>& extents)
{
    std::ostringstream text;
    for (const auto& extent : extents) {
        if (text.tellp() > 0) text << ' ';
        text << extent.LogicalByteAddr << '+' << extent.nBytes << '@' << extent.PhysicalByteAddr
             << '/' << extent.validity;
    }
    return text.str();
}

}  // namespace corvane::test

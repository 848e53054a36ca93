// A loaded plug-in and its records, read the way a client reads them.
#ifndef CORVANE_TESTS_PLUGINS_PLUGIN_HPP
#define CORVANE_TESTS_PLUGINS_PLUGIN_HPP

#include <array>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "fsmdc/fs_plugin.h"

namespace corvane::test {

using Cookie = std::array<std::uint8_t, FS_COOKIE_BYTES>;
using FsuniText = std::basic_string<char16_t>;

struct Cookies {
    std::uint32_t result = 0;
    Cookie volume{};
    Cookie file{};
};

struct Map {
    std::uint32_t result = 0;
    std::uint32_t used_bytes = 0;  // room as the plug-in left it
    MapInfo info{};
    std::vector<VerboseExtent> extents;

    [[nodiscard]] std::int64_t end() const { return info.fileOffset + info.fileBytes; }
};

// Every entry point of one library, loaded for good.
class Plugin {
public:
    explicit Plugin(const std::string& file);

    decltype(&FS_Init) init = nullptr;
    decltype(&FS_GetVersion) version = nullptr;
    decltype(&FS_GetVolCookie) volume_cookie = nullptr;
    decltype(&FS_GetVolByCookie) volume_by_cookie = nullptr;
    decltype(&FS_GetCookies) cookies = nullptr;
    decltype(&FS_GetLockedMap) locked_map = nullptr;
    decltype(&FS_UnlockMap) unlock_map = nullptr;
    decltype(&FS_SetFileSizes) set_file_sizes = nullptr;
    decltype(&FS_GetMaxLeases) max_leases = nullptr;
    decltype(&FS_GetPath) path_entry = nullptr;

    [[nodiscard]] Cookies find(const FsuniText& path) const;
    [[nodiscard]] Cookies find(const std::string& ascii_path) const;
    // The record lies at an odd address, between guard bytes that must stay as they are.
    Map map(const Cookies& file, std::int64_t start = 0, std::int64_t length = -1,
            std::int32_t flag = 0, std::uint32_t room_bytes = 64256) const;
    std::uint32_t unlock(const Cookies& file) const;
    // The path of the file, written into exactly `room_bytes`; "result N" when there is none.
    std::string path_of(const Cookies& file, std::uint32_t room_bytes = 4096) const;
    // The path of the file's volume.
    std::string mount_point_of(const Cookies& file) const;
    std::uint32_t set_sizes(const Cookies& file, std::int64_t size, std::int64_t allocation) const;
};

FsuniText widen(const std::string& ascii);

// Units as the daemon makes them of a mount point's bytes: each byte with its sign.
FsuniText widen_signed(const std::string& bytes);

// "logical+bytes@physical/validity" of each extent, a blank between.
std::string to_text(const std::vector<VerboseExtent>& extents);

}  // namespace corvane::test

#endif

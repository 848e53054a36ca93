// The cookies this plug-in makes: a volume by its UUID, a file by the kernel's own handle.
#ifndef CORVANE_PLUGINS_MOUNTED_COOKIES_HPP
#define CORVANE_PLUGINS_MOUNTED_COOKIES_HPP

#include <array>
#include <compare>
#include <cstdint>
#include <optional>

#include "plugins/common/volume_cookie.hpp"

namespace corvane::mounted {

using plugin::Uuid;

// What name_to_handle_at says of a file: its inode and generation, in the file system's own words.
// It survives renames and restarts, and a later file in the same inode has another one.
struct FileId {
    static constexpr std::size_t kMostBytes = 12;  // ext4 uses 8, XFS 12

    std::uint8_t type = 0;
    std::uint8_t size = 0;  // bytes of the handle that count; the others are 0
    std::array<std::uint8_t, kMostBytes> handle{};

    auto operator<=>(const FileId&) const = default;
};

// The plug-in's volume cookies begin with it.
inline constexpr plugin::VolumeMark kVolumeMark = {'C', 'V', 'M', 'N', 'T', 'V', '1', '\0'};

// A file cookie: 2 bytes of mark, the handle's type and size, the handle, the volume's UUID. The
// daemon compares file cookies without the volume's, so those of two volumes must differ.
void write_file_cookie(const Uuid& volume, const FileId& file, void* cookie) noexcept;
// Absent for a null cookie, and for one of another plug-in or volume.
std::optional<FileId> read_file_cookie(const Uuid& volume, const void* cookie) noexcept;

}  // namespace corvane::mounted

#endif

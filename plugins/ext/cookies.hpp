// The cookies this plug-in makes: how a volume and a file are named between two calls, and over
// restarts.
#ifndef CORVANE_PLUGINS_EXT_COOKIES_HPP
#define CORVANE_PLUGINS_EXT_COOKIES_HPP

#include <array>
#include <cstdint>
#include <optional>

#include "plugins/common/volume_cookie.hpp"

namespace corvane::ext {

using plugin::Uuid;

// One file of a volume. The generation tells an inode from a later file in the same inode.
struct FileId {
    std::uint32_t inode = 0;
    std::uint32_t generation = 0;

    bool operator==(const FileId&) const = default;
};

// The plug-in's volume cookies begin with it.
inline constexpr plugin::VolumeMark kVolumeMark = {'C', 'V', 'E', 'X', 'T', 'V', '1', '\0'};

// A file cookie: 4 bytes of mark and version, inode, generation, 4 zeros, the volume's UUID. The
// daemon compares file cookies without the volume's, so those of two volumes must differ.
void write_file_cookie(const Uuid& volume, FileId file, void* cookie) noexcept;
// Absent for a null cookie, and for one of another plug-in or volume.
std::optional<FileId> read_file_cookie(const Uuid& volume, const void* cookie) noexcept;

}  // namespace corvane::ext

#endif

// The cookies this plug-in makes: how a volume and a file are named between two calls, and over
// restarts.
#ifndef CORVANE_PLUGINS_EXT_COOKIES_HPP
#define CORVANE_PLUGINS_EXT_COOKIES_HPP

#include <array>
#include <cstdint>
#include <optional>

namespace corvane::ext {

using Uuid = std::array<std::uint8_t, 16>;

// One file of a volume. The generation tells an inode from a later file in the same inode.
struct FileId {
    std::uint32_t inode = 0;
    std::uint32_t generation = 0;

    bool operator==(const FileId&) const = default;
};

// A volume cookie: 8 bytes of mark and version, the file system's UUID, 8 zeros.
void write_volume_cookie(const Uuid& volume, void* cookie) noexcept;
std::optional<Uuid> read_volume_cookie(const void* cookie) noexcept;

// A file cookie: 4 bytes of mark and version, inode, generation, 4 zeros, the volume's UUID. The
// daemon compares file cookies without the volume's, so those of two volumes must differ.
void write_file_cookie(const Uuid& volume, FileId file, void* cookie) noexcept;
std::optional<FileId> read_file_cookie(const Uuid& volume, const void* cookie) noexcept;

}  // namespace corvane::ext

#endif

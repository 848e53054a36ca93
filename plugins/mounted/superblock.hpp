// What the superblocks of ext4 and XFS say, and where copies of them lie.
#ifndef CORVANE_PLUGINS_MOUNTED_SUPERBLOCK_HPP
#define CORVANE_PLUGINS_MOUNTED_SUPERBLOCK_HPP

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "plugins/mounted/cookies.hpp"

namespace corvane::mounted {

enum class Format { kExt4, kXfs };

struct Superblock {
    Format format = Format::kExt4;
    Uuid uuid{};
    std::uint32_t block_bytes = 0;
    std::uint64_t group_bytes = 0;  // from one copy of the superblock to where the next may lie
    std::uint64_t group_count = 0;
    std::uint64_t first_byte = 0;  // where group 0 begins
    bool has_realtime = false;     // XFS: files may lie on another device
};

constexpr std::size_t kSuperblockRoom_bytes = 4096;  // as much of a device's start as is looked at

// Reads the primary superblock out of the device's first bytes; nothing when it is of neither kind.
std::optional<Superblock> read_superblock(std::span<const std::byte> start);

// Bytes from the device's start at which a UUID lies, if the group has a copy: its primary (group
// 0) or a copy of it.
std::uint64_t uuid_place(const Superblock& super, std::uint64_t group);

// The groups that may have a copy, ascending, as far as they are worth a look.
std::vector<std::uint64_t> groups_with_copies(const Superblock& super);

}  // namespace corvane::mounted

#endif

// Reads superblocks: little-endian ones of ext4, big-endian ones of XFS.
#include "plugins/mounted/superblock.hpp"

#include <algorithm>

namespace corvane::mounted {
namespace {

constexpr std::uint64_t kExtPlace = 1024;
constexpr std::uint64_t kExtUuidOffset = 0x68;
constexpr std::uint64_t kXfsUuidOffset = 0x20;
constexpr std::size_t kMostCopies = 256;

std::uint64_t read_le(std::span<const std::byte> bytes, std::size_t at, std::size_t size)
{
    std::uint64_t value = 0;
    for (std::size_t i = size; i-- > 0;) {
        value = value << 8 | std::to_integer<std::uint64_t>(bytes[at + i]);
    }
    return value;
}

std::uint64_t read_be(std::span<const std::byte> bytes, std::size_t at, std::size_t size)
{
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i) {
        value = value << 8 | std::to_integer<std::uint64_t>(bytes[at + i]);
    }
    return value;
}

Uuid read_uuid(std::span<const std::byte> bytes, std::size_t at)
{
    Uuid uuid{};
    std::transform(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                   bytes.begin() + static_cast<std::ptrdiff_t>(at + uuid.size()), uuid.begin(),
                   [](std::byte byte) { return std::to_integer<std::uint8_t>(byte); });
    return uuid;
}

std::optional<Superblock> read_ext4(std::span<const std::byte> bytes)
{
    constexpr std::uint64_t kMagic = 0xEF53;
    constexpr std::uint64_t kFeature64Bit = 0x80;
    if (read_le(bytes, 0x38, 2) != kMagic) return std::nullopt;
    const std::uint64_t shift = read_le(bytes, 0x18, 4);
    const std::uint64_t group_blocks = read_le(bytes, 0x20, 4);
    if (shift > 6 || group_blocks == 0) return std::nullopt;
    Superblock super;
    super.format = Format::kExt4;
    super.uuid = read_uuid(bytes, kExtUuidOffset);
    super.block_bytes = 1024U << shift;
    super.group_bytes = group_blocks * super.block_bytes;
    super.first_byte = read_le(bytes, 0x14, 4) * super.block_bytes;
    std::uint64_t blocks = read_le(bytes, 0x04, 4);
    if ((read_le(bytes, 0x60, 4) & kFeature64Bit) != 0) blocks |= read_le(bytes, 0x150, 4) << 32;
    super.group_count = (blocks + group_blocks - 1) / group_blocks;
    return super;
}

std::optional<Superblock> read_xfs(std::span<const std::byte> bytes)
{
    constexpr std::uint64_t kMagic = 0x58465342;  // "XFSB"
    if (read_be(bytes, 0, 4) != kMagic) return std::nullopt;
    const std::uint64_t block_bytes = read_be(bytes, 4, 4);
    if (block_bytes < 512 || block_bytes > 65536) return std::nullopt;
    Superblock super;
    super.format = Format::kXfs;
    super.uuid = read_uuid(bytes, kXfsUuidOffset);
    super.block_bytes = static_cast<std::uint32_t>(block_bytes);
    super.has_realtime = read_be(bytes, 16, 8) != 0;
    super.group_bytes = read_be(bytes, 0x54, 4) * block_bytes;
    super.group_count = read_be(bytes, 0x58, 4);
    return super;
}

// ext4 keeps copies in group 1 and in powers of 3, 5 and 7, unless it keeps fewer.
bool may_have_copy(std::uint64_t group)
{
    if (group < 2) return true;
    for (const std::uint64_t base : {3U, 5U, 7U}) {
        std::uint64_t power = base;
        while (power < group) power *= base;
        if (power == group) return true;
    }
    return false;
}

}  // namespace

std::optional<Superblock> read_superblock(std::span<const std::byte> start)
{
    if (start.size() < kSuperblockRoom_bytes) return std::nullopt;
    auto super = read_xfs(start);
    return super ? super : read_ext4(start.subspan(kExtPlace));
}

std::uint64_t uuid_place(const Superblock& super, std::uint64_t group)
{
    const std::uint64_t begin = super.first_byte + group * super.group_bytes;
    if (super.format == Format::kXfs) return begin + kXfsUuidOffset;
    return (group == 0 ? kExtPlace : begin) + kExtUuidOffset;
}

std::vector<std::uint64_t> groups_with_copies(const Superblock& super)
{
    std::vector<std::uint64_t> groups;
    for (std::uint64_t group = 0; group < super.group_count && groups.size() < kMostCopies;
         ++group) {
        if (super.format == Format::kXfs || may_have_copy(group)) groups.push_back(group);
    }
    return groups;
}

}  // namespace corvane::mounted

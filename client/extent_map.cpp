// Reads map records in their four layouts and refuses every map that could lead astray.
#include "client/extent_map.hpp"

#include <algorithm>
#include <bit>
#include <limits>
#include <tuple>

#include "client/failure.hpp"
#include "fsmdc/fs_result.h"
#include "fsmdc/records.h"
#include "osl/byte_order.h"

namespace corvane {
namespace {

constexpr std::int64_t kLast = std::numeric_limits<std::int64_t>::max();

[[noreturn]] void refuse(const std::string& why)
{
    throw Failure(kBadReply,
                  "the file's map was refused: " + why + "; check the controller's plug-in");
}

[[noreturn]] void refuse_extent(std::size_t index, const std::string& why)
{
    refuse("extent " + std::to_string(index) + " " + why);
}

// Blocks to bytes; negative or unrepresentable counts are refused.
std::int64_t block_range_bytes(std::int64_t blocks, std::int64_t block_bytes, std::size_t index)
{
    if (blocks < 0 || blocks > kLast / block_bytes)
        refuse_extent(index, "has an impossible block number");
    return blocks * block_bytes;
}

Extent read_verbose(const std::byte* at, std::size_t index, const Volume& volume)
{
    const auto record = load<VerboseExtent>(at);
    Extent extent{record.LogicalByteAddr, record.nBytes, Kind::kData, 0, record.PhysicalByteAddr};
    switch (record.validity) {
        case FS_VALIDITY_DATA:
            break;
        case FS_VALIDITY_HOLE:
            extent.kind = Kind::kHole;
            return extent;
        case FS_VALIDITY_UNWRITTEN:
            extent.kind = Kind::kUnwritten;
            break;
        default:
            refuse_extent(index, "has the unknown validity " + std::to_string(record.validity));
    }
    if (record.VolumeOrdinal < 0 ||
        static_cast<std::size_t>(record.VolumeOrdinal) >= volume.disks.size()) {
        refuse_extent(index, "lies on disk " + std::to_string(record.VolumeOrdinal) + " of " +
                                 std::to_string(volume.disks.size()));
    }
    extent.disk_index = static_cast<std::size_t>(record.VolumeOrdinal);
    return extent;
}

Extent read_compact(const std::byte* at, std::size_t index, const Volume& volume,
                    std::int64_t file_offset)
{
    if (volume.disks.size() != 1) {
        refuse("it counts blocks of the volume, which has " + std::to_string(volume.disks.size()) +
               " disks");
    }
    const auto record = load<CompactExtent>(at);
    return {file_offset, block_range_bytes(record.nBlocks, volume.block_bytes, index), Kind::kData,
            0, block_range_bytes(record.BlockOffset, volume.block_bytes, index)};
}

// The ordinal: the first 4 bytes of `VolOrd` in little-endian order, as its sender laid them. A
// foreign reply was turned as one 8-byte unit, so its bytes are turned back first.
std::size_t simple_ordinal(SimpleExtent record, bool is_foreign, std::size_t index,
                           std::size_t disk_count)
{
    if (is_foreign) doendian(&record.VolOrd, sizeof record.VolOrd);
    auto ordinal = load<std::uint32_t>(&record.VolOrd);
    if constexpr (std::endian::native == std::endian::big) doendian(&ordinal, sizeof ordinal);
    if (ordinal >= disk_count) {
        refuse_extent(
            index, "lies on disk " + std::to_string(ordinal) + " of " + std::to_string(disk_count));
    }
    return ordinal;
}

Extent read_simple(const std::byte* at, std::size_t index, const Volume& volume,
                   std::int64_t file_offset, bool is_foreign)
{
    const auto record = load<SimpleExtent>(at);
    return {file_offset, block_range_bytes(record.NBlocks, volume.block_bytes, index), Kind::kData,
            simple_ordinal(record, is_foreign, index, volume.disks.size()),
            block_range_bytes(record.VolSliceBlock, volume.block_bytes, index)};
}

// Up to the next multiple of a power of two; the largest number when there is none.
std::int64_t rounded_up(std::int64_t value, std::int64_t unit)
{
    return value > kLast - unit ? kLast : (value + unit - 1) & ~(unit - 1);
}

void check_in_slice(const Extent& extent, std::size_t index, const Volume& volume)
{
    const std::int64_t block_bytes = volume.block_bytes;
    if (extent.slice_offset < 0 || extent.slice_offset % block_bytes != 0 ||
        extent.file_offset % block_bytes != 0) {
        refuse_extent(index, "does not begin at a block");
    }
    const std::int64_t slice = volume.slice_bytes(extent.disk_index);
    if (extent.slice_offset > slice || extent.bytes > slice - extent.slice_offset) {
        refuse_extent(
            index, "lies outside the volume's slice of disk " + std::to_string(extent.disk_index));
    }
    // Only the end of the file may fall inside a block; the block itself is still the file's.
    if (rounded_up(extent.bytes, block_bytes) > slice - extent.slice_offset) {
        refuse_extent(index, "ends in a block outside the volume's slice");
    }
}

struct Bounds {
    std::int64_t first;
    std::int64_t last;
};

void check_extent(const Extent& extent, std::size_t index, const Volume& volume,
                  const Bounds& bounds)
{
    if (extent.bytes <= 0) refuse_extent(index, "is empty or of negative length");
    if (extent.file_offset < 0 || extent.bytes > kLast - extent.file_offset) {
        refuse_extent(index, "lies outside every file");
    }
    if (extent.file_offset < bounds.first || extent.file_end() > bounds.last) {
        refuse_extent(index, "lies outside the range that was asked for");
    }
    if (extent.kind != Kind::kHole) check_in_slice(extent, index, volume);
}

// Each extent ends before the next one begins; one that ends inside a block can only be the last.
void check_order(const std::vector<Extent>& extents, std::int64_t block_bytes)
{
    for (std::size_t i = 1; i < extents.size(); ++i) {
        const Extent& before = extents[i - 1];
        if (extents[i].file_offset < before.file_end())
            refuse_extent(i, "overlaps the one before it");
        if (before.kind != Kind::kHole && before.bytes % block_bytes != 0) {
            refuse_extent(i - 1, "ends inside a block and is not the last");
        }
    }
}

std::vector<Extent> read_extents(std::span<const std::byte> bytes, const MapInfo& record,
                                 const Volume& volume, bool is_foreign)
{
    std::vector<Extent> extents;
    const std::size_t each = extent_bytes(record.extentType);
    std::int64_t next = record.fileOffset;  // where an extent without a file offset begins
    for (std::size_t i = 0; i < static_cast<std::size_t>(record.nExtents); ++i) {
        const std::byte* const at = bytes.data() + sizeof(MapInfo) + i * each;
        Extent extent;
        switch (record.extentType) {
            case FS_EXTENT_COMPACT:
                extent = read_compact(at, i, volume, next);
                break;
            case FS_EXTENT_SIMPLE:
                extent = read_simple(at, i, volume, next, is_foreign);
                break;
            default:
                extent = read_verbose(at, i, volume);
                break;
        }
        if (extent.file_offset < 0 || extent.bytes > kLast - extent.file_offset) {
            refuse_extent(i, "lies outside every file");
        }
        next = extent.file_end();
        extents.push_back(extent);
    }
    return extents;
}

void check_record(const MapInfo& record, std::size_t record_bytes)
{
    if (record.fileSize < 0 || record.allocation < 0) refuse("the file has a negative size");
    if (record.fileOffset < 0 || record.fileBytes < 0 ||
        record.fileBytes > kLast - record.fileOffset) {
        refuse("it covers an impossible range");
    }
    const std::size_t each = extent_bytes(record.extentType);
    if (each == 0 && record.nExtents != 0) {
        refuse("its extents have the unknown layout " + std::to_string(record.extentType));
    }
    const std::size_t count =
        record.nExtents < 0 ? record_bytes : static_cast<std::size_t>(record.nExtents);
    if (record.nExtents < 0 || (each != 0 && count > (record_bytes - sizeof(MapInfo)) / each)) {
        refuse("it announces more extents than it holds");
    }
}

// The file range of a map: all that was asked for, or as far as a partial one says it reaches.
void set_range(ExtentMap& map, const MapInfo& record, const AskedRange& asked, bool is_partial)
{
    if (record.fileOffset > asked.start) refuse("it begins behind the range that was asked for");
    const std::int64_t covered_end = record.fileOffset + record.fileBytes;
    map.start = asked.start;
    map.is_complete = !is_partial && asked.bytes == 0;
    if (!is_partial) {
        map.end =
            asked.bytes == 0 ? std::max(covered_end, record.fileSize) : asked.start + asked.bytes;
    } else {
        map.end = asked.bytes == 0 ? covered_end : std::min(covered_end, asked.start + asked.bytes);
    }
    if (is_partial && map.end <= asked.start) refuse("it is partial and does not advance");
}

}  // namespace

bool has_map(const Reply& reply, std::size_t record_offset)
{
    const auto bytes = reply.from(record_offset);
    if (bytes.size() < sizeof(MapInfo)) return false;
    const auto record = load<MapInfo>(bytes.data());
    return record.msgLen != 0 || record.nExtents != 0 || record.fileBytes != 0;
}

ExtentMap read_map(const Reply& reply, std::size_t record_offset, const Volume& volume,
                   const AskedRange& asked, bool is_partial)
{
    const auto bytes = reply.from(record_offset);
    if (bytes.size() < sizeof(MapInfo)) refuse("the reply has none");
    const auto record = load<MapInfo>(bytes.data());
    if (record.vendorStatus != 0) {
        throw Failure(FS_E_MISC_ERROR, "the plug-in cannot map the file: " +
                                           reply.error_text(record_offset + sizeof(MapInfo)) +
                                           " (status " + std::to_string(record.vendorStatus) +
                                           "); look into the controller's log");
    }
    check_record(record, bytes.size());
    ExtentMap map;
    map.file_size = record.fileSize;
    map.allocation = record.allocation;
    set_range(map, record, asked, is_partial);
    map.extents = read_extents(bytes, record, volume, reply.is_foreign());
    const std::int64_t block_bytes = volume.block_bytes;
    const Bounds bounds{
        asked.start - asked.start % block_bytes,
        asked.bytes == 0 ? kLast : rounded_up(asked.start + asked.bytes, block_bytes)};
    for (std::size_t i = 0; i < map.extents.size(); ++i) {
        check_extent(map.extents[i], i, volume, bounds);
    }
    check_order(map.extents, block_bytes);
    return map;
}

std::vector<Extent> without_gaps(std::span<const Extent> extents, std::int64_t start,
                                 std::int64_t end)
{
    std::vector<Extent> whole;
    std::int64_t at = start;
    for (Extent extent : extents) {
        if (extent.file_end() <= at || extent.file_offset >= end) continue;
        if (extent.file_offset < at) {
            const std::int64_t skipped = at - extent.file_offset;
            extent.file_offset = at;
            extent.slice_offset += skipped;
            extent.bytes -= skipped;
        }
        if (extent.file_offset > at) {
            whole.push_back({at, extent.file_offset - at, Kind::kHole, 0, 0});
        }
        extent.bytes = std::min(extent.bytes, end - extent.file_offset);
        whole.push_back(extent);
        at = extent.file_end();
    }
    if (at < end) whole.push_back({at, end - at, Kind::kHole, 0, 0});
    return whole;
}

void check_no_shared_blocks(std::span<const Extent> extents)
{
    std::vector<Extent> by_place;
    std::ranges::copy_if(extents, std::back_inserter(by_place),
                         [](const Extent& extent) { return extent.kind != Kind::kHole; });
    std::ranges::sort(by_place, {}, [](const Extent& extent) {
        return std::tuple(extent.disk_index, extent.slice_offset);
    });
    for (std::size_t i = 1; i < by_place.size(); ++i) {
        const Extent& before = by_place[i - 1];
        const Extent& here = by_place[i];
        if (here.disk_index == before.disk_index &&
            here.slice_offset < before.slice_offset + before.bytes) {
            refuse("two of its extents share blocks");
        }
    }
}

}  // namespace corvane

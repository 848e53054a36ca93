// Asks FIEMAP in batches and believes nothing that it does not check.
#include "plugins/mounted/file_extents.hpp"

#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "fsmdc/fs_result.h"

namespace corvane::mounted {
namespace {

constexpr std::uint32_t kBatch = 512;
constexpr std::size_t kMostExtents = std::size_t{16} << 20;

struct FlagName {
    std::uint32_t flag;
    const char* name;
};

// Any of these means that the blocks do not simply hold the file's bytes.
constexpr std::array<FlagName, 7> kRefused = {{
    {FIEMAP_EXTENT_UNKNOWN, "at an unknown place"},
    {FIEMAP_EXTENT_DELALLOC, "not allocated yet"},
    {FIEMAP_EXTENT_ENCODED, "encoded"},
    {FIEMAP_EXTENT_DATA_ENCRYPTED, "encrypted"},
    {FIEMAP_EXTENT_NOT_ALIGNED, "not block-aligned"},
    {FIEMAP_EXTENT_DATA_INLINE, "kept in the inode"},
    {FIEMAP_EXTENT_DATA_TAIL, "packed with other files'"},
}};

// LAST says that the asked range ends here, not that the file does: nothing follows from it.
constexpr std::uint32_t kAllowed =
    FIEMAP_EXTENT_LAST | FIEMAP_EXTENT_UNWRITTEN | FIEMAP_EXTENT_MERGED | FIEMAP_EXTENT_SHARED;

// One question and its answer: a head, and room for the extents behind it.
class Batch {
public:
    // Asks for the extents of a range. False with `errno` set when the kernel has none to tell.
    bool ask(int descriptor, std::uint64_t from, std::uint64_t end)
    {
        fiemap head{};
        head.fm_start = from;
        head.fm_length = end - from;
        head.fm_flags = FIEMAP_FLAG_SYNC;
        head.fm_extent_count = kBatch;
        std::memcpy(bytes_.data(), &head, sizeof head);
        if (ioctl(descriptor, FS_IOC_FIEMAP, bytes_.data()) != 0) return false;
        std::memcpy(&head, bytes_.data(), sizeof head);
        count_ = std::min(head.fm_mapped_extents, kBatch);
        return true;
    }

    [[nodiscard]] std::uint32_t count() const noexcept { return count_; }
    [[nodiscard]] fiemap_extent at(std::uint32_t index) const
    {
        fiemap_extent extent{};
        std::memcpy(&extent, bytes_.data() + sizeof(fiemap) + index * sizeof extent, sizeof extent);
        return extent;
    }

private:
    std::vector<std::byte> bytes_ =
        std::vector<std::byte>(sizeof(fiemap) + kBatch * sizeof(fiemap_extent));
    std::uint32_t count_ = 0;
};

std::string describe_flags(std::uint32_t flags)
{
    for (const FlagName& refused : kRefused) {
        if ((flags & refused.flag) != 0) return refused.name;
    }
    return (flags & ~kAllowed) != 0 ? "of a kind that is not known" : "";
}

std::string check_extent(const fiemap_extent& extent, const ExtentBounds& bounds,
                         std::uint64_t least)
{
    const std::uint64_t block = bounds.block_bytes;
    if (extent.fe_length == 0) return "an extent is empty";
    if (extent.fe_logical % block != 0 || extent.fe_physical % block != 0 ||
        extent.fe_length % block != 0) {
        return "an extent is not made of whole blocks";
    }
    if (extent.fe_logical < least) return "its extents overlap or go backwards";
    if (extent.fe_length > UINT64_MAX - extent.fe_logical) return "an extent has no end";
    if (extent.fe_physical > bounds.device_bytes ||
        extent.fe_length > bounds.device_bytes - extent.fe_physical) {
        return "an extent lies outside the device";
    }
    return {};
}

void append(std::vector<FileExtent>& extents, const FileExtent& extent)
{
    if (!extents.empty()) {
        FileExtent& last = extents.back();
        if (last.end() == extent.logical && last.physical + last.bytes == extent.physical &&
            last.is_unwritten == extent.is_unwritten && last.is_shared == extent.is_shared) {
            last.bytes += extent.bytes;
            return;
        }
    }
    extents.push_back(extent);
}

// Takes one extent of an answer; allocations past the asked end are cut off.
std::uint32_t take(const fiemap_extent& extent, const ExtentBounds& bounds,
                   std::vector<FileExtent>& extents, std::string& wrong)
{
    wrong = describe_flags(extent.fe_flags);
    if (!wrong.empty()) {
        wrong = "it has blocks " + wrong;
        return FS_E_NO_DIRECT;
    }
    wrong = check_extent(extent, bounds, extents.empty() ? 0 : extents.back().end());
    if (!wrong.empty()) return FS_E_MISC_ERROR;
    if (extents.size() >= kMostExtents) {
        wrong = "it has too many extents; copy it to defragment it";
        return FS_E_NO_DIRECT;
    }
    if (extent.fe_logical >= bounds.end) return FS_E_SUCCESS;
    append(extents, {extent.fe_logical, extent.fe_physical,
                     std::min<std::uint64_t>(extent.fe_length, bounds.end - extent.fe_logical),
                     (extent.fe_flags & FIEMAP_EXTENT_UNWRITTEN) != 0,
                     (extent.fe_flags & FIEMAP_EXTENT_SHARED) != 0});
    return FS_E_SUCCESS;
}

}  // namespace

std::uint32_t read_extents(int descriptor, const ExtentBounds& bounds,
                           std::vector<FileExtent>& extents, std::string& wrong)
{
    extents.clear();
    Batch batch;
    for (std::uint64_t at = 0; at < bounds.end;) {
        if (!batch.ask(descriptor, at, bounds.end)) {
            wrong = "FIEMAP: " + std::generic_category().message(errno);
            return errno == EOPNOTSUPP || errno == EBADR ? FS_E_NO_DIRECT : FS_E_MISC_ERROR;
        }
        for (std::uint32_t i = 0; i < batch.count(); ++i) {
            const fiemap_extent extent = batch.at(i);
            const auto result = take(extent, bounds, extents, wrong);
            if (result != FS_E_SUCCESS) return result;
            at = extent.fe_logical + extent.fe_length;
        }
        if (batch.count() < kBatch) break;
    }
    return FS_E_SUCCESS;
}

std::vector<Gap> gaps_of(const std::vector<FileExtent>& extents, std::uint64_t end)
{
    std::vector<Gap> gaps;
    std::uint64_t at = 0;
    for (const FileExtent& extent : extents) {
        if (extent.logical >= end) break;
        if (extent.logical > at) gaps.push_back({at, extent.logical, /*is_hole=*/true});
        if (extent.is_unwritten) {
            gaps.push_back({extent.logical, std::min(extent.end(), end), /*is_hole=*/false});
        }
        at = extent.end();
    }
    if (at < end) gaps.push_back({at, end, /*is_hole=*/true});
    return gaps;
}

}  // namespace corvane::mounted

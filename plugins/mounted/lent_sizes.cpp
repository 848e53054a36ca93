// Gives lent files their maps, sizes and allocations.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <system_error>

#include "fsmdc/fs_result.h"
#include "plugins/common/map_record.hpp"
#include "plugins/mounted/lent_file.hpp"
#include "plugins/mounted/page_cache.hpp"
#include "plugins/mounted/volume.hpp"
#include "plugins/mounted/zero_fill.hpp"

namespace corvane::mounted {
namespace {

// Cuts a file's extents from `first` up to `end` (in units of the volume) where disks begin and
// end. No more than `most` runs: a record does not hold more.
struct RunBuilder {
    const Volume& volume;
    std::size_t most;
    plugin::Layout layout;

    bool add(const FileExtent& extent, std::uint64_t from, std::uint64_t end)
    {
        std::uint64_t at = from;
        return volume.tree.split(
            extent.physical + (from - extent.logical), end - from, [&](const Piece& piece) {
                const std::uint64_t unit = volume.unit_bytes;
                const std::uint64_t slice = volume.slice_starts[piece.disk_index];
                layout.runs.push_back({at / unit, (piece.byte - slice) / unit, piece.bytes / unit,
                                       extent.is_unwritten,
                                       static_cast<std::uint32_t>(piece.disk_index)});
                at += piece.bytes;
                return layout.runs.size() < most;
            });
    }
};

std::uint64_t asked_end(const MapRequest& request)
{
    if (request.length < 0 || request.start > INT64_MAX - request.length) return UINT64_MAX;
    return static_cast<std::uint64_t>(request.start + request.length);
}

}  // namespace

std::uint32_t LentFile::map(const MapRequest& request, void* record, std::uint32_t& room_bytes)
{
    std::uint32_t result = ensure_lent();
    if (result == FS_E_SUCCESS && is_writing_) result = check_unshared();
    if (result == FS_E_SUCCESS && is_writing_) result = align_end();
    if (result != FS_E_SUCCESS) return result;
    const std::uint64_t unit = volume_.unit_bytes;
    if (request.start < 0 || static_cast<std::uint64_t>(request.start) % unit != 0) {
        return FS_E_IVPARAM;
    }
    const auto first = static_cast<std::uint64_t>(request.start);
    const std::uint64_t asked = asked_end(request);
    const std::uint64_t end = std::max(first, std::min(map_end(), asked));

    RunBuilder builder{volume_, room_bytes / sizeof(VerboseExtent) + 2, {}};
    for (const FileExtent& extent : extents_) {
        builder.layout.block_count += extent.bytes / unit;
        // Who may write must not be shown a block in which nobody would ever see what he wrote.
        if (is_writing_ && extent.is_unwritten) continue;
        const std::uint64_t from = std::max(first, extent.logical);
        const std::uint64_t stop = std::min(plugin::blocks_of(end, unit) * unit, extent.end());
        if (from >= stop || builder.layout.runs.size() >= builder.most) continue;
        if (!builder.add(extent, from, stop) && builder.layout.runs.size() < builder.most) {
            return refuse(FS_E_MISC_ERROR, "an extent lies outside its disks");
        }
    }
    const std::uint64_t size = is_writing_ ? named_ : real_bytes();
    const plugin::MapSource source{builder.layout, {}, volume_.unit_bytes, size};
    return plugin::write_map_record(source, first / unit, plugin::blocks_of(end, unit), record,
                                    room_bytes);
}

// One past what a map covers: the file's end, and what was allocated behind it.
std::uint64_t LentFile::map_end() const
{
    if (!is_writing_) return whole_blocks(real_bytes());
    return std::min(std::max(whole_blocks(named_), allocated_end_), whole_blocks(real_bytes()));
}

std::uint32_t LentFile::check_unshared() const
{
    const bool is_shared = std::any_of(extents_.begin(), extents_.end(),
                                       [](const FileExtent& extent) { return extent.is_shared; });
    if (!is_shared) return FS_E_SUCCESS;
    return refuse(FS_E_NO_DIRECT,
                  "it shares blocks with another file, so nobody may write them in "
                  "place; copy it (cp --reflink=never)");
}

std::uint32_t LentFile::set_sizes(const SizeRequest& request)
{
    if (request.file_size < -1 || request.allocation < -1) return FS_E_IVPARAM;
    const bool was_open = is_open();
    if (was_open && changes_nothing(request)) return FS_E_SUCCESS;
    std::uint32_t result = ensure_lent();
    if (result != FS_E_SUCCESS && was_open && is_writing_ && request.file_size >= 0) {
        // The kernel let somebody in, yet the client may say where its file ends.
        named_ = static_cast<std::uint64_t>(request.file_size);
        note_sizes();
        return request.file_size <= static_cast<std::int64_t>(last_real_) ? FS_E_SUCCESS : result;
    }
    if (result != FS_E_SUCCESS) return result;
    if (changes_nothing(request)) return FS_E_SUCCESS;
    if (request.allocation >= 0) result = check_unshared();
    const bool was_writing = is_writing_;
    if (result == FS_E_SUCCESS) result = start_writing();
    if (result != FS_E_SUCCESS) return result;
    Plan plan = plan_for(request);
    // Whoever allocates writes next; who names a larger size has written.
    plan.keeps_tail = !was_writing && request.file_size >= 0 && request.holders != 0;
    return carry_out(plan, request.holders);
}

// A reader's Close may name the size that it saw.
bool LentFile::changes_nothing(const SizeRequest& request) const
{
    const auto size = static_cast<std::int64_t>(is_writing_ ? named_ : real_bytes());
    if (request.file_size >= 0 && request.file_size != size) return false;
    if (request.allocation < 0) return true;
    return !is_writing_ && request.file_size >= 0 && request.allocation == request.file_size;
}

LentFile::Plan LentFile::plan_for(const SizeRequest& request) const
{
    Plan plan;
    plan.named = request.file_size < 0 ? named_ : static_cast<std::uint64_t>(request.file_size);
    const std::uint64_t real = real_bytes();
    if (request.allocation < 0) {
        plan.real = plan.named > real ? whole_blocks(plan.named) : real;
        if (request.holders == 0) plan.real = plan.named;
        return plan;
    }
    // No file has more blocks than its volume, nor ext4 more than it can number.
    std::uint64_t limit = volume_.tree.size_bytes();
    if (volume_.super.format == Format::kExt4) {
        limit = std::min(limit, std::uint64_t{UINT32_MAX} * volume_.block_bytes());
    }
    // Behind its end only a lent file has somebody to write there.
    if (request.holders == 0) limit = std::min(limit, whole_blocks(plan.named));
    plan.filled = static_cast<std::uint64_t>(request.allocation);
    plan.is_short = plan.filled > limit;
    plan.filled = whole_blocks(std::min(plan.filled, limit - limit % volume_.block_bytes()));
    plan.real = std::max(
        plan.named, std::min<std::uint64_t>(static_cast<std::uint64_t>(request.allocation), limit));
    // A size that comes with its allocation is final, until somebody asks for a map.
    if (request.file_size < 0) plan.real = whole_blocks(plan.real);
    if (request.holders == 0) plan.real = plan.named;
    // Others may have what lies behind in their maps.
    if (request.holders > 1) plan.real = std::max(plan.real, real);
    return plan;
}

std::uint32_t LentFile::carry_out(Plan plan, std::uint32_t holders)
{
    const std::uint64_t old_real = real_bytes();
    std::uint32_t result = FS_E_SUCCESS;
    if (plan.real != old_real) result = resize(plan.real, plan.keeps_tail);
    if (result != FS_E_SUCCESS) return result;
    named_ = plan.named;
    std::uint64_t done_end = plan.filled;
    if (plan.filled != 0) result = fill(plan.filled, done_end);
    if (result == FS_E_SHORT_ALLOC) plan.is_short = true;
    if (plan.is_short && holders != 0) {
        const std::uint64_t had = std::max({whole_blocks(plan.named), done_end, old_real});
        if (had < real_bytes()) result = resize(had, /*keeps_tail=*/false);
    }
    note_sizes();
    if (result != FS_E_SUCCESS && result != FS_E_SHORT_ALLOC) return result;
    result = drop_pages();
    if (result == FS_E_SUCCESS) result = read_blocks(extents_);
    if (result != FS_E_SUCCESS) return result;
    if (!gaps_of(extents_, done_end).empty()) {
        return refuse(FS_E_MISC_ERROR, "the kernel did not make written blocks of its holes");
    }
    if (plan.filled != 0) {
        allocated_end_ = holders > 1 ? std::max(allocated_end_, done_end) : done_end;
    }
    return plan.is_short ? FS_E_SHORT_ALLOC : FS_E_SUCCESS;
}

// Sets the size as the kernel knows it. Growing, the kernel zeroes what the last block has behind
// the old end: `keeps_tail` saves what a client may have written there.
std::uint32_t LentFile::resize(std::uint64_t bytes, bool keeps_tail)
{
    if (const auto result = drop_pages(); result != FS_E_SUCCESS) return result;
    const std::uint64_t old = real_bytes();
    const std::uint64_t block_bytes = volume_.block_bytes();
    const std::uint64_t last_block = old - old % block_bytes;
    std::vector<std::byte> tail;
    if (keeps_tail && bytes > old && old != last_block) {
        for (const FileExtent& extent : extents_) {
            if (extent.is_unwritten || last_block < extent.logical || last_block >= extent.end()) {
                continue;
            }
            tail.resize(block_bytes);
            if (!volume_.read(extent.physical + (last_block - extent.logical), tail)) {
                return refuse(FS_E_MISC_ERROR, "its last block cannot be read");
            }
        }
    }
    const std::uint64_t step = tail.empty() ? bytes : whole_blocks(bytes);
    if (ftruncate(file_.get(), static_cast<off_t>(step)) != 0) {
        return refuse(FS_E_MISC_ERROR,
                      "its size cannot be set: " + std::generic_category().message(errno));
    }
    std::uint32_t result = drop_pages();
    if (result != FS_E_SUCCESS) return result;
    if (!tail.empty() && !write_block(file_.get(), last_block, tail)) {
        return refuse(FS_E_MISC_ERROR, "its last block cannot be written");
    }
    if (step != bytes && ftruncate(file_.get(), static_cast<off_t>(bytes)) != 0) {
        return refuse(FS_E_MISC_ERROR, "its size cannot be set");
    }
    last_real_ = bytes;
    return drop_pages();
}

// Fills what no written block holds, up to `end`; `done_end` says how far it came.
std::uint32_t LentFile::fill(std::uint64_t end, std::uint64_t& done_end)
{
    done_end = 0;
    std::vector<FileExtent> extents;
    if (const auto result = read_blocks(extents); result != FS_E_SUCCESS) return result;
    for (const Gap& gap : gaps_of(extents, end)) {
        int error = 0;
        const std::uint64_t done =
            write_zeros(file_.get(), gap.from, gap.end, volume_.block_bytes(), error);
        done_end = gap.from + done;
        if (gap.is_hole && done != 0) filled_.push_back({gap.from, done_end, true});
        if (done_end == gap.end) continue;
        if (gap.is_hole) (void)punch_hole(file_.get(), done_end, gap.end);
        (void)fsync(file_.get());
        if (error == ENOSPC) return FS_E_SHORT_ALLOC;
        return refuse(FS_E_MISC_ERROR,
                      "it cannot be filled: " + std::generic_category().message(error));
    }
    done_end = end;
    return FS_E_SUCCESS;
}

// A file that a client may write in ends with a whole block, before the client writes.
std::uint32_t LentFile::align_end()
{
    const std::uint64_t real = real_bytes();
    if (real == whole_blocks(real)) return FS_E_SUCCESS;
    const auto result = resize(whole_blocks(real), /*keeps_tail=*/false);
    note_sizes();
    return result == FS_E_SUCCESS ? read_blocks(extents_) : result;
}

// Holes that were filled for a client and still read as zeros become holes again: nothing of the
// file changes, and the volume has its blocks back.
void LentFile::give_back()
{
    const std::uint64_t end = whole_blocks(real_bytes());
    for (const Gap& gap : filled_) {
        const std::uint64_t stop = std::min(gap.end, end);
        if (gap.from >= stop || !is_all_zeros(file_.get(), gap.from, stop)) continue;
        if (!punch_hole(file_.get(), gap.from, stop)) report("its blocks could not be given back");
    }
}

}  // namespace corvane::mounted

// Lets callers change a file's sizes, and tidies up after files that were unlocked.
#include "plugins/ext/size_change.hpp"
#include "plugins/ext/volume_change.hpp"

namespace corvane::ext {
namespace {

// A file without extents went back to its owner with blocks past its end: they go now.
void end_loan(Volume& volume, FileId id)
{
    OpenFile file;
    if (volume.locks.holders(id) != 0) {
        volume.locks.set_loan(id, true);  // locked again meanwhile: later, then
        return;
    }
    if (volume.is_broken || load_file(volume, id, file) != FS_E_SUCCESS) return;
    const auto layout = load_layout(volume, file);
    if (layout == nullptr) return;
    const std::uint64_t end_block = blocks_of(file.size_bytes(), volume.block_bytes());
    if (layout->runs.empty() || layout->runs.back().end() <= end_block) return;
    SizeChange change(volume, file, layout, -1, -1);
    (void)change.release_from(end_block);  // it logs its own failure
}

}  // namespace

void settle_returned(Volume& volume)
{
    // All bits first: ending a loan writes the bitmap to disk.
    const auto all = volume.locks.take_returned();
    for (const Returned& returned : all) {
        mark_held_back(volume, returned.freed, /*is_held=*/false);
    }
    for (const Returned& returned : all) {
        if (returned.has_loan) end_loan(volume, returned.file);
    }
}

std::uint32_t set_file_sizes(Volume& volume, FileId id, std::int64_t file_size,
                             std::int64_t allocation_size)
{
    if (file_size < -1 || allocation_size < -1) return FS_E_IVPARAM;
    const std::scoped_lock guard(volume.io);
    settle_returned(volume);
    OpenFile file;
    std::uint32_t result = load_file(volume, id, file);
    if (result == FS_E_SUCCESS) result = check_direct_access(file);
    if (result != FS_E_SUCCESS) return result;
    const auto layout = load_layout(volume, file);
    if (layout == nullptr) return FS_E_MISC_ERROR;
    return SizeChange(volume, file, layout, file_size, allocation_size).run();
}

}  // namespace corvane::ext

// Reads and writes files block by block, under the lease.
#include "client/transfer.hpp"

#include <algorithm>

#include "client/failure.hpp"
#include "client/pace.hpp"

namespace corvane {
namespace {

static_assert(kLongestStepBytes % kLargestBlockBytes == 0, "a step is whole blocks");

// One step through bytes that no disk is asked for.
constexpr std::int64_t kZerosStepBytes = 64 << 20;

void report(const TransferOptions& options, std::int64_t done, std::int64_t total)
{
    if (options.progress) options.progress(done, total);
}

// Disks that are found and opened when the first of their blocks is needed: a volume may have disks
// that this file does not touch.
class DiskSet {
public:
    DiskSet(const Volume& volume, const Candidates& candidates, Access access)
        : volume_(volume), candidates_(candidates), access_(access), disks_(volume.disks.size())
    {
    }

    // Opens the disks of all extents with blocks.
    void open_for(std::span<const Extent> extents)
    {
        std::vector<bool> wanted(disks_.size());
        for (const Extent& extent : extents) {
            if (extent.kind == Kind::kHole || disks_[extent.disk_index] != nullptr) continue;
            wanted[extent.disk_index] = true;
        }
        auto opened = open_disks(volume_, candidates_, access_, wanted);
        for (std::size_t i = 0; i < opened.size(); ++i) {
            if (opened[i] != nullptr) disks_[i] = std::move(opened[i]);
        }
    }

    // The disk of an extent and the place of the extent's byte `skipped` on it.
    [[nodiscard]] Disk& of(const Extent& extent) const { return *disks_[extent.disk_index]; }
    [[nodiscard]] std::int64_t place(const Extent& extent, std::int64_t skipped) const
    {
        return volume_.slice_start(extent.disk_index) + extent.slice_offset + skipped;
    }

    void flush()
    {
        for (const auto& disk : disks_) {
            if (disk != nullptr) disk->flush();
        }
    }

private:
    const Volume& volume_;
    const Candidates& candidates_;
    Access access_;
    std::vector<std::unique_ptr<Disk>> disks_;
};

// What every step of a transfer needs.
struct Transfer {
    const Exchange& exchange;
    OpenFile& file;
    const TransferOptions& options;
    DiskSet disks;
    AlignedBuffer buffer{static_cast<std::size_t>(kLongestStepBytes)};
    Pace pace{file.volume().block_bytes};

    // Before each step: may it begin?
    void check() const
    {
        exchange.throw_if_stopped();
        file.check_lease();
    }

    [[nodiscard]] std::int64_t step_bytes() const
    {
        return pace.step_bytes(file.transfer_budget());
    }

    // Runs one transfer of a disk, if it may begin, and makes sure that the lease outlasted it. It
    // counts from before the check: a host may stand still at any point of this.
    template <class Move>
    void run(std::int64_t bytes, Move move)
    {
        const auto began = Clock::now();
        check();
        move();
        pace.took(bytes, Clock::now() - began);
        file.end_transfer(began);
    }
};

// Whole blocks are read, so that the disk is asked for whole sectors; the sink gets the file's
// bytes.
void read_blocks(Transfer& transfer, const Extent& extent, std::int64_t at, std::int64_t count,
                 Sink& sink)
{
    const std::int64_t block_bytes = transfer.file.volume().block_bytes;
    const std::int64_t whole = (count + block_bytes - 1) / block_bytes * block_bytes;
    const auto bytes = transfer.buffer.bytes().first(static_cast<std::size_t>(whole));
    transfer.run(whole,
                 [&] { transfer.disks.of(extent).read(transfer.disks.place(extent, at), bytes); });
    sink.write(bytes.first(static_cast<std::size_t>(count)));
}

void read_extent(Transfer& transfer, const Extent& extent, Sink& sink, std::int64_t total)
{
    const bool has_bytes = extent.kind == Kind::kData;
    for (std::int64_t at = 0; at < extent.bytes;) {
        transfer.check();
        const std::int64_t step = has_bytes ? transfer.step_bytes() : kZerosStepBytes;
        const std::int64_t count = std::min(step, extent.bytes - at);
        if (has_bytes) {
            read_blocks(transfer, extent, at, count, sink);
        } else {
            sink.write_zeros(count);
        }
        at += count;
        report(transfer.options, extent.file_offset + at, total);
    }
}

// How far a write came: up to `done` the file is new, from `begun` on it is as before.
struct Written {
    std::int64_t done = 0;
    std::int64_t begun = 0;
};

void write_extent(Transfer& transfer, const Extent& extent, Source& source, Written& written,
                  std::int64_t total)
{
    const std::int64_t block_bytes = transfer.file.volume().block_bytes;
    for (std::int64_t at = 0; at < extent.bytes;) {
        const std::int64_t count = std::min(transfer.step_bytes(), extent.bytes - at);
        const std::int64_t whole = (count + block_bytes - 1) / block_bytes * block_bytes;
        const auto bytes = transfer.buffer.bytes().first(static_cast<std::size_t>(whole));
        source.read(bytes.first(static_cast<std::size_t>(count)));
        std::ranges::fill(bytes.subspan(static_cast<std::size_t>(count)), std::byte{0});
        transfer.run(whole, [&] {
            written.begun = extent.file_offset + at + count;
            transfer.disks.of(extent).write(transfer.disks.place(extent, at), bytes);
        });
        at += count;
        written.done = written.begun;
        report(transfer.options, written.done, total);
    }
}

bool is_all_data(std::span<const Extent> extents)
{
    return std::ranges::all_of(extents,
                               [](const Extent& extent) { return extent.kind == Kind::kData; });
}

// The map of all bytes to write. Where blocks lack, or where what is written would go on reading as
// zeros, the controller is asked to allocate: that gives blocks and prepares them. It is asked even
// where nothing lacks: a volume or file that must not be changed refuses here, before a byte of it
// is. The allocation never shrinks: that would take blocks from a file that may yet keep its size.
std::vector<Extent> map_for_writing(OpenFile& file, std::int64_t total)
{
    const std::int64_t kept = std::max(total, file.allocation());
    const bool has_blocks = is_all_data(file.whole_map(total));
    file.allocate(has_blocks ? kept : std::max(kept, file.size()), /*lacks_blocks=*/!has_blocks);
    auto extents = file.whole_map(total);
    if (!is_all_data(extents)) {
        throw Failure(kNoBlocks, "the controller gave the file no blocks to write " +
                                     std::to_string(total) +
                                     " bytes to; make room on the volume, or write through its "
                                     "mounted file system");
    }
    check_no_shared_blocks(extents);
    return extents;
}

// Says what became of the file when writing ended early.
[[noreturn]] void fail_half_way(const Failure& cause, const Written& written, std::int64_t total)
{
    std::string state = "; the file is as it was";
    if (written.begun != 0 && written.done == total) {
        state = "; all " + std::to_string(total) +
                " bytes are in their blocks, but the size may be "
                "as before: put the file again";
    } else if (written.begun != 0) {
        state = "; of " + std::to_string(total) + " bytes the first " +
                std::to_string(written.done) + " are new, those from byte " +
                std::to_string(written.begun) +
                " on and the size are as before: put the file again";
    }
    throw Failure(cause.code(), cause.what() + state);
}

// Blocks that were only added for this transfer go back. Failures stay unsaid: the first one
// counts.
void give_back(OpenFile& file, std::int64_t old_size) noexcept
{
    try {
        file.close(old_size);
    } catch (...) {
        return;
    }
}

void write_all(Transfer& transfer, Source& source, std::span<const Extent> extents,
               Written& written)
{
    const std::int64_t total = source.size();
    for (const Extent& extent : extents) write_extent(transfer, extent, source, written, total);
    transfer.check();
    transfer.disks.flush();
    transfer.check();
    transfer.file.close(total);
}

}  // namespace

void read_file(const Exchange& exchange, OpenFile& file, Sink& sink, const TransferOptions& options)
{
    Transfer transfer{exchange, file, options,
                      DiskSet(file.volume(), options.candidates, Access::kRead)};
    const std::int64_t total = file.size();
    report(options, 0, total);
    for (std::int64_t at = 0; at < total;) {
        transfer.check();
        const ExtentMap map = file.map_from(at);
        const std::int64_t end = std::min(map.is_complete ? total : map.end, total);
        const auto extents = without_gaps(map.extents, at, end);
        transfer.disks.open_for(extents);
        for (const Extent& extent : extents) read_extent(transfer, extent, sink, total);
        at = end;
    }
    sink.finish();
    file.close();
}

void write_file(const Exchange& exchange, OpenFile& file, Source& source,
                const TransferOptions& options)
{
    const std::int64_t total = source.size();
    const std::int64_t old_size = file.size();
    Transfer transfer{exchange, file, options,
                      DiskSet(file.volume(), options.candidates, Access::kReadWrite)};
    Written written;
    try {
        const auto extents = map_for_writing(file, total);
        transfer.disks.open_for(extents);
        report(options, 0, total);
        write_all(transfer, source, extents, written);
    } catch (const Failure& failure) {
        if (file.has_allocated()) give_back(file, old_size);
        fail_half_way(failure, written, total);
    }
}

}  // namespace corvane

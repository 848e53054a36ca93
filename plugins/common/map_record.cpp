// Turns a checked layout into verbose extents: data, holes and unwritten blocks, joined where they
// meet.
#include "plugins/common/map_record.hpp"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "fsmdc/fs_result.h"

namespace corvane::plugin {
namespace {

static_assert(sizeof(MapInfo) == 64 && sizeof(VerboseExtent) == 32, "layout");

struct Piece {
    std::uint64_t logical = 0;
    std::uint64_t physical = 0;  // 0 for a hole
    std::uint64_t count = 0;
    std::int32_t validity = FS_VALIDITY_DATA;
    std::uint32_t disk = 0;

    [[nodiscard]] bool is_followed_by(const Piece& next) const noexcept
    {
        const bool is_hole = validity == FS_VALIDITY_HOLE;
        return validity == next.validity &&
               (is_hole || (disk == next.disk && physical + count == next.physical));
    }
};

// Writes extents behind the record's head; a piece is held back until it is known where it ends.
class ExtentWriter {
public:
    ExtentWriter(std::byte* record, std::uint32_t room_bytes, std::uint32_t block_bytes)
        : at_(record + sizeof(MapInfo)),
          room_count_((room_bytes - sizeof(MapInfo)) / sizeof(VerboseExtent)),
          block_bytes_(block_bytes)
    {
    }

    // False when there is no room for the piece.
    bool add(const Piece& piece)
    {
        if (last_.count != 0 && last_.is_followed_by(piece)) {
            last_.count += piece.count;
            return true;
        }
        flush();
        if (written_ == room_count_) return false;
        last_ = piece;
        return true;
    }

    void flush()
    {
        if (last_.count == 0) return;
        const auto bytes = [this](std::uint64_t blocks) {
            return static_cast<std::int64_t>(blocks * block_bytes_);
        };
        const VerboseExtent extent{bytes(last_.logical), bytes(last_.physical), bytes(last_.count),
                                   static_cast<std::int32_t>(last_.disk), last_.validity};
        std::memcpy(at_, &extent, sizeof extent);
        at_ += sizeof extent;
        ++written_;
        last_ = Piece{};
    }

    [[nodiscard]] std::uint32_t written() const noexcept { return written_; }

private:
    std::byte* at_;
    std::size_t room_count_;
    std::uint32_t block_bytes_;
    std::uint32_t written_ = 0;
    Piece last_;
};

// Finds what lies at one block of the file and how far it goes on alike.
class PieceReader {
public:
    explicit PieceReader(const MapSource& source) : source_(source) {}

    [[nodiscard]] Piece at(std::uint64_t block, std::uint64_t end) const
    {
        const auto& runs = source_.layout.runs;
        const auto next = std::upper_bound(
            runs.begin(), runs.end(), block,
            [](std::uint64_t wanted, const Run& run) { return wanted < run.logical; });
        if (next == runs.begin() || (next - 1)->end() <= block) {
            const std::uint64_t stop = next == runs.end() ? end : std::min(end, next->logical);
            return {block, 0, stop - block, FS_VALIDITY_HOLE, 0};
        }
        const Run& run = *(next - 1);
        Piece piece{block, run.physical + (block - run.logical), std::min(end, run.end()) - block,
                    FS_VALIDITY_DATA, run.disk};
        if (run.is_unwritten) judge_unwritten(piece);
        return piece;
    }

private:
    // Cuts the piece where prepared blocks begin or end, and says which of the two it is.
    void judge_unwritten(Piece& piece) const
    {
        piece.validity = FS_VALIDITY_UNWRITTEN;
        for (const BlockRange& range : source_.prepared) {
            if (range.end() <= piece.logical) continue;
            if (range.first <= piece.logical) {
                piece.validity = FS_VALIDITY_DATA;
                piece.count = std::min(piece.count, range.end() - piece.logical);
            } else {
                piece.count = std::min(piece.count, range.first - piece.logical);
            }
            return;
        }
    }

    const MapSource& source_;
};

}  // namespace

std::uint32_t write_map_record(const MapSource& source, std::uint64_t first, std::uint64_t end,
                               void* record, std::uint32_t& room_bytes)
{
    const std::uint32_t room = room_bytes;
    room_bytes = 0;
    const std::size_t least = sizeof(MapInfo) + (first < end ? sizeof(VerboseExtent) : 0);
    if (room < least) return FS_E_OUT_OF_MEMORY;

    auto* const bytes = static_cast<std::byte*>(record);
    ExtentWriter writer(bytes, room, source.block_bytes);
    const PieceReader reader(source);
    std::uint64_t block = first;
    while (block < end) {
        const Piece piece = reader.at(block, end);
        if (!writer.add(piece)) break;
        block += piece.count;
    }
    writer.flush();

    MapInfo head{};
    head.fileSize = static_cast<std::int64_t>(source.file_bytes);
    head.allocation = static_cast<std::int64_t>(source.layout.block_count * source.block_bytes);
    head.nExtents = static_cast<std::int32_t>(writer.written());
    room_bytes = static_cast<std::uint32_t>(sizeof head + writer.written() * sizeof(VerboseExtent));
    head.msgLen = static_cast<std::int32_t>(room_bytes);
    head.extentType = FS_EXTENT_VERBOSE;
    head.fileOffset = static_cast<std::int64_t>(first * source.block_bytes);
    head.fileBytes = static_cast<std::int64_t>((block - first) * source.block_bytes);
    std::memcpy(bytes, &head, sizeof head);
    return block < end ? FS_E_PARTIAL : FS_E_SUCCESS;
}

}  // namespace corvane::plugin

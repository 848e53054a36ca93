// Replies: see reply.hpp. A draft lies in a buffer that its thread keeps and that is all zeros
// between two drafts, so that a request neither clears nor copies more than it sends.
#include "fsmdc/reply.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "fsmdc/records.h"
#include "fsmdc/service.h"
#include "lan/header.h"
#include "mdcmain/log.hpp"
#include "osl/memory.h"

namespace corvane {
namespace {

constexpr std::int32_t kDefaultReplyBytes = 64512;
constexpr std::size_t kKeptBytes =
    65536;  // longer drafts, which no datagram can carry, are not kept
constexpr std::size_t kLookBehindBytes = 512;
constexpr std::size_t kLineBytes = 64;
constexpr std::size_t kPageBytes = 4096;
constexpr std::int64_t kMapReplyBase =
    162;  // the same for both map replies, though their records start apart
constexpr std::int64_t kVolumeTextBase = 274;

// The buffer of one thread; zeros whenever no draft is in it.
struct KeptBuffer {
    std::byte* bytes = nullptr;

    KeptBuffer() = default;
    KeptBuffer(const KeptBuffer&) = delete;
    KeptBuffer& operator=(const KeptBuffer&) = delete;
    ~KeptBuffer() { OSL_Free(bytes); }
};
thread_local KeptBuffer t_kept;

[[nodiscard]] std::byte* zeroed(std::size_t size_bytes) noexcept
{
    return static_cast<std::byte*>(OSL_Calloc(size_bytes, allocation_tag("lanh")));
}

// Returns `size_bytes` zero bytes at least.
[[nodiscard]] std::byte* borrow_zeros(std::size_t size_bytes) noexcept
{
    if (size_bytes > kKeptBytes) return zeroed(size_bytes);
    if (t_kept.bytes == nullptr) t_kept.bytes = zeroed(kKeptBytes);
    return t_kept.bytes;
}

[[nodiscard]] bool is_zero(const std::byte* from, const std::byte* end) noexcept
{
    // All bytes equal the first one: a comparison with itself, one byte on, at the speed of memcmp.
    return from == end ||
           (*from == std::byte{0} &&
            std::memcmp(from, from + 1, static_cast<std::size_t>(end - from) - 1) == 0);
}

// True when a plug-in is seen to have written behind what it reported: right behind it, at the end
// of its room, or on any page between.
[[nodiscard]] bool has_strays(const std::byte* bytes, std::size_t written_bytes,
                              std::size_t room_end) noexcept
{
    const std::byte* const end = bytes + room_end;
    const std::byte* at = bytes + std::min(written_bytes, room_end);
    if (!is_zero(at, std::min(at + kLookBehindBytes, end))) return true;
    if (!is_zero(std::max(at, end - kLineBytes), end)) return true;
    for (; at < end; at += kPageBytes) {
        if (!is_zero(at, std::min(at + kLineBytes, end))) return true;
    }
    return false;
}

// Makes the buffer all zeros again. What was reported is cleared; where a plug-in wrote more than
// it reported, all of its room is.
void give_back(std::byte* bytes, std::size_t written_bytes, std::size_t room_end,
               std::size_t size_bytes) noexcept
{
    if (size_bytes > kKeptBytes) {
        OSL_Free(bytes);
    } else if (bytes != nullptr) {
        const bool all = has_strays(bytes, written_bytes, room_end);
        std::memset(bytes, 0, all ? size_bytes : written_bytes);
    }
}

// The header that answers `request`, at the start of `reply`.
void write_header(void* reply, const void* request, std::size_t size_bytes,
                  const FsLibrary* library) noexcept
{
    auto header = load<LanHeader>(request);
    header.endian = 1;
    if (library != nullptr) header.revision = library->version;
    header.functionCode =
        static_cast<std::int32_t>(0U - static_cast<std::uint32_t>(header.functionCode));
    header.length = static_cast<std::uint32_t>(size_bytes);
    header.result = 0;
    store(reply, header);
}

void trace_shortage(std::size_t size_bytes) noexcept
{
    CORVANE_TRACE("FTX2026I SP_InitReply failed to calloc %d bytes\n",
                  static_cast<int>(size_bytes));
}

}  // namespace

ReplyDraft::ReplyDraft(const void* request, const FsLibrary* library, const Shape& shape) noexcept
    : record_offset_(shape.record_offset)
{
    const std::int32_t most = maxDgramSize();
    const auto size_bytes = static_cast<std::size_t>(std::max(most, shape.least_bytes));
    bytes_ = borrow_zeros(size_bytes);
    if (bytes_ == nullptr) {
        trace_shortage(size_bytes);
        return;
    }
    size_bytes_ = size_bytes;
    room_bytes_ =
        most > shape.kept_back_bytes
            ? static_cast<std::uint32_t>(most) - static_cast<std::uint32_t>(shape.kept_back_bytes)
            : 0;
    write_header(bytes_, request, size_bytes, library);
    written_bytes_ = std::min(record_offset_, size_bytes);
}

ReplyDraft::~ReplyDraft()
{
    give_back(bytes_, written_bytes_, record_offset_ + room_bytes_, size_bytes_);
}

// Units of the error text at `text_offset` of the record; more than the room holds when it does not
// end there.
std::int64_t ReplyDraft::error_text_units(std::size_t text_offset) const noexcept
{
    const std::size_t room_units = bytes_from(room_bytes_, text_offset) / sizeof(FSUNI);
    const std::size_t units = text_units(bytes_at(record(), text_offset), room_units);
    const bool is_open_ended = room_units > 0 && units == room_units;
    return static_cast<std::int64_t>(is_open_ended ? size_bytes_ : units);
}

ReplySize ReplyDraft::map_size() const noexcept
{
    const auto head = load<MapInfo>(record());
    const std::int64_t units = head.vendorStatus != 0 ? error_text_units(sizeof(MapInfo)) : 0;
    return {head.msgLen, kMapReplyBase + head.msgLen + 2 * units};
}

ReplySize ReplyDraft::volume_size() const noexcept
{
    const auto head = load<VolumeInfo>(record());
    if (head.nDisks != 0) {
        const std::int64_t disks_bytes = std::int64_t{sizeof(FSDisk)} * head.nDisks;
        constexpr std::int64_t kOneDisk = SP_GET_VOLUME_FIXED_BYTES;
        return {std::int64_t{sizeof head} + disks_bytes,
                kOneDisk + disks_bytes - std::int64_t{sizeof(FSDisk)}};
    }
    const std::int64_t units = error_text_units(sizeof head);
    return {2 * units, kVolumeTextBase + 2 * units};
}

void ReplyDraft::note_written(const ReplySize& size) const noexcept
{
    const std::int64_t most = static_cast<std::int64_t>(size_bytes_);
    const std::int64_t record_end = static_cast<std::int64_t>(record_offset_) + size.record_bytes;
    const std::int64_t end = std::max(record_end, size.reply_bytes);
    // A plug-in that reports nonsense may have written anything.
    const bool is_sane = size.record_bytes >= 0 && end <= most;
    written_bytes_ = std::max(written_bytes_, static_cast<std::size_t>(is_sane ? end : most));
}

bool ReplyDraft::holds(const ReplySize& size) const noexcept
{
    if (size.record_bytes >= 0 && size.record_bytes <= std::int64_t{room_bytes_} &&
        size.reply_bytes <= static_cast<std::int64_t>(size_bytes_)) {
        return true;
    }
    sanos_log("FTX2027E A plug-in reported %lld bytes where it had room for %u\n",
              static_cast<long long>(size.record_bytes), room_bytes_);
    return false;
}

Reply ReplyDraft::copy(const ReplySize& size) const noexcept
{
    const auto length = static_cast<std::size_t>(size.reply_bytes);
    Reply reply(OSL_Malloc(length, allocation_tag("lanh")));
    if (reply == nullptr) {
        trace_shortage(length);
        return reply;
    }
    std::memcpy(reply.get(), bytes_, length);
    PUT_FIELD(reply.get(), LanHeader, length, static_cast<std::uint32_t>(length));
    return reply;
}

}  // namespace corvane

extern "C" {

std::int32_t maxDgramSize() noexcept
{
    static const std::int32_t bytes = [] {
        const char* const text = std::getenv("MAXDGRAM");
        return text == nullptr ? corvane::kDefaultReplyBytes : std::atoi(text);
    }();
    return bytes;
}

void* SP_InitReply(const void* request, std::int32_t size_bytes, const FsLibrary* library) noexcept
{
    const auto size = static_cast<std::size_t>(size_bytes);
    void* const reply = corvane::zeroed(size);
    if (reply == nullptr) {
        corvane::trace_shortage(size);
        return nullptr;
    }
    corvane::write_header(reply, request, size, library);
    return reply;
}

}  // extern "C"

// Opens, maps, resizes and closes a file by the controller's five requests.
#include "client/open_file.hpp"

#include <algorithm>
#include <cstddef>

#include "client/failure.hpp"
#include "fsmdc/fs_result.h"
#include "fsmdc/messages.h"

namespace corvane {
namespace {

// A map that is longer is no file's: it would only fill our memory.
constexpr std::size_t kMostExtents = 4U << 20;

Volume ask_volume_by(const Exchange& exchange, const Message& request, const std::string& what)
{
    Reply reply = exchange.ask(request);
    if (reply.code() != 0) fail(reply.code(), "asking for the volume of " + what + " failed");
    reply.translate_body();
    return read_volume(reply);
}

Cookie cookie_at(const Reply& reply, std::size_t offset)
{
    const auto bytes = reply.from(offset);
    if (bytes.size() < sizeof(Cookie)) {
        throw Failure(kBadReply, "the controller's reply has no volume cookie; check its log");
    }
    return load<Cookie>(bytes.data());
}

bool has_map_result(std::uint32_t code)
{
    return code == FS_E_SUCCESS || code == FS_E_PARTIAL;
}

}  // namespace

Volume ask_volume(const Exchange& exchange, const std::string& share)
{
    return ask_volume_by(exchange, volume_request(share), share);
}

OpenFile::OpenFile(const Exchange& exchange, const std::string& share, const std::string& path,
                   Intention intention)
    : exchange_(exchange)
{
    InitialMapArguments arguments;
    arguments.lease_ms = kWantedLeaseMs;
    arguments.intention = intention == Intention::kRead ? SP_INTENTION_READ : SP_INTENTION_READ + 1;
    const Message request = initial_map_request(share, path, arguments);
    const auto asked_at = Clock::now();
    Reply reply = exchange.ask(request);
    const std::uint32_t code = reply.code();
    if (!has_map_result(code)) fail(code, "opening " + path + " of " + share + " failed");
    // From here on the controller holds a lease for us, whatever else the reply says.
    lease_ = std::make_unique<Lease>(
        exchange, reply.word(offsetof(GetInitialMapReply, key)),
        static_cast<std::int32_t>(reply.word(offsetof(GetInitialMapReply, lease))), asked_at);
    reply.translate_body();
    const Cookie cookie = cookie_at(reply, offsetof(GetInitialMapReply, volumeCookie));
    volume_ = ask_volume_by(exchange, volume_request(cookie), share);
    check_usable(volume_);
    lease_->set_probe_bytes(volume_.block_bytes);
    first_map_ =
        read_map(reply, SP_GET_INITIAL_MAP_RECORD, volume_, AskedRange{}, code == FS_E_PARTIAL);
}

// Asks for one map; nothing when the controller's answer is partial and could not even hold a
// record.
std::optional<ExtentMap> OpenFile::try_map(const AskedRange& asked, std::int64_t allocation)
{
    ExtendedMapArguments arguments;
    arguments.key = lease_->key();
    arguments.start = asked.start;
    arguments.length = asked.bytes;
    arguments.allocation = allocation;
    arguments.lease_ms = kWantedLeaseMs;
    const auto asked_at = Clock::now();
    Reply reply = exchange_.ask(extended_map_request(arguments));
    const std::uint32_t code = reply.code();
    if (!has_map_result(code)) fail(code, "mapping the file failed");
    reply.translate_body();
    if (code == FS_E_SUCCESS) {
        lease_->adopt(static_cast<std::int32_t>(reply.word(offsetof(GetExtendedMapReply, lease))),
                      asked_at);
    } else if (!has_map(reply, SP_GET_EXTENDED_MAP_RECORD)) {
        return std::nullopt;
    }
    return read_map(reply, SP_GET_EXTENDED_MAP_RECORD, volume_, asked, code == FS_E_PARTIAL);
}

// To the end of the file; when that does not fit into any reply, ever shorter ranges.
ExtentMap OpenFile::ask_map(const AskedRange& asked, std::int64_t allocation)
{
    if (auto map = try_map(asked, allocation)) return *map;
    const std::int64_t block_bytes = volume_.block_bytes;
    for (std::int64_t bytes = kLongestRangeBytes; bytes >= block_bytes; bytes /= 2) {
        const std::int64_t whole_blocks = bytes - bytes % block_bytes;
        auto map = try_map({asked.start, whole_blocks}, kUnchanged);
        if (map) return *map;
    }
    throw Failure(kBadReply,
                  "the controller sends no map however little is asked for; look into "
                  "its log");
}

ExtentMap OpenFile::map_from(std::int64_t start)
{
    ExtentMap map = start == 0 ? first_map_ : ask_map({start, kToTheEnd}, kUnchanged);
    if (map.file_size != first_map_.file_size) {
        throw Failure(kBadReply, "the file's size changed under the lease; run the command again");
    }
    if (map.is_complete) return map;
    map.end -= map.end % volume_.block_bytes;
    if (map.end <= start) {
        throw Failure(kBadReply, "the controller's map does not advance; look into its log");
    }
    return map;
}

std::vector<Extent> OpenFile::whole_map(std::int64_t end)
{
    std::vector<Extent> whole;
    for (std::int64_t at = 0; at < end;) {
        exchange_.throw_if_stopped();
        check_lease();
        const ExtentMap map = map_from(at);
        const std::int64_t piece_end = map.is_complete ? end : std::min(map.end, end);
        for (const Extent& extent : without_gaps(map.extents, at, piece_end)) {
            append_extent(whole, extent);
        }
        if (whole.size() > kMostExtents) {
            throw Failure(kBadReply,
                          "the file has more extents than can be handled; copy it to "
                          "defragment it");
        }
        at = piece_end;
    }
    return whole;
}

// Only the beginning is mapped again: a map of the whole file might count as one more client's. The
// rest follows piece by piece, as ever.
void OpenFile::allocate(std::int64_t bytes, bool lacks_blocks)
{
    const std::int64_t size_before = first_map_.file_size;
    const std::int64_t allocation_before = first_map_.allocation;
    const std::int64_t block_bytes = volume_.block_bytes;
    const std::int64_t last_block_bytes = (block_bytes - bytes % block_bytes) % block_bytes;
    const std::int64_t range = kLongestRangeBytes - kLongestRangeBytes % block_bytes;
    has_allocated_ = true;  // until the answer says otherwise: it may get lost
    first_map_ = ask_map({0, std::max(range, block_bytes)}, bytes);
    has_allocated_ = lacks_blocks || first_map_.allocation != allocation_before ||
                     first_map_.file_size != size_before;
    if (first_map_.file_size < size_before ||
        first_map_.file_size - last_block_bytes > std::max(size_before, bytes)) {
        throw Failure(kBadReply,
                      "the file's size changed by more than its allocation; look into the "
                      "controller's log");
    }
}

void OpenFile::set_size(std::int64_t bytes)
{
    const auto asked_at = Clock::now();
    Reply reply = exchange_.ask(set_size_request(lease_->key(), bytes, kWantedLeaseMs));
    const std::uint32_t code = reply.code();
    if (code != FS_E_SUCCESS) fail(code, "changing the file's size failed");
    reply.translate_body();
    lease_->adopt(static_cast<std::int32_t>(reply.word(offsetof(SetSizeReply, lease))), asked_at);
}

void append_extent(std::vector<Extent>& extents, const Extent& extent)
{
    if (!extents.empty()) {
        Extent& last = extents.back();
        const bool goes_on = last.kind == extent.kind && last.file_end() == extent.file_offset;
        const bool same_place =
            extent.kind == Kind::kHole || (last.disk_index == extent.disk_index &&
                                           last.slice_offset + last.bytes == extent.slice_offset);
        if (goes_on && same_place) {
            last.bytes += extent.bytes;
            return;
        }
    }
    extents.push_back(extent);
}

}  // namespace corvane

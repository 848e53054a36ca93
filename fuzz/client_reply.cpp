// Replies as a client takes them in. An input is one byte, which picks the function that was asked,
// then the reply. Whatever a map says, the extents that come out lie inside the volume's slices, in
// order.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "client/extent_map.hpp"
#include "client/failure.hpp"
#include "client/reply.hpp"
#include "client/volume.hpp"
#include "fsmdc/messages.h"

namespace {

using corvane::Kind;

corvane::Volume two_disks()
{
    corvane::Volume volume;
    volume.block_bytes = 4096;
    volume.disks.resize(2);
    volume.disks[0].block_count = 100;
    volume.disks[1].block_count = 50;
    return volume;
}

void expect(bool holds)
{
    if (!holds) std::abort();
}

void check_map(const corvane::ExtentMap& map, const corvane::Volume& volume)
{
    std::int64_t end = 0;
    for (const auto& extent : map.extents) {
        expect(extent.bytes > 0 && extent.file_offset >= end);
        end = extent.file_end();
        if (extent.kind == Kind::kHole) continue;
        expect(extent.disk_index < volume.disks.size() && extent.slice_offset >= 0);
        expect(extent.slice_offset <= volume.slice_bytes(extent.disk_index) - extent.bytes);
    }
}

void read_reply(std::int32_t function, std::vector<std::byte> bytes)
{
    LanHeader request{};
    request.functionCode = function;
    const std::size_t count = bytes.size();
    corvane::Reply reply(std::move(bytes), count, request);
    reply.translate_body();
    if (function == SP_GET_VOLUME) check_usable(read_volume(reply));
    if (function != SP_GET_INITIAL_MAP && function != SP_GET_EXTENDED_MAP) return;
    const std::size_t record =
        function == SP_GET_INITIAL_MAP ? SP_GET_INITIAL_MAP_RECORD : SP_GET_EXTENDED_MAP_RECORD;
    const corvane::Volume volume = two_disks();
    check_map(read_map(reply, record, volume, {}, reply.code() == 1), volume);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) return 0;
    std::vector<std::byte> bytes(size - 1);
    if (size > 1) std::memcpy(bytes.data(), data + 1, size - 1);
    try {
        read_reply(data[0] % 5 + 1, std::move(bytes));
    } catch (const corvane::Failure&) {
        return 0;  // refused, as it may be
    }
    return 0;
}

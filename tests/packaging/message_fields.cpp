// Where the fields of every message lie.
#include "tests/packaging/message_fields.hpp"

#include <vector>

namespace corvane::harness {
namespace {

using codec::Bytes;
using codec::Order;

const std::vector<Place> kRequestPlaces[] = {
    {},
    {{"corvane.volume_cookie", 84, 32, Show::kBytes}},
    {{"corvane.filesize", 48, 8},
     {"corvane.allocation", 56, 8},
     {"corvane.lease", 64, 4},
     {"corvane.intention", 68, 4},
     {"corvane.flag", 72, 4, Show::kHex32},
     {"corvane.flag.unlocked", 72, 4, Show::kFlag, 8}},
    {{"corvane.filesize", 48, 8},
     {"corvane.allocation", 56, 8},
     {"corvane.start", 64, 8},
     {"corvane.map_length", 72, 8},
     {"corvane.lease", 80, 4},
     {"corvane.key", 84, 4, Show::kHex32},
     {"corvane.flag", 88, 4, Show::kHex32},
     {"corvane.flag.unlocked", 88, 4, Show::kFlag, 8}},
    {{"corvane.filesize", 48, 8}, {"corvane.lease", 56, 4}, {"corvane.key", 60, 4, Show::kHex32}},
    {{"corvane.filesize", 48, 8}, {"corvane.key", 56, 4, Show::kHex32}},
};

const std::vector<Place> kReplyPlaces[] = {
    {},
    {{"corvane.result", 48, 4}},
    {{"corvane.result", 48, 4},
     {"corvane.lease", 52, 4},
     {"corvane.key", 56, 4, Show::kHex32},
     {"corvane.file_cookie", 96, 32, Show::kBytes},
     {"corvane.volume_cookie", 128, 32, Show::kBytes}},
    {{"corvane.result", 48, 4}, {"corvane.lease", 52, 4}},
    {{"corvane.result", 48, 4}, {"corvane.lease", 52, 4}},
    {{"corvane.result", 48, 4}},
};

const std::vector<Place> kVolumePlaces = {
    {"corvane.msg_len", 0, 4},
    {"corvane.vendor_status", 4, 4},
    {"corvane.volume.fs_type", 8, 4},
    {"corvane.volume.glom_type", 12, 4},
    {"corvane.volume.glom_info", 16, 4},
    {"corvane.volume.disks", 20, 4},
    {"corvane.volume.block_size", 24, 4},
    {"corvane.volume.descriptor", 64, 40, Show::kBytes},
};

const std::vector<Place> kDiskPlaces = {
    {"corvane.disk.id_offset", 16, 8}, {"corvane.disk.block", 24, 8},
    {"corvane.disk.blocks", 32, 8},    {"corvane.disk.id_length", 40, 4},
    {"corvane.disk.info", 44, 4},
};

const std::vector<Place> kMapPlaces = {
    {"corvane.map.file_size", 0, 8},    {"corvane.map.allocation", 8, 8},
    {"corvane.msg_len", 16, 4},         {"corvane.vendor_status", 20, 4},
    {"corvane.map.extents", 24, 4},     {"corvane.map.extent_type", 28, 4},
    {"corvane.map.file_offset", 32, 8}, {"corvane.map.file_bytes", 40, 8},
};

const std::vector<Place> kCompactPlaces = {{"corvane.extent.block", 0, 8},
                                           {"corvane.extent.blocks", 8, 8}};
const std::vector<Place> kVerbosePlaces = {{"corvane.extent.logical", 0, 8},
                                           {"corvane.extent.physical", 8, 8},
                                           {"corvane.extent.bytes", 16, 8},
                                           {"corvane.extent.ordinal", 24, 4},
                                           {"corvane.extent.validity", 28, 4}};
const std::vector<Place> kExtentRest = {{"corvane.extent.block", 8, 8},
                                        {"corvane.extent.blocks", 16, 8}};

void add_volume(Fields& fields, const Bytes& reply, std::size_t at)
{
    add_fields(fields, reply, at, kVolumePlaces);
    for (std::uint32_t i = 0; i < reply.u32(at + 20); ++i) {
        const std::size_t disk = at + 104 + std::size_t{80} * i;
        add_fields(fields, reply, disk, kDiskPlaces);
        add_fields(fields, reply, disk,
                   {{"corvane.disk.id", 0, reply.u32(disk + 40), Show::kBytes}});
    }
}

// An extent of the simple layout: the ordinal is the low half of its first 8 bytes.
void add_simple(Fields& fields, const Bytes& reply, std::size_t at)
{
    std::string& ordinals = fields["corvane.extent.ordinal"];
    if (!ordinals.empty()) ordinals += ',';
    ordinals += std::to_string(static_cast<std::uint32_t>(reply.number(at, 8)));
    add_fields(fields, reply, at, kExtentRest);
}

void add_map(Fields& fields, const Bytes& reply, std::size_t at)
{
    add_fields(fields, reply, at, kMapPlaces);
    constexpr std::size_t kExtentBytes[] = {16, 32, 24, 32};
    const std::uint32_t type = reply.u32(at + 28);
    if (type > 3) return;
    for (std::uint32_t i = 0; i < reply.u32(at + 24); ++i) {
        const std::size_t extent = at + 64 + kExtentBytes[type] * i;
        if (type == 2) {
            add_simple(fields, reply, extent);
        } else {
            add_fields(fields, reply, extent, type == 0 ? kCompactPlaces : kVerbosePlaces);
        }
    }
}

}  // namespace

std::string order_field(Order order)
{
    return order == Order::kLittle ? "1" : "2";
}

Fields request_fields(const Bytes& request, Order order)
{
    Fields fields = header_fields(request);
    fields["corvane.order"] = order_field(order);
    fields["_ws.expert.message"] = "";
    add_fields(fields, request, 0, kRequestPlaces[request.i32(24)]);
    return fields;
}

Fields reply_fields(const Bytes& reply, Order order)
{
    Fields fields = header_fields(reply);
    fields["corvane.order"] = order_field(order);
    const std::int32_t function = -reply.i32(24);
    add_fields(fields, reply, 0, kReplyPlaces[function]);
    if (function == 1) add_volume(fields, reply, 88);
    if (function == 2) add_map(fields, reply, 160);
    if (function == 3) add_map(fields, reply, 88);
    return fields;
}

}  // namespace corvane::harness

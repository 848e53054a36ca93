// Byte order of the metadata bodies and records: each is a table of fields, turned round in place.
#include <cstddef>
#include <cstdint>
#include <iterator>

#include "fsmdc/message_span.hpp"
#include "fsmdc/messages.h"
#include "fsmdc/records.h"
#include "osl/byte_order.h"
#include "osl/bytes.hpp"

namespace corvane {
namespace {

struct Field {
    std::size_t offset;
    std::uint32_t width;
};
#define FIELD(type, name)                        \
    Field                                        \
    {                                            \
        offsetof(type, name), sizeof(type::name) \
    }

constexpr Field kGetInitialMapRequest[] = {
    FIELD(GetInitialMapRequest, allocsize), FIELD(GetInitialMapRequest, filesize),
    FIELD(GetInitialMapRequest, intention), FIELD(GetInitialMapRequest, lease),
    FIELD(GetInitialMapRequest, flag)};
constexpr Field kGetExtendedMapRequest[] = {
    FIELD(GetExtendedMapRequest, allocation), FIELD(GetExtendedMapRequest, filesize),
    FIELD(GetExtendedMapRequest, lease),      FIELD(GetExtendedMapRequest, flag),
    FIELD(GetExtendedMapRequest, key),        FIELD(GetExtendedMapRequest, length),
    FIELD(GetExtendedMapRequest, start)};
constexpr Field kSetSizeRequest[] = {FIELD(SetSizeRequest, filesize), FIELD(SetSizeRequest, key),
                                     FIELD(SetSizeRequest, lease)};
constexpr Field kCloseRequest[] = {FIELD(CloseRequest, filesize), FIELD(CloseRequest, key)};

constexpr Field kGetVolumeReply[] = {FIELD(GetVolumeReply, result)};
constexpr Field kGetInitialMapReply[] = {FIELD(GetInitialMapReply, key),
                                         FIELD(GetInitialMapReply, lease),
                                         FIELD(GetInitialMapReply, result)};
constexpr Field kGetExtendedMapReply[] = {FIELD(GetExtendedMapReply, result),
                                          FIELD(GetExtendedMapReply, lease)};
constexpr Field kSetSizeReply[] = {FIELD(SetSizeReply, result), FIELD(SetSizeReply, lease)};
constexpr Field kCloseReply[] = {FIELD(CloseReply, result)};

constexpr Field kVolumeInfo[] = {FIELD(VolumeInfo, BlockSize),   FIELD(VolumeInfo, FStype),
                                 FIELD(VolumeInfo, GlomInfo),    FIELD(VolumeInfo, GlomType),
                                 FIELD(VolumeInfo, msgLen),      FIELD(VolumeInfo, nDisks),
                                 FIELD(VolumeInfo, vendorStatus)};
constexpr Field kDisk[] = {FIELD(FSDisk, BlockOffset), FIELD(FSDisk, unused),
                           FIELD(FSDisk, IDlength), FIELD(FSDisk, IDoffset),
                           FIELD(FSDisk, nBlocks)};
constexpr Field kMapInfo[] = {FIELD(MapInfo, extentType), FIELD(MapInfo, fileSize),
                              FIELD(MapInfo, allocation), FIELD(MapInfo, msgLen),
                              FIELD(MapInfo, nExtents),   FIELD(MapInfo, vendorStatus),
                              FIELD(MapInfo, fileOffset), FIELD(MapInfo, fileBytes)};
constexpr Field kCompactExtent[] = {FIELD(CompactExtent, BlockOffset),
                                    FIELD(CompactExtent, nBlocks)};
constexpr Field kSimpleExtent[] = {FIELD(SimpleExtent, NBlocks), FIELD(SimpleExtent, VolOrd),
                                   FIELD(SimpleExtent, VolSliceBlock)};
constexpr Field kVerboseExtent[] = {
    FIELD(VerboseExtent, LogicalByteAddr), FIELD(VerboseExtent, nBytes),
    FIELD(VerboseExtent, PhysicalByteAddr), FIELD(VerboseExtent, validity),
    FIELD(VerboseExtent, VolumeOrdinal)};
#undef FIELD

// Turns round the fields that lie within `room` bytes.
template <std::size_t N>
void turn(void* base, const Field (&fields)[N], std::size_t room = kUnbounded) noexcept
{
    for (const Field& field : fields) {
        if (field.offset + field.width <= room) doendian(bytes_at(base, field.offset), field.width);
    }
}

// The same for `count` equal records in a row; stops before the first that `room` cuts.
template <std::size_t N>
void turn_each(void* first, std::size_t stride, std::uint64_t count, const Field (&fields)[N],
               std::size_t room) noexcept
{
    std::byte* at = bytes_at(first, 0);
    for (; count > 0 && room >= stride; --count, room -= stride, at += stride) turn(at, fields);
}

[[nodiscard]] bool is_foreign(const void* message) noexcept
{
    return load<std::uint32_t>(message) != 1;
}

// A length in the wrong order is negative or huge; one up to 512000 bytes gets through this way,
// and -1 reads the same both ways. It is done whatever the marker says.
void mend_extended_map_length(void* request) noexcept
{
    constexpr std::int64_t kLongestBelieved = 512000;
    std::byte* const at = bytes_at(request, offsetof(GetExtendedMapRequest, length));
    const auto length = load<std::int64_t>(at);
    if (length < 0 || length > kLongestBelieved) doendian(at, sizeof length);
}

// `room`: bytes from the record's start to the end of what may be touched.
void turn_volume_info(void* record, std::size_t room) noexcept
{
    turn(record, kVolumeInfo, room);
    if (room < sizeof(VolumeInfo)) return;
    FSMDCSUP_TransFSSystem(bytes_at(record, offsetof(VolumeInfo, fsSystem)));
    const auto head = load<VolumeInfo>(record);
    if (head.vendorStatus != 0) return;  // an error text follows: texts stay as they lie
    turn_each(bytes_at(record, sizeof(VolumeInfo)), sizeof(FSDisk), head.nDisks, kDisk,
              room - sizeof(VolumeInfo));
}

void turn_map_info(void* record, std::size_t room) noexcept
{
    turn(record, kMapInfo, room);
    if (room < sizeof(MapInfo)) return;
    const auto head = load<MapInfo>(record);
    if (head.vendorStatus != 0 || head.nExtents <= 0) return;
    const auto count = static_cast<std::uint64_t>(head.nExtents);
    std::byte* const first = bytes_at(record, sizeof(MapInfo));
    const std::size_t left = room - sizeof(MapInfo);
    switch (head.extentType) {
        case FS_EXTENT_COMPACT:
            return turn_each(first, sizeof(CompactExtent), count, kCompactExtent, left);
        case FS_EXTENT_SIMPLE:
            return turn_each(first, sizeof(SimpleExtent), count, kSimpleExtent, left);
        case FS_EXTENT_VERBOSE:
        case FS_EXTENT_VERBOSE2:
            return turn_each(first, sizeof(VerboseExtent), count, kVerboseExtent, left);
        default:
            return;  // an unknown layout stays as it lies
    }
}

}  // namespace
}  // namespace corvane

using namespace corvane;  // the exported names below are one line each

extern "C" {

void SPSUP_TransLanGetVolume(void* request) noexcept
{
    if (!is_foreign(request)) return;
    endianizeFsUniArray(bytes_at(request, offsetof(GetVolumeRequest, path)),
                        sizeof(GetVolumeRequest::path));
}

void SPSUP_TransLanGetInitialMap(void* request) noexcept
{
    if (!is_foreign(request)) return;
    turn(request, kGetInitialMapRequest);
    endianizeFsUniArray(bytes_at(request, offsetof(GetInitialMapRequest, path)),
                        sizeof(GetInitialMapRequest::path));
}

void SPSUP_TransLanGetExtendedMap(void* request) noexcept
{
    if (is_foreign(request)) turn(request, kGetExtendedMapRequest);
    mend_extended_map_length(request);
}

void SPSUP_TransLanSetSize(void* request) noexcept
{
    if (is_foreign(request)) turn(request, kSetSizeRequest);
}

void SPSUP_TransLanClose(void* request) noexcept
{
    if (is_foreign(request)) turn(request, kCloseRequest);
}

void SPSUP_TransLanGetVolumeResp(void* reply) noexcept
{
    if (!is_foreign(reply)) return;
    const std::size_t size = message_bytes(reply);
    turn(reply, kGetVolumeReply, size);
    turn_volume_info(bytes_at(reply, SP_GET_VOLUME_RECORD), bytes_from(size, SP_GET_VOLUME_RECORD));
}

void SPSUP_TransLanGetInitialMapResp(void* reply) noexcept
{
    if (!is_foreign(reply)) return;
    const std::size_t size = message_bytes(reply);
    turn(reply, kGetInitialMapReply, size);
    turn_map_info(bytes_at(reply, SP_GET_INITIAL_MAP_RECORD),
                  bytes_from(size, SP_GET_INITIAL_MAP_RECORD));
}

void SPSUP_TransLanGetExtendedMapResp(void* reply) noexcept
{
    if (!is_foreign(reply)) return;
    const std::size_t size = message_bytes(reply);
    turn(reply, kGetExtendedMapReply, size);
    turn_map_info(bytes_at(reply, SP_GET_EXTENDED_MAP_RECORD),
                  bytes_from(size, SP_GET_EXTENDED_MAP_RECORD));
}

void SPSUP_TransLanSetSizeResp(void* reply) noexcept
{
    if (is_foreign(reply)) turn(reply, kSetSizeReply, message_bytes(reply));
}

void SPSUP_TransLanCloseResp(void* reply) noexcept
{
    if (is_foreign(reply)) turn(reply, kCloseReply, message_bytes(reply));
}

void FSMDCSUP_TransVolInfo(void* record) noexcept
{
    turn_volume_info(record, kUnbounded);
}
void FSMDCSUP_TransFSSystem(void*) noexcept {}  // single bytes: nothing to turn round
void FSMDCSUP_TransFSDisk(void* disk) noexcept
{
    turn(disk, kDisk);
}
void FSMDCSUP_TransMapInfo(void* record) noexcept
{
    turn_map_info(record, kUnbounded);
}
void FSMDCSUP_TransCompactExtent(void* extent) noexcept
{
    turn(extent, kCompactExtent);
}
void FSMDCSUP_TransSimpleExtent(void* extent) noexcept
{
    turn(extent, kSimpleExtent);
}
void FSMDCSUP_TransVerboseExtent(void* extent) noexcept
{
    turn(extent, kVerboseExtent);
}

}  // extern "C"

// Trace dumps of the volume-info and map-info records, one field a line.
#include "fsmdc/record_dump.hpp"

#include <algorithm>
#include <cstdio>

#include "fsmdc/message_span.hpp"
#include "fsmdc/messages.h"
#include "fsmdc/records.h"
#include "mdcmain/log.hpp"

namespace corvane {
namespace {

// Narrows an error text of at most `max_chars` characters that ends within `room` bytes.
template <std::size_t MaxChars>
struct NarrowText {
    char chars[MaxChars + 1] = {};

    NarrowText(const void* text, std::size_t room) noexcept
    {
        const std::size_t units = text_units(text, std::min(MaxChars, room / sizeof(FSUNI)));
        for (std::size_t i = 0; i < units; ++i) {
            chars[i] = static_cast<char>(load<FSUNI>(bytes_at(text, i * sizeof(FSUNI))));
        }
    }
};

void dump_long(const char* name, std::int64_t value) noexcept
{
    corvane_trace("%-20s %lld\n", name, static_cast<long long>(value));
}

void dump_int(const char* name, std::int32_t value) noexcept
{
    corvane_trace("%-20s %d\n", name, value);
}

// The ordinal is the first 4 of the field's 8 bytes, in little-endian order.
[[nodiscard]] std::int32_t simple_ordinal(const SimpleExtent& extent) noexcept
{
    unsigned char bytes[4];
    std::memcpy(bytes, &extent.VolOrd, sizeof bytes);
    const std::uint32_t ordinal =
        static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
        static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
    return static_cast<std::int32_t>(ordinal);
}

// Dumps `count` records in a row, as far as whole ones lie within `room` bytes.
void dump_each(const void* first, std::size_t stride, std::uint64_t count, std::size_t room,
               void (*dump)(const void*) noexcept) noexcept
{
    const std::uint64_t whole = std::min<std::uint64_t>(count, room / stride);
    for (std::uint64_t i = 0; i < whole; ++i) dump(bytes_at(first, i * stride));
}

void dump_extents(const void* first, const MapInfo& head, std::size_t room) noexcept
{
    if (head.nExtents <= 0) return;
    const auto count = static_cast<std::uint64_t>(head.nExtents);
    switch (head.extentType) {
        case FS_EXTENT_COMPACT:
            return dump_each(first, sizeof(CompactExtent), count, room, FSMDCSUP_DumpCompactExtent);
        case FS_EXTENT_SIMPLE:
            return dump_each(first, sizeof(SimpleExtent), count, room, FSMDCSUP_DumpSimpleExtent);
        case FS_EXTENT_VERBOSE:
        case FS_EXTENT_VERBOSE2:
            return dump_each(first, sizeof(VerboseExtent), count, room, FSMDCSUP_DumpVerboseExtent);
        default:
            return;  // an unknown layout cannot be told apart
    }
}

}  // namespace

void dump_field(const char* name, std::int32_t value) noexcept
{
    corvane_trace("%-20s%d\n", name, value);
}

void dump_field(const char* name, std::int64_t value) noexcept
{
    corvane_trace("%-20s%lld\n", name, static_cast<long long>(value));
}

void dump_key(const char* name, std::uint32_t key) noexcept
{
    corvane_trace("%-20s%08X\n", name, key);
}

void dump_text(const char* name, const char* text) noexcept
{
    corvane_trace("%-20s%s\n", name, text);
}

void dump_volume_info(const void* record, std::size_t room) noexcept
{
    if (!trace_wanted()) return;
    const auto head = load_within<VolumeInfo>(record, room);
    const void* const rest = bytes_at(record, sizeof head);
    const std::size_t rest_bytes = bytes_from(room, sizeof head);
    dump_field("msgLen", head.msgLen);
    dump_field("FStype", head.FStype);
    dump_field("vendorStatus", head.vendorStatus);
    dump_field("GlomType", head.GlomType);
    dump_field("GlomInfo", head.GlomInfo);
    dump_field("BlockSize", head.BlockSize);
    if (head.vendorStatus != 0) {
        corvane_trace("%-10s%s\n", "vError", NarrowText<128>(rest, rest_bytes).chars);
        return;
    }
    FSMDCSUP_DumpFSSystem(head.fsSystem);
    dump_field("nDisks", static_cast<std::int32_t>(head.nDisks));
    dump_each(rest, sizeof(FSDisk), head.nDisks, rest_bytes, FSMDCSUP_DumpFSDisk);
}

void dump_map_info(const void* record, std::size_t room) noexcept
{
    if (!trace_wanted()) return;
    const auto head = load_within<MapInfo>(record, room);
    const void* const rest = bytes_at(record, sizeof head);
    const std::size_t rest_bytes = bytes_from(room, sizeof head);
    dump_field("msgLen", head.msgLen);
    dump_field("vendorStatus", head.vendorStatus);
    if (head.vendorStatus != 0) {
        corvane_trace("%s\n", NarrowText<1024>(rest, rest_bytes).chars);
    }
    dump_field("fileSize", head.fileSize);
    dump_field("allocation", head.allocation);
    dump_field("nExtents", head.nExtents);
    dump_field("extentType", head.extentType);
    dump_field("fileOffset", head.fileOffset);
    dump_field("fileBytes", head.fileBytes);
    dump_extents(rest, head, rest_bytes);
}

}  // namespace corvane

using namespace corvane;  // the exported names below are thin

extern "C" {

void FSMDCSUP_DiskIdToString(const void* bytes, std::int32_t count, char* out) noexcept
{
    *out = '\0';
    for (std::int32_t i = 0; i < count; ++i) {
        // From 0x80 up a byte prints with eight digits.
        // NOLINTNEXTLINE(bugprone-signed-char-misuse): the byte is meant to count as signed
        const int value = load<signed char>(bytes_at(bytes, static_cast<std::size_t>(i)));
        out += std::snprintf(out, 10, "%02X ", static_cast<unsigned>(value));
    }
}

void FSMDCSUP_DumpVolInfo(const void* record) noexcept
{
    dump_volume_info(record, kUnbounded);
}
void FSMDCSUP_DumpFSSystem(const void*) noexcept {}  // the plug-in's own bytes mean nothing here
void FSMDCSUP_DumpFSMapInfo(const void* record) noexcept
{
    dump_map_info(record, kUnbounded);
}

void FSMDCSUP_DumpFSDisk(const void* disk) noexcept
{
    if (!trace_wanted()) return;
    const auto values = load<FSDisk>(disk);
    const std::int32_t id_bytes = std::clamp(values.IDlength, 0, int{sizeof values.DiskID});
    char id[9 * sizeof values.DiskID + 1];
    FSMDCSUP_DiskIdToString(values.DiskID, id_bytes, id);
    corvane_trace("%-20s %s\n", "DiskID", id);
    dump_int("IDlength", values.IDlength);
    dump_long("IDoffset", values.IDoffset);
    dump_long("BlockOffset", values.BlockOffset);
    dump_long("nBlocks", values.nBlocks);
}

void FSMDCSUP_DumpCompactExtent(const void* extent) noexcept
{
    if (!trace_wanted()) return;
    const auto values = load<CompactExtent>(extent);
    dump_long("BlockOffset", values.BlockOffset);
    dump_long("nBlocks", values.nBlocks);
}

void FSMDCSUP_DumpSimpleExtent(const void* extent) noexcept
{
    if (!trace_wanted()) return;
    const auto values = load<SimpleExtent>(extent);
    dump_int("VolOrd", simple_ordinal(values));
    dump_long("VolSliceBlock", values.VolSliceBlock);
    dump_long("NBlocks", values.NBlocks);
}

void FSMDCSUP_DumpVerboseExtent(const void* extent) noexcept
{
    if (!trace_wanted()) return;
    const auto values = load<VerboseExtent>(extent);
    dump_int("VolumeOrdinal", values.VolumeOrdinal);
    dump_long("LogicalByteAddr", values.LogicalByteAddr);
    dump_long("PhysicalByteAddr", values.PhysicalByteAddr);
    dump_long("nBytes", values.nBytes);
    dump_int("validity", values.validity);
}

}  // extern "C"

// Trace dumps of the metadata messages: a title, the header, then one field a line.
#include <cstddef>
#include <cstdint>

#include "fsmdc/message_span.hpp"
#include "fsmdc/messages.h"
#include "fsmdc/record_dump.hpp"
#include "fsmdc/records.h"
#include "lan/header.h"
#include "mdcmain/log.hpp"
#include "osl/byte_order.h"
#include "osl/fsuni.h"

namespace corvane {
namespace {

// Writes the title and the header; false when nobody would see the dump.
[[nodiscard]] bool begin_dump(const char* title, const void* message) noexcept
{
    if (!trace_wanted()) return false;
    corvane_trace("%s", title);
    LANSUP_DumpLanHeader(message);
    return true;
}

// A field of a request: its fixed part lies within what every request can be read for.
template <class T>
[[nodiscard]] T field(const void* message, std::size_t offset) noexcept
{
    return load<T>(bytes_at(message, offset));
}
#define FIELD_OF(message, type, name) field<decltype(type::name)>(message, offsetof(type, name))

// A field of a reply, which may end before it: then it reads as zero.
template <class T>
[[nodiscard]] T reply_field(const void* message, std::size_t offset) noexcept
{
    return load_within<T>(bytes_at(message, offset), bytes_from(message_bytes(message), offset));
}
#define REPLY_FIELD(message, type, name) \
    reply_field<decltype(type::name)>(message, offsetof(type, name))

void dump_cookie(const char* name, const void* message, std::size_t offset) noexcept
{
    struct Cookie {
        std::uint8_t bytes[FS_COOKIE_BYTES];
    };
    const auto cookie = reply_field<Cookie>(message, offset);
    char text[3 * sizeof cookie + 1];
    dump_text(name, bytesToString(cookie.bytes, sizeof cookie, text));
}

void dump_reply_map(const void* message, std::size_t record_offset) noexcept
{
    dump_map_info(bytes_at(message, record_offset),
                  bytes_from(message_bytes(message), record_offset));
}

}  // namespace
}  // namespace corvane

using namespace corvane;  // the exported names below are what this file is for

extern "C" {

void SPSUP_DumpGetVolumeMsg(const void* message) noexcept
{
    if (!begin_dump("--- GetVolume Message ---\n", message)) return;
    const auto* const path = bytes_at(message, offsetof(GetVolumeRequest, path));
    char text[SP_PATH_UNITS];
    const std::size_t units = text_units(path, sizeof text - 1);
    for (std::size_t i = 0; i < units; ++i) {
        text[i] = static_cast<char>(load<FSUNI>(path + i * sizeof(FSUNI)));
    }
    text[units] = '\0';
    dump_text("path", text);
}

void SPSUP_DumpGetInitialMapMsg(const void* message) noexcept
{
    if (!begin_dump("--- GetInitialMap Message ---\n", message)) return;
    dump_field("lease", FIELD_OF(message, GetInitialMapRequest, lease));
    dump_field("intention", FIELD_OF(message, GetInitialMapRequest, intention));
    dump_field("filesize", FIELD_OF(message, GetInitialMapRequest, filesize));
    dump_field("allocsize", FIELD_OF(message, GetInitialMapRequest, allocsize));
}

void SPSUP_DumpGetExtendedMapMsg(const void* message) noexcept
{
    if (!begin_dump("--- GetExtendedMap Message ---\n", message)) return;
    dump_field("lease", FIELD_OF(message, GetExtendedMapRequest, lease));
    dump_key("key", FIELD_OF(message, GetExtendedMapRequest, key));
    dump_field("filesize", FIELD_OF(message, GetExtendedMapRequest, filesize));
    dump_field("allocation", FIELD_OF(message, GetExtendedMapRequest, allocation));
    dump_field("start", FIELD_OF(message, GetExtendedMapRequest, start));
    dump_field("length", FIELD_OF(message, GetExtendedMapRequest, length));
    dump_field("flag", FIELD_OF(message, GetExtendedMapRequest, flag));
}

void SPSUP_DumpSetSizeMsg(const void* message) noexcept
{
    if (!begin_dump("--- SetSize Message ---\n", message)) return;
    dump_key("key", FIELD_OF(message, SetSizeRequest, key));
    dump_field("lease", FIELD_OF(message, SetSizeRequest, lease));
    dump_field("filesize", FIELD_OF(message, SetSizeRequest, filesize));
}

void SPSUP_DumpCloseMsg(const void* message) noexcept
{
    if (!begin_dump("--- Close Message ---\n", message)) return;
    dump_key("key", FIELD_OF(message, CloseRequest, key));
    dump_field("filesize", FIELD_OF(message, CloseRequest, filesize));
}

void SPSUP_DumpGetVolumeReply(const void* message) noexcept
{
    if (!begin_dump("--- GetVolume Reply Message ---\n", message)) return;
    dump_field("result", REPLY_FIELD(message, GetVolumeReply, result));
    dump_volume_info(bytes_at(message, SP_GET_VOLUME_RECORD),
                     bytes_from(message_bytes(message), SP_GET_VOLUME_RECORD));
}

void SPSUP_DumpGetInitialMapReply(const void* message) noexcept
{
    // The title is spelled this way in every log that was ever read.
    if (!begin_dump("--- GetInitalMap Reply Message ---\n", message)) return;
    dump_field("result", REPLY_FIELD(message, GetInitialMapReply, result));
    dump_field("lease", REPLY_FIELD(message, GetInitialMapReply, lease));
    dump_key("key", REPLY_FIELD(message, GetInitialMapReply, key));
    dump_cookie("fileCookie", message, offsetof(GetInitialMapReply, fileCookie));
    dump_cookie("volumeCookie", message, offsetof(GetInitialMapReply, volumeCookie));
    dump_reply_map(message, SP_GET_INITIAL_MAP_RECORD);
}

void SPSUP_DumpGetExtendedMapReply(const void* message) noexcept
{
    if (!begin_dump("--- GetExtendedMap Reply Message ---\n", message)) return;
    dump_field("result", REPLY_FIELD(message, GetExtendedMapReply, result));
    dump_field("lease", REPLY_FIELD(message, GetExtendedMapReply, lease));
    dump_reply_map(message, SP_GET_EXTENDED_MAP_RECORD);
}

void SPSUP_DumpSetSizeReply(const void* message) noexcept
{
    if (!begin_dump("--- SetSize Reply Message ---\n", message)) return;
    dump_field("result", REPLY_FIELD(message, SetSizeReply, result));
}

void SPSUP_DumpCloseReply(const void* message) noexcept
{
    if (!begin_dump("--- Close Reply Message ---\n", message)) return;
    dump_field("result", REPLY_FIELD(message, CloseReply, result));
}

void SPSUP_DumpMessage(const void* message) noexcept
{
    if (message == nullptr || !trace_wanted()) return;
    switch (load<LanHeader>(message).functionCode) {
        case SP_GET_VOLUME:
            return SPSUP_DumpGetVolumeMsg(message);
        case SP_GET_INITIAL_MAP:
            return SPSUP_DumpGetInitialMapMsg(message);
        case SP_GET_EXTENDED_MAP:
            return SPSUP_DumpGetExtendedMapMsg(message);
        case SP_SET_SIZE:
            return SPSUP_DumpSetSizeMsg(message);
        case SP_CLOSE:
            return SPSUP_DumpCloseMsg(message);
        case -SP_GET_VOLUME:
            return SPSUP_DumpGetVolumeReply(message);
        case -SP_GET_INITIAL_MAP:
            return SPSUP_DumpGetInitialMapReply(message);
        case -SP_GET_EXTENDED_MAP:
            return SPSUP_DumpGetExtendedMapReply(message);
        case -SP_SET_SIZE:
            return SPSUP_DumpSetSizeReply(message);
        case -SP_CLOSE:
            return SPSUP_DumpCloseReply(message);
        default:
            return;
    }
}

}  // extern "C"

// The shared segment's ground floor: its layout held in place, the process's pointer, the settings.
#include "mdcmain/segment.h"

#include <cstddef>
#include <cstring>

#include "mdcmain/log.h"
#include "mdcmain/segment.hpp"

#define CORVANE_FIELD_AT(field, offset) static_assert(offsetof(CorvaneSegment, field) == (offset))
CORVANE_FIELD_AT(segmentSize, 0x000000);
CORVANE_FIELD_AT(maxVolumes, 0x000004);
CORVANE_FIELD_AT(initialised, 0x000008);
CORVANE_FIELD_AT(reserved1, 0x00000C);
CORVANE_FIELD_AT(logLevel, 0x000014);
CORVANE_FIELD_AT(logMode, 0x000018);
CORVANE_FIELD_AT(logMaxSize, 0x00001C);
CORVANE_FIELD_AT(numLogs, 0x000020);
CORVANE_FIELD_AT(logCount, 0x000024);
CORVANE_FIELD_AT(logBaseName, 0x000028);
CORVANE_FIELD_AT(other1, 0x000128);
CORVANE_FIELD_AT(other2, 0x00012C);
CORVANE_FIELD_AT(other3, 0x000130);
CORVANE_FIELD_AT(other4, 0x000134);
CORVANE_FIELD_AT(other5, 0x000138);
CORVANE_FIELD_AT(otherText1, 0x00013C);
CORVANE_FIELD_AT(otherWords1, 0x00023C);
CORVANE_FIELD_AT(reserved2, 0x00025C);
CORVANE_FIELD_AT(otherTable, 0x000260);
CORVANE_FIELD_AT(reserved3, 0x1E4220);
CORVANE_FIELD_AT(other6, 0x1E4224);
CORVANE_FIELD_AT(reserved4, 0x1E4228);
CORVANE_FIELD_AT(other7, 0x1E422C);
CORVANE_FIELD_AT(reserved5, 0x1E4230);
CORVANE_FIELD_AT(other8, 0x1E4234);
CORVANE_FIELD_AT(other9, 0x1E4238);
CORVANE_FIELD_AT(other10, 0x1E423C);
CORVANE_FIELD_AT(other11, 0x1E4240);
CORVANE_FIELD_AT(other12, 0x1E4244);
CORVANE_FIELD_AT(other13, 0x1E4248);
CORVANE_FIELD_AT(other14, 0x1E424C);
CORVANE_FIELD_AT(other15, 0x1E4250);
CORVANE_FIELD_AT(other16, 0x1E4254);
CORVANE_FIELD_AT(other17, 0x1E4258);
CORVANE_FIELD_AT(other18, 0x1E425C);
CORVANE_FIELD_AT(other19, 0x1E4260);
CORVANE_FIELD_AT(otherText2, 0x1E4264);
CORVANE_FIELD_AT(otherArea, 0x1E4364);
CORVANE_FIELD_AT(mdcPort, 0x204C64);
CORVANE_FIELD_AT(reserved6, 0x204C68);
CORVANE_FIELD_AT(otherWords2, 0x204C78);
CORVANE_FIELD_AT(other20, 0x204C80);
CORVANE_FIELD_AT(other21, 0x204C84);
CORVANE_FIELD_AT(otherText3, 0x204C88);
CORVANE_FIELD_AT(dgramThreads, 0x204D88);
CORVANE_FIELD_AT(optionalDir, 0x204D8C);
CORVANE_FIELD_AT(shmLogUsed, 0x204E8C);
CORVANE_FIELD_AT(shmLog, 0x204E90);
CORVANE_FIELD_AT(other22, 0x209E90);
CORVANE_FIELD_AT(other23, 0x209E94);
CORVANE_FIELD_AT(other24, 0x209E98);
CORVANE_FIELD_AT(rawAlignment, 0x209E9C);
CORVANE_FIELD_AT(other25, 0x209EA0);
CORVANE_FIELD_AT(mapDrv, 0x209EA4);
CORVANE_FIELD_AT(nlsEnabled, 0x209EA8);
CORVANE_FIELD_AT(langName, 0x209EAC);
CORVANE_FIELD_AT(nlsPath, 0x209FAC);
CORVANE_FIELD_AT(spBufferSize, 0x20A0AC);
CORVANE_FIELD_AT(other26, 0x20A0B0);
CORVANE_FIELD_AT(other27, 0x20A0B4);
CORVANE_FIELD_AT(sysName, 0x20A0B8);
CORVANE_FIELD_AT(other28, 0x20A0BC);
CORVANE_FIELD_AT(langFromFile, 0x20A0C0);
CORVANE_FIELD_AT(thousandsSep, 0x20A0C4);
CORVANE_FIELD_AT(decimalPoint, 0x20A0C8);
CORVANE_FIELD_AT(other29, 0x20A0CC);
CORVANE_FIELD_AT(nlsReady, 0x20A0D0);
CORVANE_FIELD_AT(otherWords3, 0x20A0D4);
CORVANE_FIELD_AT(logopPrivate, 0x20A0E0);
CORVANE_FIELD_AT(other30, 0x20A0E4);
CORVANE_FIELD_AT(other31, 0x20A0E8);
CORVANE_FIELD_AT(other32, 0x20A0EC);
CORVANE_FIELD_AT(reserved7, 0x20A0F0);
CORVANE_FIELD_AT(other33, 0x20A0F4);
CORVANE_FIELD_AT(other34, 0x20A0F8);
CORVANE_FIELD_AT(other35, 0x20A0FC);
CORVANE_FIELD_AT(otherWords4, 0x20A100);
CORVANE_FIELD_AT(reserved8, 0x20A108);
#undef CORVANE_FIELD_AT
static_assert(sizeof(CorvaneSegment) == 0x20C8B8);
static_assert(sizeof(CorvaneSegment) == CORVANE_SEGMENT_FIXED_BYTES);

CorvaneSegment* fs = nullptr;

namespace corvane {
namespace {

constexpr int32_t kMaxBufferBytes = 65536;
constexpr int32_t kDefaultAlignmentBytes = 512;

int32_t read_word(int32_t CorvaneSegment::*word) noexcept
{
    fused_mapShared();
    return load_shared(fs->*word);
}

// Setters of whole words are for programs that have mapped the segment; without it they do nothing.
void write_word(int32_t CorvaneSegment::*word, int32_t value) noexcept
{
    if (fs != nullptr) store_shared(fs->*word, value);
}

}  // namespace
}  // namespace corvane

using corvane::read_word;
using corvane::write_word;

int32_t fused_getDgram(void) noexcept
{
    return read_word(&CorvaneSegment::dgramThreads);
}
void fused_setDgram(int32_t count) noexcept
{
    write_word(&CorvaneSegment::dgramThreads, count);
}

int32_t fused_getSPBufferSize(void) noexcept
{
    const int32_t bytes = read_word(&CorvaneSegment::spBufferSize);
    if (bytes != 0 && bytes <= corvane::kMaxBufferBytes) return bytes;
    write_word(&CorvaneSegment::spBufferSize, corvane::kMaxBufferBytes);
    return corvane::kMaxBufferBytes;
}

int32_t fused_setSPBufferSize(int32_t kilobytes) noexcept
{
    fused_mapShared();
    // Unbounded on purpose: the getter bounds what it finds.
    const auto bytes = static_cast<int32_t>(static_cast<uint32_t>(kilobytes) * 1024U);
    write_word(&CorvaneSegment::spBufferSize, bytes);
    return bytes;
}

char* fused_getOptionalDir(char* buffer) noexcept
{
    fused_mapShared();
    const std::string_view directory = corvane::text_of(fs->optionalDir);
    const size_t length = directory.copy(buffer, sizeof fs->optionalDir - 1);
    buffer[length] = 0;
    return buffer;
}

void fused_setOptionalDir(const char* text) noexcept
{
    fused_mapShared();
    corvane::set_text(fs->optionalDir, std::strcmp(text, "-") == 0 ? "" : text);
}

int32_t fused_getRawAlignment(void) noexcept
{
    const int32_t bytes = read_word(&CorvaneSegment::rawAlignment);
    if (bytes != 0) return bytes;
    write_word(&CorvaneSegment::rawAlignment, corvane::kDefaultAlignmentBytes);
    return corvane::kDefaultAlignmentBytes;
}
void fused_setRawAlignment(int32_t bytes) noexcept
{
    write_word(&CorvaneSegment::rawAlignment, bytes);
}

int32_t fused_getMapDrv(void) noexcept
{
    return read_word(&CorvaneSegment::mapDrv);
}
void fused_setMapDrv(int32_t value) noexcept
{
    write_word(&CorvaneSegment::mapDrv, value);
}

int32_t fused_getNls(void) noexcept
{
    return read_word(&CorvaneSegment::nlsEnabled);
}
void fused_setNls(int32_t value) noexcept
{
    write_word(&CorvaneSegment::nlsEnabled, value);
}

void clientDebug(const char* text) noexcept
{
    if (corvane::log_level() > 2) sanos_log("%s", text);
}

void printhints(void) noexcept {}

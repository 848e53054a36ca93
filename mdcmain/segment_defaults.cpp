// The defaults of the shared segment, other programs' fields included.
#include <cstring>

#include "mdcmain/log.h"
#include "mdcmain/segment.h"
#include "mdcmain/segment.hpp"
#include "mdcmain/segment_size.hpp"

namespace corvane {
namespace {

using Segment = CorvaneSegment;

struct WordDefault {
    int32_t Segment::*word;
    int32_t value;
};

constexpr WordDefault kWordDefaults[] = {
    {&Segment::logLevel, 0},         {&Segment::logMode, 1},       {&Segment::logMaxSize, 204800},
    {&Segment::numLogs, 1},          {&Segment::other1, 1},        {&Segment::other2, 65536},
    {&Segment::other3, 0},           {&Segment::other4, 10485760}, {&Segment::other5, 0},
    {&Segment::reserved2, 0},        {&Segment::reserved3, 0},     {&Segment::other6, 30},
    {&Segment::reserved4, 0},        {&Segment::other7, 0},        {&Segment::reserved5, 0},
    {&Segment::other8, 2},           {&Segment::other9, 1},        {&Segment::other10, 0},
    {&Segment::other11, 1},          {&Segment::other12, 0},       {&Segment::other13, 2},
    {&Segment::other14, 5},          {&Segment::other15, 2},       {&Segment::other16, 1048576},
    {&Segment::other17, 31457280},   {&Segment::other18, 3},       {&Segment::other19, 10240},
    {&Segment::mdcPort, 5501},       {&Segment::other20, 3600000}, {&Segment::other21, 0},
    {&Segment::dgramThreads, 5},     {&Segment::shmLogUsed, 0},    {&Segment::other22, 0},
    {&Segment::other23, 10},         {&Segment::other24, 5},       {&Segment::rawAlignment, 512},
    {&Segment::other25, 10},         {&Segment::mapDrv, 0},        {&Segment::nlsEnabled, 1},
    {&Segment::spBufferSize, 65536}, {&Segment::other26, 5},       {&Segment::other27, 64},
    {&Segment::other28, 0},          {&Segment::langFromFile, 0},  {&Segment::thousandsSep, ','},
    {&Segment::decimalPoint, '.'},   {&Segment::other29, 1},       {&Segment::logopPrivate, 0},
    {&Segment::other30, 33554432},   {&Segment::other31, 420},     {&Segment::other32, 1},
    {&Segment::reserved7, 0},        {&Segment::other33, 0},       {&Segment::other34, 2},
    {&Segment::other35, 262144},
};

constexpr size_t kRecordNameOffset = 12;

template <class T>
void fill(T& field, int byte) noexcept
{
    std::memset(&field, byte, sizeof field);
}

void clear_blocks(Segment& segment) noexcept
{
    fill(segment.reserved1, 0);
    fill(segment.otherWords1, 0);
    fill(segment.reserved6, 0);
    fill(segment.otherWords2, 0);
    fill(segment.shmLog, 0);
    fill(segment.otherWords3, 0);
    fill(segment.otherWords4, 0xFF);  // both words are -1
    fill(segment.reserved8, 0);
    for (CorvaneOtherRecord& record : segment.otherTable) record.bytes[kRecordNameOffset] = 0;
}

void set_texts(Segment& segment) noexcept
{
    set_text(segment.logBaseName, "/usr/Corvane/mclog");
    set_text(segment.otherText1, "");
    set_text(segment.otherText2, "");
    set_text(segment.otherArea, "hd");
    set_text(segment.otherText3, "");
    set_text(segment.optionalDir, "");
    set_text(segment.langName, "");
    set_text(segment.nlsPath, "");
}

// The words by which programs attach. A size and a volume count that agree say what the segment
// really is, so they stay, whoever asks for the defaults and with whatever CORVANEVOLS.
void set_attach_words(Segment& segment) noexcept
{
    const int32_t volumes = load_shared(segment.maxVolumes);
    if (volumes < CORVANE_SEGMENT_MIN_VOLUMES ||
        segment_bytes(volumes) != load_shared(segment.segmentSize)) {
        store_shared(segment.maxVolumes, max_volumes_wanted());
        store_shared(segment.segmentSize,
                     static_cast<int32_t>(segment_bytes(max_volumes_wanted())));
    }
    store_shared(segment.initialised, 1);
}

}  // namespace
}  // namespace corvane

void fused_setDefaults(void) noexcept
{
    if (fs == nullptr) return;
    corvane::set_attach_words(*fs);
    for (const auto& [word, value] : corvane::kWordDefaults)
        corvane::store_shared(fs->*word, value);
    corvane::clear_blocks(*fs);
    corvane::set_texts(*fs);
    corvane::store_shared(fs->logCount, utils_getLogCount());
    corvane::store_shared(fs->sysName, setSysName());
}

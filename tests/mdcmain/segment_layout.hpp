// The shared segment's layout and defaults, written down a second time by byte offset: what other
// programs count on. Nothing here comes from the product's own header.
#ifndef CORVANE_TESTS_MDCMAIN_SEGMENT_LAYOUT_HPP
#define CORVANE_TESTS_MDCMAIN_SEGMENT_LAYOUT_HPP

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace corvane::test::layout {

inline constexpr std::size_t kFixedBytes = 2148536;
inline constexpr std::size_t kVolumeBytes = 173008;
inline constexpr std::size_t kBytesFor32 = 7684792;
inline constexpr std::size_t kBytesFor64 = 13221048;

struct Word {
    std::size_t offset;
    std::int32_t value;
};

// Every word of the fixed area that is not part of a text or an area.
inline const std::vector<Word> kWords = {
    {0x000000, 7684792},  {0x000004, 32},       {0x000008, 1},        {0x00000C, 0},
    {0x000010, 0},        {0x000014, 0},        {0x000018, 1},        {0x00001C, 204800},
    {0x000020, 1},        {0x000024, 0},        {0x000128, 1},        {0x00012C, 65536},
    {0x000130, 0},        {0x000134, 10485760}, {0x000138, 0},        {0x00023C, 0},
    {0x000240, 0},        {0x000244, 0},        {0x000248, 0},        {0x00024C, 0},
    {0x000250, 0},        {0x000254, 0},        {0x000258, 0},        {0x00025C, 0},
    {0x1E4220, 0},        {0x1E4224, 30},       {0x1E4228, 0},        {0x1E422C, 0},
    {0x1E4230, 0},        {0x1E4234, 2},        {0x1E4238, 1},        {0x1E423C, 0},
    {0x1E4240, 1},        {0x1E4244, 0},        {0x1E4248, 2},        {0x1E424C, 5},
    {0x1E4250, 2},        {0x1E4254, 1048576},  {0x1E4258, 31457280}, {0x1E425C, 3},
    {0x1E4260, 10240},    {0x204C64, 5501},     {0x204C68, 0},        {0x204C6C, 0},
    {0x204C70, 0},        {0x204C74, 0},        {0x204C78, 0},        {0x204C7C, 0},
    {0x204C80, 3600000},  {0x204C84, 0},        {0x204D88, 5},        {0x204E8C, 0},
    {0x209E90, 0},        {0x209E94, 10},       {0x209E98, 5},        {0x209E9C, 512},
    {0x209EA0, 10},       {0x209EA4, 0},        {0x209EA8, 1},        {0x20A0AC, 65536},
    {0x20A0B0, 5},        {0x20A0B4, 64},       {0x20A0B8, 0},        {0x20A0BC, 0},
    {0x20A0C0, 0},        {0x20A0C4, 44},       {0x20A0C8, 46},       {0x20A0CC, 1},
    {0x20A0D4, 0},        {0x20A0D8, 0},        {0x20A0DC, 0},        {0x20A0E0, 0},
    {0x20A0E4, 33554432}, {0x20A0E8, 420},      {0x20A0EC, 1},        {0x20A0F0, 0},
    {0x20A0F4, 0},        {0x20A0F8, 2},        {0x20A0FC, 262144},   {0x20A100, -1},
    {0x20A104, -1},
};

inline constexpr std::size_t kNlsReady = 0x20A0D0;  // -1 once the language is settled

struct Text {
    std::size_t offset;
    std::size_t bytes;
    const char* value;
};
inline const std::vector<Text> kTexts = {
    {0x000028, 256, "/usr/Corvane/mclog"},
    {0x00013C, 256, ""},
    {0x1E4264, 256, ""},
    {0x1E4364, 133376, "hd"},
    {0x204C88, 256, ""},
    {0x204D8C, 256, ""},
    {0x209EAC, 256, ""},
    {0x209FAC, 256, ""},
};
inline constexpr std::size_t kNlsPath = 0x209FAC;

inline constexpr std::size_t kRecords = 0x000260;
inline constexpr std::size_t kRecordBytes = 19824;
inline constexpr std::size_t kRecordCount = 100;
inline constexpr std::size_t kRecordName = 12;

inline constexpr std::size_t kRing = 0x204E90;
inline constexpr std::size_t kRingBytes = 20480;

// The areas above, and the reserved one at the end, tile the fixed area without a gap.
inline constexpr std::size_t kReservedTail = 0x20A108;

inline std::int32_t word_at(const void* segment, std::size_t offset)
{
    std::int32_t value = 0;
    std::memcpy(&value, static_cast<const char*>(segment) + offset, sizeof value);
    return value;
}

// The fixed area of a new segment for 32 volumes whose catalogue path is `nls_path`.
inline std::string new_image(const std::string& nls_path)
{
    std::string image(kFixedBytes, '\0');
    for (const Word& word : kWords) std::memcpy(&image[word.offset], &word.value, 4);
    for (const Text& text : kTexts)
        std::memcpy(&image[text.offset], text.value, std::strlen(text.value));
    const std::int32_t ready = -1;
    std::memcpy(&image[kNlsReady], &ready, 4);
    std::memcpy(&image[kNlsPath], nls_path.data(), nls_path.size());
    return image;
}

}  // namespace corvane::test::layout

#endif

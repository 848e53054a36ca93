// The conversion entry points: dispatch by type, one-shot forms on a private copy, allocating
// forms.
#include "codeset/kel_convert.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "codeset/kel_cs.h"
#include "codeset/kel_family.h"
#include "codeset/kel_wcs.h"

namespace {

// The members of one family, a converter for each direction.
struct Family {
    decltype(&os_to_ucs2_r) to_ucs2;
    decltype(&os_from_ucs2_r) from_ucs2;
    decltype(&os_to_utf8_r) to_utf8;
    decltype(&os_from_utf8_r) from_utf8;
};

constexpr Family kOs = {os_to_ucs2_r, os_from_ucs2_r, os_to_utf8_r, os_from_utf8_r};
constexpr Family kFamilies[] = {
    kOs,
    {ascii_sbcs_to_ucs2_r, ascii_sbcs_from_ucs2_r, ascii_sbcs_to_utf8_r, ascii_sbcs_from_utf8_r},
    {ascii_dbcs_to_ucs2_r, ascii_dbcs_from_ucs2_r, ascii_dbcs_to_utf8_r, ascii_dbcs_from_utf8_r},
    {ascii_mbcs_to_ucs2_r, ascii_mbcs_from_ucs2_r, ascii_mbcs_to_utf8_r, ascii_mbcs_from_utf8_r},
    {ebcdic_dbcs_to_ucs2_r, ebcdic_dbcs_from_ucs2_r, ebcdic_dbcs_to_utf8_r,
     ebcdic_dbcs_from_utf8_r},
    kOs,
    {utf8_to_ucs2_r, utf8_from_ucs2_r, utf8_to_utf8_r, utf8_to_utf8_r},
    kOs,
    {ebcdic_sbcs_to_ucs2_r, ebcdic_sbcs_from_ucs2_r, ebcdic_sbcs_to_utf8_r,
     ebcdic_sbcs_from_utf8_r},
    kOs,
    {ascii_gb18030_to_ucs2_r, ascii_gb18030_from_ucs2_r, ascii_gb18030_to_utf8_r,
     ascii_gb18030_from_utf8_r},
};

[[nodiscard]] const Family& family_of(const kel_cs_t& cs) noexcept
{
    return cs.type < std::size(kFamilies) ? kFamilies[cs.type] : kOs;
}

// The resumable form of every direction: bounds from lengths, and lengths back from the pointers.
template <class Member, class From, class To>
[[nodiscard]] std::int32_t resume(Member Family::*member, kel_cs_t* cs, const From** source,
                                  std::uint32_t* source_left, To** destination,
                                  std::uint32_t* destination_left) noexcept
{
    if (cs == nullptr) cs = kel_get_def_cs();
    const Member convert = family_of(*cs).*member;
    const From* from = source != nullptr ? *source : nullptr;  // null: a flush call
    const From* const from_end = from != nullptr ? from + *source_left : nullptr;
    To* to = destination != nullptr ? *destination : nullptr;
    To* const to_end = to != nullptr ? to + *destination_left : nullptr;

    const std::int32_t result = convert(cs, &from, from_end, &to, to_end);
    if (from != nullptr) {
        *source_left = static_cast<std::uint32_t>(from_end - from);
        *source = from;
    }
    if (to != nullptr) {
        *destination_left = static_cast<std::uint32_t>(to_end - to);
        *destination = to;
    }
    return result;
}

[[nodiscard]] std::uint32_t length_of(const char* text) noexcept
{
    return static_cast<std::uint32_t>(std::strlen(text));
}
[[nodiscard]] std::uint32_t length_of(const std::uint16_t* text) noexcept
{
    return kel_wcslen(text);
}

// The one-shot form of every direction on `copy`, the caller's code set with one state cleared.
template <class Member, class From, class To>
[[nodiscard]] std::uint32_t convert_all(Member Family::*member, kel_cs_t& copy, const From* source,
                                        std::int32_t length, To* destination, std::uint32_t size,
                                        bool flush) noexcept
{
    const bool is_terminated = length < 0;
    std::uint32_t source_left = static_cast<std::uint32_t>(length);
    std::uint32_t room = size;
    if (is_terminated) {
        source_left = source != nullptr ? length_of(source) : 0;
        --room;  // kept for the terminator
    }
    (void)resume(member, &copy, &source, &source_left, &destination, &room);
    if (flush) {
        source = nullptr;
        (void)resume(member, &copy, &source, &source_left, &destination, &room);
    }
    if (!is_terminated) return size - room;
    *destination = 0;
    return size - room;
}

[[nodiscard]] kel_cs_t copy_of(const kel_cs_t* cs) noexcept
{
    return cs != nullptr ? *cs : *kel_get_def_cs();
}

// Converts `length` bytes into a new buffer of `factor` times that and one more.
template <class OneShot>
[[nodiscard]] char* convert_new(OneShot convert, const kel_cs_t* cs, const char* source,
                                std::int32_t length, std::uint32_t factor,
                                std::uint32_t* count) noexcept
{
    *count = 0;
    const std::int64_t size = std::int64_t{length} * factor + 1;
    if (length < 0 || size > UINT32_MAX) return nullptr;
    auto* const buffer = static_cast<char*>(std::malloc(static_cast<std::size_t>(size)));
    if (buffer == nullptr) return nullptr;
    *count = convert(cs, source, length, buffer, static_cast<std::uint32_t>(size));
    return buffer;
}

}  // namespace

int32_t kel_to_utf8_r(kel_cs_t* cs, const char** source, uint32_t* source_left, char** destination,
                      uint32_t* destination_left) noexcept
{
    return resume(&Family::to_utf8, cs, source, source_left, destination, destination_left);
}

int32_t kel_from_utf8_r(kel_cs_t* cs, const char** source, uint32_t* source_left,
                        char** destination, uint32_t* destination_left) noexcept
{
    return resume(&Family::from_utf8, cs, source, source_left, destination, destination_left);
}

int32_t kel_to_ucs2_r(kel_cs_t* cs, const char** source, uint32_t* source_left,
                      uint16_t** destination, uint32_t* destination_left) noexcept
{
    return resume(&Family::to_ucs2, cs, source, source_left, destination, destination_left);
}

int32_t kel_from_ucs2_r(kel_cs_t* cs, const uint16_t** source, uint32_t* source_left,
                        char** destination, uint32_t* destination_left) noexcept
{
    return resume(&Family::from_ucs2, cs, source, source_left, destination, destination_left);
}

uint32_t kel_to_utf8(const kel_cs_t* cs, const char* source, int32_t length, char* destination,
                     uint32_t size) noexcept
{
    if (size == 0) return 0;
    kel_cs_t copy = copy_of(cs);
    copy.to_state = 0;
    return convert_all(&Family::to_utf8, copy, source, length, destination, size, /*flush=*/false);
}

// Unlike kel_from_ucs2, it starts in whatever writing state the caller's code set is in; this is
// meant.
uint32_t kel_from_utf8(const kel_cs_t* cs, const char* source, int32_t length, char* destination,
                       uint32_t size) noexcept
{
    if (size == 0) return 0;
    kel_cs_t copy = copy_of(cs);
    copy.to_state = 0;
    return convert_all(&Family::from_utf8, copy, source, length, destination, size, /*flush=*/true);
}

uint32_t kel_to_ucs2(const kel_cs_t* cs, const char* source, int32_t length, uint16_t* destination,
                     uint32_t size) noexcept
{
    if (size == 0) return 0;
    kel_cs_t copy = copy_of(cs);
    copy.to_state = 0;
    return convert_all(&Family::to_ucs2, copy, source, length, destination, size, /*flush=*/false);
}

uint32_t kel_from_ucs2(const kel_cs_t* cs, const uint16_t* source, int32_t length,
                       char* destination, uint32_t size) noexcept
{
    if (size == 0) return 0;
    kel_cs_t copy = copy_of(cs);
    copy.from_state = 0;
    return convert_all(&Family::from_ucs2, copy, source, length, destination, size, /*flush=*/true);
}

char* kel_fromu_alloc(const kel_cs_t* cs, const char* source, int32_t length,
                      uint32_t* count) noexcept
{
    return convert_new(kel_from_utf8, cs, source, length, 2, count);
}

char* kel_tou_alloc(const kel_cs_t* cs, const char* source, int32_t length,
                    uint32_t* count) noexcept
{
    return convert_new(kel_to_utf8, cs, source, length, 3, count);
}

void kel_free(void* buffer) noexcept
{
    std::free(buffer);
}

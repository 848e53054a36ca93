// FSUNI strings. The conversions differ in how they take their capacity, and callers count on it.
#include "osl/fsuni.h"

#include "osl/bytes.hpp"
#include "osl/memory.h"

namespace corvane {
namespace {

constexpr FSUNI kBackslash = 92;
constexpr FSUNI kSlash = 47;

constexpr char narrow(FSUNI unit) noexcept
{
    return static_cast<char>(unit & 0xFFU);
}

// 0x80 to 0xFF become 0xFF80 to 0xFFFF, whether or not this compiler's char has a sign.
constexpr FSUNI widen(char byte) noexcept
{
    return static_cast<FSUNI>(static_cast<signed char>(byte));
}

}  // namespace
}  // namespace corvane

using corvane::narrow;
using corvane::widen;

uint32_t OSL_FSUNILength(const FSUNI* text) noexcept
{
    uint32_t length_units = 0;
    while (text[length_units] != 0) ++length_units;
    return length_units;
}

FSUNI* OSL_FSUNIdup(const FSUNI* text) noexcept
{
    const size_t length_units = OSL_FSUNILength(text);
    auto* const copy = static_cast<FSUNI*>(
        OSL_Malloc((length_units + 1) * sizeof(FSUNI), corvane::allocation_tag("fsun")));
    if (copy == nullptr) return nullptr;
    OSL_MemCopy(copy, text, length_units * sizeof(FSUNI));
    copy[length_units] = 0;
    return copy;
}

int32_t OSL_FSUNIcmp(const FSUNI* a, const FSUNI* b) noexcept
{
    const size_t length_units = OSL_FSUNILength(a);
    if (length_units != OSL_FSUNILength(b)) return -1;
    return OSL_MemCompare(a, b, length_units * sizeof(FSUNI));
}

void OSL_TransPath(FSUNI* text) noexcept
{
    if (text == nullptr) return;
    for (; *text != 0; ++text) {
        if (*text == corvane::kBackslash) *text = corvane::kSlash;
    }
}

char* OSL_Uni2MultiByte(char* destination, const FSUNI* source, int32_t capacity_bytes) noexcept
{
    const int64_t limit = int64_t{capacity_bytes} - 1;
    int64_t index = 0;
    for (; index < limit && source[index] != 0; ++index) destination[index] = narrow(source[index]);
    destination[index] = 0;
    return destination;
}

FSUNI* OSL_MultiByte2Uni(FSUNI* destination, const char* source, int32_t capacity_units) noexcept
{
    const int64_t limit = int64_t{capacity_units} - 1;
    int64_t index = 0;
    for (; index < limit && source[index] != 0; ++index) destination[index] = widen(source[index]);
    destination[index] = 0;
    return destination;
}

FSUNI* mb2fsuni(FSUNI* destination, const char* source) noexcept
{
    FSUNI* to = destination;
    while (*source != 0) *to++ = widen(*source++);
    *to = 0;
    return destination;
}

char* fsuni2mb(char* destination, const FSUNI* source, uint32_t capacity_bytes) noexcept
{
    const uint32_t limit = capacity_bytes - 1U;  // 0 wraps: no limit
    uint32_t index = 0;
    for (; source[index] != 0 && index < limit; ++index) destination[index] = narrow(source[index]);
    destination[index] = 0;
    return destination;
}

FSUNI* fsunicpy(FSUNI* destination, const FSUNI* source, uint32_t capacity_bytes) noexcept
{
    const uint32_t limit = capacity_bytes / 2U - 1U;  // below 2 bytes wraps: no limit
    uint32_t index = 0;
    for (; source[index] != 0 && index < limit; ++index) destination[index] = source[index];
    destination[index] = 0;
    return destination;
}

// Byte order in place, byte dumps and the sizes of the wire types.
#include "osl/byte_order.h"

#include <algorithm>
#include <cstdint>

#include "mdcmain/log.hpp"
#include "mdcmain/segment.h"
#include "osl/bytes.hpp"
#include "osl/types.h"

static_assert(sizeof(FSLONG) == 4 && sizeof(FSULONG) == 4 && sizeof(FS64LONG) == 8);
static_assert(sizeof(FSUNI) == 2 && sizeof(FS128LONG) == 16);

namespace corvane {
namespace {

constexpr int32_t kMinimumTransferBytes = 512;

void swap_unit(void* at) noexcept
{
    store(at, __builtin_bswap16(load<uint16_t>(at)));
}

}  // namespace
}  // namespace corvane

void doendian(void* address, uint32_t length_bytes) noexcept
{
    using corvane::load;
    using corvane::store;
    switch (length_bytes) {
        case 2:
            corvane::swap_unit(address);
            return;
        case 4:
            store(address, __builtin_bswap32(load<uint32_t>(address)));
            return;
        case 8:
            store(address, __builtin_bswap64(load<uint64_t>(address)));
            return;
        default: {
            auto* const bytes = static_cast<unsigned char*>(address);
            std::reverse(bytes, bytes + length_bytes);
        }
    }
}

void endianizeFsUniArray(void* address, uint32_t length_bytes) noexcept
{
    auto* const bytes = static_cast<unsigned char*>(address);
    const size_t unit_count = length_bytes / sizeof(FSUNI);
    for (size_t unit = 0; unit < unit_count; ++unit) corvane::swap_unit(bytes + unit * 2);
}

char* bytesToString(const void* data, uint32_t count, char* text) noexcept
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    const auto* const bytes = static_cast<const unsigned char*>(data);
    char* end = text;
    for (size_t index = 0; index < count; ++index) {
        *end++ = kDigits[bytes[index] >> 4U];
        *end++ = kDigits[bytes[index] & 0xFU];
        *end++ = ' ';
    }
    // Zero digits go with the blanks, even the second digit of 0x10: the dumps are meant to look
    // so.
    while (end != text && (end[-1] == '0' || end[-1] == ' ')) --end;
    *end = 0;
    return text;
}

int32_t checkDataSizes(void) noexcept
{
    CORVANE_TRACE("size of FSLONG should be %d, is %d\n", 4, int{sizeof(FSLONG)});
    CORVANE_TRACE("size of FSULONG should be %d, is %d\n", 4, int{sizeof(FSULONG)});
    CORVANE_TRACE("size of FS64LONG should be %d, is %d\n", 8, int{sizeof(FS64LONG)});
    CORVANE_TRACE("size of FSUNI should be %d, is %d\n", 2, int{sizeof(FSUNI)});
    CORVANE_TRACE("size of FS128LONG should be %d, is %d\n", 16, int{sizeof(FS128LONG)});
    return 0;
}

void OSL_getDMAsizes(int32_t* alignment, int32_t* minimum_transfer) noexcept
{
    *alignment = fused_getRawAlignment();
    *minimum_transfer = corvane::kMinimumTransferBytes;
}

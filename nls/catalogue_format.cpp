// Byte order of catalogue records: one list of integer offsets a record, turned in place.
#include "nls/catalogue_format.h"

#include <arpa/inet.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>

namespace {

constexpr std::initializer_list<std::size_t> kHeaderIntegers = {8, 12, 16, 20, 24};
constexpr std::initializer_list<std::size_t> kSetIntegers = {0, 4, 8, 16, 24, 28, 32};
constexpr std::initializer_list<std::size_t> kMessageIntegers = {0, 4, 8};

// Turning to file order and turning back are the same exchange of bytes.
void turn(void* record, std::initializer_list<std::size_t> offsets) noexcept
{
    for (const std::size_t offset : offsets) {
        char* const at = static_cast<char*>(record) + offset;
        std::uint32_t value = 0;
        std::memcpy(&value, at, sizeof value);
        value = htonl(value);
        std::memcpy(at, &value, sizeof value);
    }
}

}  // namespace

void hton_MCHeaderT(void* header) noexcept
{
    turn(header, kHeaderIntegers);
}
void ntoh_MCHeaderT(void* header) noexcept
{
    turn(header, kHeaderIntegers);
}
void hton_MCSetT(void* set) noexcept
{
    turn(set, kSetIntegers);
}
void ntoh_MCSetT(void* set) noexcept
{
    turn(set, kSetIntegers);
}
void hton_MCMsgT(void* message) noexcept
{
    turn(message, kMessageIntegers);
}
void ntoh_MCMsgT(void* message) noexcept
{
    turn(message, kMessageIntegers);
}

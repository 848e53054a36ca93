// Writes and checks the 32-byte cookies of volumes.
#include "plugins/common/volume_cookie.hpp"

#include <cstring>

#include "fsmdc/records.h"

namespace corvane::plugin {
namespace {

struct VolumeCookie {
    VolumeMark mark;                   //  0
    Uuid volume;                       //  8
    std::array<std::uint8_t, 8> zero;  // 24
};
static_assert(sizeof(VolumeCookie) == FS_COOKIE_BYTES, "layout");

}  // namespace

void write_volume_cookie(const VolumeMark& mark, const Uuid& volume, void* cookie) noexcept
{
    const VolumeCookie value{mark, volume, {}};
    std::memcpy(cookie, &value, sizeof value);
}

std::optional<Uuid> read_volume_cookie(const VolumeMark& mark, const void* cookie) noexcept
{
    if (cookie == nullptr) return std::nullopt;
    VolumeCookie value{};
    std::memcpy(&value, cookie, sizeof value);
    if (value.mark != mark || value.zero != decltype(value.zero){}) return std::nullopt;
    return value.volume;
}

}  // namespace corvane::plugin

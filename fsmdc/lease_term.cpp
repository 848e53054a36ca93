// How long a lease lasts: what the client wants, within what the plug-in allows.
#include <algorithm>
#include <cstdint>

#include "fsmdc/lease.h"
#include "fsmdc/messages.h"
#include "fsmdc/plugin_calls.hpp"

std::int32_t defaultReadLease = 5000;
std::int32_t defaultWriteLease = 3600000;

namespace corvane {
namespace {

constexpr std::uint32_t kMsPerSecond = 1000;
constexpr std::int32_t kLongestLease_s = 86400;

// A limit in seconds as milliseconds, modulo 2^32; one that is then negative means a day. A limit
// of 0 is the default, whose milliseconds are meant to count as seconds here.
[[nodiscard]] std::int32_t limit_ms(std::int32_t limit_s, std::int32_t default_value) noexcept
{
    const std::int32_t seconds = limit_s == 0 ? default_value : limit_s;
    const auto product =
        static_cast<std::int32_t>(static_cast<std::uint32_t>(seconds) * kMsPerSecond);
    return product < 0 ? kLongestLease_s * static_cast<std::int32_t>(kMsPerSecond) : product;
}

}  // namespace
}  // namespace corvane

extern "C" std::int32_t CalcLease(std::int32_t requested_ms, std::int32_t intention,
                                  const FsLibrary* library, const void* volume_cookie) noexcept
{
    const bool reads = intention == SP_INTENTION_READ;
    std::int32_t lease_ms = requested_ms;
    if (lease_ms == 0) lease_ms = reads ? defaultReadLease : defaultWriteLease;
    if (library == nullptr || library->FS_GetMaxLeases == nullptr || volume_cookie == nullptr) {
        return lease_ms;
    }
    std::int32_t read_s = lease_ms;
    std::int32_t write_s = lease_ms;
    if (corvane::counted(library, COUNTERS_CALL_GET_MAX_LEASES,
                         library->FS_GetMaxLeases(volume_cookie, &read_s, &write_s)) != 0) {
        return lease_ms;
    }
    return std::min(lease_ms, reads ? corvane::limit_ms(read_s, defaultReadLease)
                                    : corvane::limit_ms(write_s, defaultWriteLease));
}

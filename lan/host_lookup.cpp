// Host names to IPv4 addresses, asked again while the resolver says so.
#include "lan/host_lookup.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "lan/dgram.h"
#include "mdcmain/log.hpp"
#include "osl/thread.h"

namespace corvane {
namespace {

constexpr int kAttempts = 10;
constexpr std::uint32_t kPause_ms = 500;
constexpr std::size_t kWork_bytes = 1024;

const char* resolver_error_text(int resolver_error) noexcept
{
    switch (resolver_error) {
        case HOST_NOT_FOUND:
            return "HOST_NOT_FOUND: Authoritive Answer Host not found";
        case TRY_AGAIN:
            return "TRY_AGAIN: Non-Authoritive Host not found, or SERVERFAIL";
        case NO_RECOVERY:
            return "NO_RECOVERY: Non recoverable errors, FORMERR, REFUSED, NOTIMP";
        case NO_DATA:
            return "NO_DATA: Valid name, no data record of requested type";
        default:
            return "UNDEFINED error for gethostbyname";
    }
}

// What came of asking: how often a pause followed, and what the last look-up returned.
struct Outcome {
    const hostent* found = nullptr;  // points into the caller's entry and work area
    int remembered = 0;
    int retries = 0;
};

Outcome ask(const char* host, hostent& entry, char* work, const HostLookup& lookup) noexcept
{
    Outcome outcome;
    while (outcome.retries < kAttempts) {
        hostent* found = nullptr;
        int resolver_error = 0;
        outcome.remembered = lookup.find(host, &entry, work, kWork_bytes, &found, &resolver_error);
        if (outcome.remembered == 0) {
            outcome.found = found;
            break;
        }
        // The labels do not fit their values; readers of the traces rely on this order.
        CORVANE_TRACE("DGRAM_GetHostByName failed name:%s err:%d retVal:%d retry:%d %s\n", host,
                      outcome.remembered, resolver_error, outcome.retries,
                      resolver_error_text(resolver_error));
        if (resolver_error != TRY_AGAIN) break;
        outcome.remembered = 0;
        lookup.pause(kPause_ms);
        ++outcome.retries;
    }
    return outcome;
}

}  // namespace

std::int32_t resolve_host(const char* host, sockaddr_in& address, const HostLookup& lookup) noexcept
{
    hostent entry{};
    std::array<char, kWork_bytes> work{};
    const Outcome outcome = ask(host, entry, work.data(), lookup);
    if (outcome.found == nullptr || outcome.found->h_addr_list[0] == nullptr) {
        CORVANE_TRACE("gethostbyname failed [%s] %d %d after %d retries\n", host,
                      outcome.remembered, errno, outcome.retries);
        return -1;
    }
    const auto address_bytes = static_cast<std::size_t>(std::max(outcome.found->h_length, 0));
    std::memcpy(&address.sin_addr, outcome.found->h_addr_list[0],
                std::min(address_bytes, sizeof address.sin_addr));
    return 0;
}

}  // namespace corvane

std::int32_t DGRAM_GetHostByName(const char* host, sockaddr_in* address) noexcept
{
    return corvane::resolve_host(host, *address, {.find = gethostbyname_r, .pause = OSL_Sleep});
}

void DGRAM_FreeHostent() noexcept {}

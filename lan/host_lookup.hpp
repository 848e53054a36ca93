// Host names to IPv4 addresses, over a look-up that can be exchanged.
#ifndef CORVANE_LAN_HOST_LOOKUP_HPP
#define CORVANE_LAN_HOST_LOOKUP_HPP

#include <netdb.h>
#include <netinet/in.h>

#include <cstddef>
#include <cstdint>

namespace corvane {

// What a name is resolved with: the shape of gethostbyname_r, and the pause between two attempts.
struct HostLookup {
    int (*find)(const char* name, hostent* entry, char* work, std::size_t work_bytes,
                hostent** result, int* resolver_error);
    void (*pause)(std::uint32_t milliseconds);
};

// DGRAM_GetHostByName with a look-up of the caller's choice. Returns 0 and completes `address`, or
// -1.
[[nodiscard]] std::int32_t resolve_host(const char* host, sockaddr_in& address,
                                        const HostLookup& lookup) noexcept;

}  // namespace corvane
#endif

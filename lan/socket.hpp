// Ownership of a datagram socket.
#ifndef CORVANE_LAN_SOCKET_HPP
#define CORVANE_LAN_SOCKET_HPP

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <utility>

#include "lan/dgram.h"

namespace corvane {

// Closes its descriptor at the end of its scope.
class [[nodiscard]] Socket {
public:
    // A new IPv4 datagram socket, without any option set; not valid on failure.
    static Socket datagram() noexcept { return Socket(::socket(AF_INET, SOCK_DGRAM, 0)); }

    Socket(Socket&& other) noexcept : descriptor_(other.release()) {}
    Socket& operator=(Socket&&) = delete;
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    ~Socket()
    {
        if (is_valid()) (void)CloseSocket(descriptor_);  // nothing was written that could be lost
    }

    [[nodiscard]] bool is_valid() const noexcept { return descriptor_ >= 0; }
    [[nodiscard]] std::int32_t descriptor() const noexcept { return descriptor_; }
    [[nodiscard]] std::int32_t release() noexcept { return std::exchange(descriptor_, -1); }

private:
    explicit Socket(std::int32_t descriptor) noexcept : descriptor_(descriptor) {}

    std::int32_t descriptor_;
};

// The one place where an IPv4 address is seen as the general one.
[[nodiscard]] inline const sockaddr* as_sockaddr(const sockaddr_in& address) noexcept
{
    return reinterpret_cast<const sockaddr*>(&address);
}
[[nodiscard]] inline sockaddr* as_sockaddr(sockaddr_in& address) noexcept
{
    return reinterpret_cast<sockaddr*>(&address);
}

}  // namespace corvane
#endif

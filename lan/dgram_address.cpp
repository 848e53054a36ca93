// Addresses of senders and sockets, and the small change of the transport.
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "lan/dgram.h"
#include "lan/socket.hpp"

static_assert(offsetof(DgramReplyAddr, sender) == 4 && sizeof(DgramReplyAddr) == 20, "layout");
static_assert(sizeof(sockaddr_in) == 16 && offsetof(sockaddr_in, sin_port) == 2 &&
                  offsetof(sockaddr_in, sin_addr) == 4,
              "the cookie's address fields");

std::int32_t gDgramWrongAddrRecv = 0;
std::int32_t gDgramWrongAddrRecvFailures = 0;

std::uint32_t DGRAM_Init() noexcept
{
    return 0;
}

std::int32_t DGRAM_GetEphemeralPort(std::int32_t socket) noexcept
{
    sockaddr_in local{};
    socklen_t local_bytes = sizeof local;
    if (getsockname(socket, corvane::as_sockaddr(local), &local_bytes) != 0) return -1;
    return ntohs(local.sin_port);
}

char* DGRAM_GetIPAddress(const DgramReplyAddr* sender, char* text) noexcept
{
    std::array<unsigned char, 4> part{};
    std::memcpy(part.data(), &sender->sender.sin_addr, part.size());
    constexpr std::size_t kText_bytes = sizeof "255.255.255.255";
    (void)std::snprintf(text, kText_bytes, "%d.%d.%d.%d", part[0], part[1], part[2], part[3]);
    return text;
}

std::int32_t DGRAM_CompareAddresses(const DgramReplyAddr* a, const DgramReplyAddr* b) noexcept
{
    return a->sender.sin_addr.s_addr == b->sender.sin_addr.s_addr ? 0 : 1;
}

std::int32_t CloseSocket(std::int32_t socket) noexcept
{
    return ::close(socket);
}

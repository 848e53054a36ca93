// The yardstick: as many threads as the daemon has in recvfrom on one socket, answering each
// request with as many bytes as the daemon would, and doing nothing else.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t kBuffer_bytes = 65536;
constexpr std::size_t kHeader_bytes = 48;
constexpr std::size_t kCodeOffset = 24;
constexpr std::uint32_t kCodes = 6;  // 1 to 5 are requests

// Bytes of the reply to each request code, as measured from the daemon.
using ReplySizes = std::array<std::size_t, kCodes>;

std::uint32_t code_of(const std::byte* request)
{
    std::uint32_t code = 0;
    std::memcpy(&code, request + kCodeOffset, sizeof code);
    return code < kCodes ? code : std::min(__builtin_bswap32(code), kCodes - 1);
}

// Only this machine is answered: an open echo would be a gift to others.
bool is_local(const sockaddr_in& sender)
{
    return ntohl(sender.sin_addr.s_addr) >> 24U == 127;
}

[[noreturn]] void serve(int socket, const ReplySizes& sizes)
{
    std::vector<std::byte> buffer(kBuffer_bytes);
    for (;;) {
        sockaddr_in sender{};
        socklen_t sender_bytes = sizeof sender;
        const ssize_t received = recvfrom(socket, buffer.data(), buffer.size(), 0,
                                          reinterpret_cast<sockaddr*>(&sender), &sender_bytes);
        if (received < static_cast<ssize_t>(kHeader_bytes) || !is_local(sender)) continue;
        (void)sendto(socket, buffer.data(), sizes.at(code_of(buffer.data())), 0,
                     reinterpret_cast<const sockaddr*>(&sender), sender_bytes);
    }
}

bool parse(std::string_view text, std::size_t lowest, std::size_t highest, std::size_t& number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && number >= lowest &&
           number <= highest;
}

}  // namespace

int main(int argc, char** argv)
{
    std::size_t port = 0;
    std::size_t threads = 0;
    ReplySizes sizes{};
    sizes.fill(kHeader_bytes);
    bool is_good =
        argc >= 3 && argc <= 8 && parse(argv[1], 1, 65535, port) && parse(argv[2], 1, 64, threads);
    for (int i = 3; is_good && i < argc; ++i) {
        is_good = parse(argv[i], kHeader_bytes, 65507, sizes.at(static_cast<std::size_t>(i) - 2));
    }
    if (!is_good) {
        std::fputs(
            "Usage: echo_server PORT THREADS [BYTES...]\n"
            "Answers each datagram from 127.0.0.0/8 with its own first bytes: as many as the "
            "BYTES given for its\nfunction code (1 to 5, in this order; 48 when not given).\n",
            stderr);
        return 2;
    }
    const int socket = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(static_cast<std::uint16_t>(port));
    local.sin_addr.s_addr =
        htonl(INADDR_ANY);  // as the daemon: the kernel's work is to be the same
    if (socket < 0 || bind(socket, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
        std::perror("echo_server: cannot bind");
        return 1;
    }
    std::vector<std::jthread> others;
    for (std::size_t i = 1; i < threads; ++i) others.emplace_back([&] { serve(socket, sizes); });
    serve(socket, sizes);
}

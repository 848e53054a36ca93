// A loopback socket under the test's control, independent of the code under test.
#ifndef CORVANE_TESTS_LAN_PEER_HPP
#define CORVANE_TESTS_LAN_PEER_HPP

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <iterator>
#include <optional>

#include "tests/lan/message_bytes.hpp"

namespace lan_test {

class Peer {
public:
    Peer()
    {
        sockaddr_in local = loopback(0);
        EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&local), sizeof local), 0);
        socklen_t size = sizeof local;
        EXPECT_EQ(getsockname(socket_, reinterpret_cast<sockaddr*>(&local), &size), 0);
        port_ = ntohs(local.sin_port);
    }
    ~Peer() { close(socket_); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    [[nodiscard]] std::uint16_t port() const { return port_; }
    [[nodiscard]] int descriptor() const { return socket_; }

    void send(std::uint16_t port, const Bytes& bytes) const
    {
        const sockaddr_in to = loopback(port);
        EXPECT_EQ(sendto(socket_, bytes.data(), bytes.size(), 0,
                         reinterpret_cast<const sockaddr*>(&to), sizeof to),
                  static_cast<ssize_t>(bytes.size()));
    }

    // The next datagram, and where an answer to it goes; nothing when none comes for a long while.
    [[nodiscard]] std::optional<Bytes> receive(int wait_ms = 10'000)
    {
        pollfd readable{.fd = socket_, .events = POLLIN, .revents = 0};
        if (poll(&readable, 1, wait_ms) != 1) return std::nullopt;
        Bytes bytes(70'000);
        socklen_t size = sizeof last_;
        const ssize_t received = recvfrom(socket_, bytes.data(), bytes.size(), 0,
                                          reinterpret_cast<sockaddr*>(&last_), &size);
        if (received < 0) return std::nullopt;
        bytes.resize(static_cast<std::size_t>(received));
        return bytes;
    }

    // Answers the datagram that was received last.
    void answer(const Bytes& bytes) const { send(ntohs(last_.sin_port), bytes); }
    [[nodiscard]] std::uint16_t last_port() const { return ntohs(last_.sin_port); }

    [[nodiscard]] static sockaddr_in loopback(std::uint16_t port)
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return address;
    }

private:
    int socket_ = ::socket(AF_INET, SOCK_DGRAM, 0);
    std::uint16_t port_ = 0;
    sockaddr_in last_{};
};

inline std::ptrdiff_t open_descriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

}  // namespace lan_test
#endif

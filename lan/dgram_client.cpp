// The client's side of the transport: one datagram out, one answer back, on a socket of its own.
#include <poll.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "lan/dgram.h"
#include "lan/result_codes.hpp"
#include "lan/socket.hpp"
#include "mdcmain/log.hpp"

namespace corvane {
namespace {

constexpr long kNanosecondsPerSecond = 1'000'000'000;

// The time left of a limit, however often the wait is interrupted.
class TimeLimit {
public:
    explicit TimeLimit(std::int32_t seconds) noexcept : left_{.tv_sec = seconds, .tv_nsec = 0}
    {
        (void)clock_gettime(CLOCK_MONOTONIC, &end_);  // this clock always exists
        end_.tv_sec += seconds;
    }

    [[nodiscard]] const timespec& left() const noexcept { return left_; }

    void take_elapsed() noexcept
    {
        timespec now{};
        (void)clock_gettime(CLOCK_MONOTONIC, &now);
        left_ = {.tv_sec = end_.tv_sec - now.tv_sec, .tv_nsec = end_.tv_nsec - now.tv_nsec};
        if (left_.tv_nsec < 0) {
            left_.tv_nsec += kNanosecondsPerSecond;
            --left_.tv_sec;
        }
        if (left_.tv_sec < 0) left_ = {};
    }

private:
    timespec end_{};
    timespec left_;
};

// Waits until the socket is readable. Returns 0, 1103 or 1106. The traces name select, which this
// once was; poll does the same for descriptors of any number.
std::uint32_t await_answer(std::int32_t socket, std::int32_t timeout_s) noexcept
{
    TimeLimit limit(timeout_s);
    for (;;) {
        pollfd readable{.fd = socket, .events = POLLIN, .revents = 0};
        const int ready = ppoll(&readable, 1, &limit.left(), nullptr);
        if (ready > 0) return 0;
        if (ready == 0) {
            CORVANE_TRACE("FTX2003I DGRAM: 'select' error timeout? %d\n", timeout_s);
            return DGRAM_E_TIMEOUT;
        }
        const int error = errno;
        CORVANE_TRACE("FTX2004I DGRAM: 'select' error %d %s\n", error, strerrordesc_np(error));
        if (error != EINTR) return DGRAM_E_RECEIVE;
        limit.take_elapsed();
    }
}

// Receives the answer. A room filled to its last byte may have cut the answer: that is too long.
std::uint32_t receive_answer(std::int32_t socket, void* reply, std::uint32_t& reply_length_bytes,
                             sockaddr_in& peer) noexcept
{
    socklen_t peer_bytes = sizeof peer;
    const ssize_t received =
        recvfrom(socket, reply, reply_length_bytes, 0, as_sockaddr(peer), &peer_bytes);
    std::uint32_t result = 0;
    if (received < 0) {
        result = DGRAM_E_RECEIVE;
    } else if (received < static_cast<ssize_t>(reply_length_bytes)) {
        reply_length_bytes = static_cast<std::uint32_t>(received);
    } else {
        result = kInvalidLength;
    }
    CORVANE_TRACE("FTX2002I DGRAM:  reply was %d bytes long\n",
                  static_cast<int>(reply_length_bytes));
    return result;
}

}  // namespace
}  // namespace corvane

std::uint32_t DGRAM_SendAndReceive(const char* host, std::uint16_t port, const void* request,
                                   std::uint32_t request_length_bytes, void* reply,
                                   std::uint32_t* reply_length_bytes,
                                   std::int32_t timeout_s) noexcept
{
    const auto socket = corvane::Socket::datagram();
    if (!socket.is_valid()) return DGRAM_E_NO_SOCKET;

    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(port);
    if (DGRAM_GetHostByName(host, &peer) != 0) return DGRAM_E_NO_HOST;

    CORVANE_TRACE("FTX2000I DGRAM: Client sending message on to %s on port %d\n", host, port);
    const ssize_t sent = sendto(socket.descriptor(), request, request_length_bytes, 0,
                                corvane::as_sockaddr(peer), sizeof peer);
    CORVANE_TRACE("DGRAM: Client sent %d bytes\n", static_cast<int>(sent));
    if (sent < 0) return DGRAM_E_SEND;
    if (reply == nullptr || reply_length_bytes == nullptr) return 0;
    if (static_cast<std::int32_t>(*reply_length_bytes) < 1) return 0;  // a negative room is none

    CORVANE_TRACE("FTX2001I DGRAM:  client waiting for reply\n");
    const std::uint32_t failure = corvane::await_answer(socket.descriptor(), timeout_s);
    if (failure != 0) return failure;
    return corvane::receive_answer(socket.descriptor(), reply, *reply_length_bytes, peer);
}

// Asks the local descriptor service, one connection a request.
#include "client/descriptor.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "client/descriptor_owner.hpp"
#include "osl/bytes.hpp"

namespace corvane {
namespace {

constexpr std::size_t kReplyDataBytes = 256;
constexpr int kTimeoutSeconds = 30;
constexpr std::size_t kMostDescriptors = 8;  // more than the one that is sent

const char* socket_path()
{
    const char* const chosen = std::getenv("CORVANEFIFO");
    return chosen != nullptr ? chosen : "/tmp/corvane_fd.fifo";
}

// Fails with errno set, as everything below.
Descriptor failed(int errno_value)
{
    errno = errno_value;
    return Descriptor();
}

Descriptor connected()
{
    const std::string_view path = socket_path();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return failed(ENAMETOOLONG);
    std::memcpy(address.sun_path, path.data(), path.size());
    Descriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!connection.is_open()) return connection;
    const timeval limit{kTimeoutSeconds, 0};
    (void)setsockopt(connection.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    (void)setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    if (connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
        0) {
        return failed(errno == EAGAIN ? ETIMEDOUT : errno);
    }
    return connection;
}

// The daemon reads a request at once, so it goes out in one piece.
bool send_request(const Descriptor& connection, std::string_view request)
{
    ssize_t count = 0;
    do {
        count = send(connection.get(), request.data(), request.size(), MSG_NOSIGNAL);
    } while (count < 0 && errno == EINTR);
    if (count == static_cast<ssize_t>(request.size())) return true;
    if (count >= 0) errno = EIO;
    if (errno == EAGAIN) errno = ETIMEDOUT;
    return false;
}

// Connects and sends; a closed Descriptor on failure.
Descriptor ask(std::string_view prefix, const char* path)
{
    if (path == nullptr || *path == 0) return failed(EINVAL);
    std::string request(prefix);
    request += path;
    if (request.size() > CORVANE_DESCRIPTOR_REQUEST_MAX) return failed(ENAMETOOLONG);
    Descriptor connection = connected();
    if (!connection.is_open() || !send_request(connection, request)) return Descriptor();
    return connection;
}

// Takes the first descriptor out of a received message and closes any other.
Descriptor take_descriptor(msghdr& message)
{
    Descriptor taken;
    for (cmsghdr* at = CMSG_FIRSTHDR(&message); at != nullptr; at = CMSG_NXTHDR(&message, at)) {
        if (at->cmsg_level != SOL_SOCKET || at->cmsg_type != SCM_RIGHTS) continue;
        const std::size_t count = (at->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < count; ++i) {
            Descriptor one(load<int>(CMSG_DATA(at) + i * sizeof(int)));
            if (!taken.is_open()) taken = std::move(one);
        }
    }
    return taken;
}

Descriptor receive_descriptor(const Descriptor& connection)
{
    std::array<char, kReplyDataBytes> data{};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(kMostDescriptors * sizeof(int))> control{};
    iovec room{data.data(), data.size()};
    msghdr message{};
    message.msg_iov = &room;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    ssize_t count = 0;
    do {
        count = recvmsg(connection.get(), &message, MSG_CMSG_CLOEXEC);
    } while (count < 0 && errno == EINTR);
    if (count < 0) return failed(errno == EAGAIN ? ETIMEDOUT : errno);
    Descriptor descriptor = take_descriptor(message);
    if (!descriptor.is_open()) errno = EREMOTEIO;
    return descriptor;
}

int open_with(std::string_view prefix, const char* path)
{
    const Descriptor connection = ask(prefix, path);
    if (!connection.is_open()) return -1;
    Descriptor descriptor = receive_descriptor(connection);
    return descriptor.release();
}

// Waits until the daemon has closed the connection. Returns 0 or -1.
int wait_for_end(const Descriptor& connection)
{
    std::array<char, kReplyDataBytes> ignored{};
    for (;;) {
        const ssize_t count = recv(connection.get(), ignored.data(), ignored.size(), 0);
        if (count == 0) return 0;
        // A daemon that closes before it has read all resets the connection: it is done as well.
        if (count < 0 && errno == ECONNRESET) return 0;
        if (count < 0 && errno != EINTR) {
            if (errno == EAGAIN) errno = ETIMEDOUT;
            return -1;
        }
    }
}

// Runs `body`; memory that cannot be had becomes ENOMEM.
template <class Body>
int answer(Body body) noexcept
{
    try {
        return body();
    } catch (...) {
        errno = ENOMEM;
        return -1;
    }
}

}  // namespace
}  // namespace corvane

int corvane_open_descriptor(const char* path) noexcept
{
    return corvane::answer([path] {
        if (path == nullptr || *path != '/') {
            errno = EINVAL;
            return -1;
        }
        return corvane::open_with("", path);
    });
}

int corvane_open_log(const char* path) noexcept
{
    return corvane::answer([path] { return corvane::open_with("logop", path); });
}

int corvane_remove_log(const char* path) noexcept
{
    return corvane::answer([path] {
        const auto connection = corvane::ask("logrm", path);
        return connection.is_open() ? corvane::wait_for_end(connection) : -1;
    });
}

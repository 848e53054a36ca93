// One thread, a few connections, no waiting: a client that falls silent or does not read costs its
// own connection only.
#include "fsmdc/admin_server.hpp"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <optional>
#include <span>

#include "fsmdc/admin_session.hpp"
#include "mdcmain/log.hpp"
#include "osl/admin_protocol.hpp"
#include "osl/descriptor.hpp"
#include "osl/thread.h"

namespace corvane {
namespace {

// Root's places are its own: other users cannot keep it out.
constexpr std::size_t kPlacesOfRoot = 4;
constexpr std::size_t kPlaces = 12;
constexpr int kBacklog = 16;
constexpr std::int64_t kPatience_s = 10;                          // how long a client may be silent
constexpr std::size_t kRequestRoom = 2 * sizeof(admin::Request);  // a longer one shows as such

[[nodiscard]] std::int64_t steady_s() noexcept
{
    std::timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);  // cannot fail with this clock
    return now.tv_sec;
}

struct Connection {
    Connection(int socket, AdminPeer peer) noexcept
        : descriptor(socket), session(peer), heard_s(steady_s())
    {
    }
    Descriptor descriptor;
    AdminSession session;
    std::int64_t heard_s;
};

class AdminServer {
public:
    explicit AdminServer(int listener) noexcept : listener_(listener) {}

    [[noreturn]] void run() noexcept
    {
        for (;;) {
            wait();
            serve_clients();
            if ((events_[kPlaces].revents & POLLIN) != 0) accept_client();
            end_silent();
        }
    }

private:
    void wait() noexcept
    {
        for (std::size_t i = 0; i < kPlaces; ++i) {
            events_[i] = {connections_[i] ? connections_[i]->descriptor.get() : -1, POLLIN, 0};
        }
        events_[kPlaces] = {listener_.get(), POLLIN, 0};
        const bool has_clients = std::ranges::any_of(
            connections_, [](const auto& connection) { return connection.has_value(); });
        constexpr int kLook_ms = 1000;  // for silent clients
        const int ready = poll(events_.data(), events_.size(), has_clients ? kLook_ms : -1);
        if (ready >= 0) return;
        for (pollfd& event : events_) event.revents = 0;
        if (errno != EINTR) OSL_Sleep(kLook_ms);  // memory is short: later
    }

    void serve_clients() noexcept
    {
        for (std::size_t i = 0; i < kPlaces; ++i) {
            if (events_[i].revents != 0 && !serve(*connections_[i])) connections_[i].reset();
        }
    }

    // One request of one client. False when the connection is over.
    [[nodiscard]] bool serve(Connection& connection) noexcept
    {
        std::array<std::byte, kRequestRoom> request;
        const ssize_t got =
            recv(connection.descriptor.get(), request.data(), request.size(), MSG_DONTWAIT);
        if (got < 0 && (errno == EAGAIN || errno == EINTR)) return true;
        if (got <= 0) return false;
        connection.heard_s = steady_s();
        bool ends = false;
        const std::size_t length = connection.session.answer(
            std::span(request).first(static_cast<std::size_t>(got)), reply_, ends);
        const ssize_t sent =
            send(connection.descriptor.get(), reply_.data(), length, MSG_DONTWAIT | MSG_NOSIGNAL);
        return sent == static_cast<ssize_t>(length) && !ends;
    }

    void accept_client() noexcept
    {
        const int socket = accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0) {
            if (errno == EMFILE || errno == ENFILE || errno == ENOMEM) OSL_Sleep(100);
            return;
        }
        ucred peer{};
        socklen_t peer_bytes = sizeof peer;
        if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &peer_bytes) != 0) {
            (void)Descriptor(socket);  // closes it
            return;
        }
        place_for(peer.uid).emplace(socket, AdminPeer{peer.uid, peer.pid});
    }

    // A free place, or that of the one who was silent the longest.
    [[nodiscard]] std::optional<Connection>& place_for(uid_t uid) noexcept
    {
        const auto places = uid == 0 ? std::span(connections_).first(kPlacesOfRoot)
                                     : std::span(connections_).subspan(kPlacesOfRoot);
        const auto last_heard = [](const std::optional<Connection>& connection) {
            return connection ? connection->heard_s : -1;
        };
        return *std::ranges::min_element(places, {}, last_heard);
    }

    void end_silent() noexcept
    {
        const std::int64_t now_s = steady_s();
        for (auto& connection : connections_) {
            if (connection && now_s - connection->heard_s > kPatience_s) connection.reset();
        }
    }

    Descriptor listener_;
    std::array<std::optional<Connection>, kPlaces> connections_;
    std::array<pollfd, kPlaces + 1> events_{};
    std::array<std::byte, admin::kReplyBytes> reply_{};
};

void* serve(void* server) noexcept
{
    static_cast<AdminServer*>(server)->run();
}

// Returns the listening socket, or -1 with errno.
[[nodiscard]] int open_listener(std::uint32_t port) noexcept
{
    const int listener = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (listener < 0) return -1;
    const admin::Address address(port);
    if (bind(listener, address.get(), address.bytes) == 0 && listen(listener, kBacklog) == 0) {
        return listener;
    }
    const int reason = errno;
    (void)Descriptor(listener);  // closes it
    errno = reason;
    return -1;
}

}  // namespace

void start_administration(std::uint32_t port) noexcept
{
    const int listener = open_listener(port);
    if (listener < 0) {
        CORVANE_TRACE("No administration socket: %s\n", std::strerror(errno));
        return;
    }
    auto* const server = new (std::nothrow) AdminServer(listener);  // lives as long as the process
    if (server != nullptr && OSL_CreateThread(serve, server) == 0) return;
    CORVANE_TRACE("No administration: there is no memory or no thread for it\n");
    if (server == nullptr) (void)Descriptor(listener);
    delete server;
}

}  // namespace corvane

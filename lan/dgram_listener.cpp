// The server's side of the transport: listener threads on one socket, and the answers from it.
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "lan/dgram.h"
#include "lan/header.h"
#include "lan/result_codes.hpp"
#include "lan/socket.hpp"
#include "mdcmain/log.hpp"
#include "osl/bytes.hpp"
#include "osl/counters.hpp"
#include "osl/memory.h"
#include "osl/thread.h"

std::int32_t recvErrs = 0;

namespace corvane {
namespace {

constexpr std::size_t kBuffer_bytes = 65536;  // any UDP datagram
// About a millisecond of work, less than the scheduler lets a thread run when others wait.
constexpr int kRequestsPerTurn = 256;

// One listener's buffer. Behind the datagram it reads as zeros: a handler that looks past the end
// of a short request must not see an earlier one, which may have been another client's.
class ReceiveBuffer {
public:
    ReceiveBuffer() noexcept
        : bytes_(static_cast<std::byte*>(OSL_Calloc(kBuffer_bytes, allocation_tag("dcba"))))
    {
    }

    [[nodiscard]] bool is_valid() const noexcept { return bytes_ != nullptr; }
    [[nodiscard]] void* data() noexcept { return bytes_.get(); }

    [[nodiscard]] ssize_t receive(std::int32_t socket, sockaddr_in& sender) noexcept
    {
        sender = {};
        socklen_t sender_bytes = sizeof sender;
        const ssize_t received =
            recvfrom(socket, bytes_.get(), kBuffer_bytes, 0, as_sockaddr(sender), &sender_bytes);
        if (received >= 0) clear_behind(static_cast<std::size_t>(received));
        return received;
    }

private:
    void clear_behind(std::size_t received_bytes) noexcept
    {
        if (used_bytes_ > received_bytes) {
            std::memset(bytes_.get() + received_bytes, 0, used_bytes_ - received_bytes);
        }
        // A handler turns the whole header round in place, even one that did not come whole.
        used_bytes_ = std::max(received_bytes, sizeof(LanHeader));
    }

    osl_ptr<std::byte> bytes_;
    std::size_t used_bytes_ = 0;  // what the datagram before this one left
};

void count_failed_receive(ssize_t received) noexcept
{
    const std::int32_t total =
        std::atomic_ref<std::int32_t>(recvErrs).fetch_add(1, std::memory_order_relaxed) + 1;
    count_event(COUNTERS_EVENT_RECEIVE_ERROR);
    CORVANE_TRACE("FTX2006I DGRAM: failed recvfrom:%d (total recv errors %d)\n",
                  static_cast<int>(received), total);
}

void serve_one(const DgramListener& listener, ReceiveBuffer& buffer) noexcept
{
    DgramReplyAddr from{.socket = listener.socket, .sender = {}};
    const ssize_t received = buffer.receive(listener.socket, from.sender);
    if (received < 1) {
        count_failed_receive(received);
        return;
    }
    if (listener.handler == nullptr) return;
    const auto received_bytes = static_cast<std::int32_t>(received);
    CORVANE_TRACE("FTX2008I DGRAM: Server received message. size %d\n", received_bytes);
    CORVANE_TRACE("FTX2009I LANSERVER: received data\n");
    (void)listener.handler(buffer.data(), received_bytes, &from, listener.argument);
}

}  // namespace
}  // namespace corvane

std::uint32_t makeListenerSocket(std::uint16_t port, std::int32_t* socket) noexcept
{
    CORVANE_TRACE("FTX2005I creating a socket on port %d\n", port);
    auto bound = corvane::Socket::datagram();
    if (!bound.is_valid()) return DGRAM_E_NO_SOCKET;

    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    local.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(bound.descriptor(), corvane::as_sockaddr(local), sizeof local) != 0) {
        return DGRAM_E_BIND;
    }
    *socket = bound.release();
    return 0;
}

std::uint32_t DGRAM_BindListener(std::uint16_t port, DgramHandler handler, void* argument,
                                 std::int32_t thread_count) noexcept
{
    corvane::osl_ptr<DgramListener> listener(static_cast<DgramListener*>(
        OSL_Calloc(sizeof(DgramListener), corvane::allocation_tag("dcba"))));
    if (!listener) return DGRAM_E_NO_SOCKET;
    const std::uint32_t failure = makeListenerSocket(port, &listener->socket);
    if (failure != 0) return failure;

    listener->handler = handler;
    listener->argument = argument;
    listener->port = port;
    if (thread_count <= 0) return 0;  // the socket stays bound; nobody reads the record
    DgramListener* const shared = listener.release();  // the threads' for as long as we run
    for (std::int32_t i = 0; i < thread_count; ++i) {
        (void)OSL_CreateThread(PrimaryListener, shared);  // fewer threads still serve the port
    }
    return 0;
}

void* PrimaryListener(void* listener) noexcept
{
    corvane::ReceiveBuffer buffer;
    if (!buffer.is_valid()) {
        // A thread's result is a pointer; this one carries a number and is never followed.
        // NOLINTNEXTLINE(performance-no-int-to-ptr)
        return reinterpret_cast<void*>(std::uintptr_t{corvane::kMiscError});
    }
    const auto& shared = *static_cast<const DgramListener*>(listener);
    for (;;) {
        for (int i = 0; i < corvane::kRequestsPerTurn; ++i) corvane::serve_one(shared, buffer);
        // Under load the scheduler takes the processor away sooner or later. Now nobody's request
        // waits for us; a moment later one would be kept for as long as the other threads run.
        (void)sched_yield();  // always succeeds
    }
}

std::uint32_t DGRAM_SendReply(const DgramReplyAddr* sender, const void* reply,
                              std::uint32_t length_bytes) noexcept
{
    CORVANE_TRACE("FTX2010I DGRAM_sendReply sending %d bytes\n", static_cast<int>(length_bytes));
    const ssize_t sent = sendto(sender->socket, reply, length_bytes, 0,
                                corvane::as_sockaddr(sender->sender), sizeof sender->sender);
    if (sent == static_cast<ssize_t>(length_bytes)) return 0;
    corvane::count_event(COUNTERS_EVENT_SEND_ERROR);
    CORVANE_TRACE("FTX2011I DGRAM_sendReply sendto failed bytes returned:%d replyLength: %d\n",
                  static_cast<int>(sent), static_cast<int>(length_bytes));
    return DGRAM_E_SHORT_REPLY;
}

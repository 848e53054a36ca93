// An exchange with retries: the same request again until the reply that carries its identifier
// comes.
#include "lan/client.h"

#include <cstddef>
#include <cstring>

#include "lan/dgram.h"
#include "lan/header.h"
#include "lan/result_codes.hpp"
#include "lan/server.h"
#include "mdcmain/log.hpp"
#include "osl/bytes.hpp"
#include "osl/thread.h"

namespace corvane {
namespace {

constexpr std::int32_t kDefaultTimeout_s = 10;
constexpr std::int32_t kDefaultAttempts = 5;

// The bytes of a message that hold its identifier end here.
constexpr std::uint32_t kIdentifierEnd_bytes =
    offsetof(LanHeader, messageID) + sizeof(LanHeader::messageID);

// One attempt: an empty reply buffer, the exchange, and the test that the answer is to this
// request.
std::uint32_t attempt_exchange(const char* host, std::uint16_t port, const void* request,
                               void* reply, std::uint32_t& reply_length_bytes,
                               std::int32_t timeout_s) noexcept
{
    // A negative length, which callers may have in a signed word, is no room either.
    const bool has_room = reply != nullptr && static_cast<std::int32_t>(reply_length_bytes) > 0;
    const std::uint32_t room_bytes = has_room ? reply_length_bytes : 0;
    if (room_bytes > 0) std::memset(reply, 0, room_bytes);
    const auto length_bytes = load<LanHeader>(request).length;
    const std::uint32_t result = DGRAM_SendAndReceive(host, port, request, length_bytes, reply,
                                                      &reply_length_bytes, timeout_s);
    if (result != 0 || room_bytes == 0) return result;  // without room nothing was awaited
    if (room_bytes >= kIdentifierEnd_bytes && CompareHeaderId(request, reply) == 0) return 0;
    CORVANE_TRACE("message id mismatch\n");
    return LAN_E_MESSAGE_ID;
}

}  // namespace
}  // namespace corvane

std::uint32_t LAN_InitClient() noexcept
{
    CORVANE_TRACE("FTX2012I LAN_InitClient\n");
    (void)DGRAM_Init();  // always 0
    return 0;
}

std::uint32_t LAN_SendAndReceive(const char* host, std::int32_t port, const void* request,
                                 void* reply, std::uint32_t* reply_length_bytes) noexcept
{
    return LAN_SendAndReceiveWithTimeout(host, port, request, reply, reply_length_bytes,
                                         corvane::kDefaultTimeout_s, corvane::kDefaultAttempts);
}

std::uint32_t LAN_SendAndReceiveWithTimeout(const char* host, std::int32_t port,
                                            const void* request, void* reply,
                                            std::uint32_t* reply_length_bytes,
                                            std::int32_t timeout_s, std::int32_t attempts) noexcept
{
    std::uint32_t no_length = 0;
    std::uint32_t& length_bytes = reply_length_bytes == nullptr ? no_length : *reply_length_bytes;
    const std::uint32_t initial_length_bytes = length_bytes;
    std::uint32_t result = corvane::kMiscError;
    std::uint32_t started_ms = 0;
    std::int32_t attempt = 0;
    CORVANE_TRACE("FTX2011I LAN_SendAndReceive:   address:[%s] port:%d timeout:%d\n", host, port,
                  timeout_s);
    do {
        const std::uint32_t now_ms = OSL_GetClock();
        if (attempt > 0) {
            CORVANE_TRACE(
                "retry %d msg = %p reply = %p result=%d replylen=%d waittime(ms)=%d "
                "origReplyLength=%d\n",
                attempt, request, reply, static_cast<int>(result), static_cast<int>(length_bytes),
                static_cast<int>(now_ms - started_ms), static_cast<int>(initial_length_bytes));
            length_bytes = initial_length_bytes;
        }
        started_ms = now_ms;
        result = corvane::attempt_exchange(host, static_cast<std::uint16_t>(port), request, reply,
                                           length_bytes, timeout_s);
        ++attempt;
    } while (result != 0 && attempt < attempts);
    return result;
}

std::uint32_t LAN_ValidateMessageForDgram(const void* request, const void* reply,
                                          std::uint32_t reply_length_bytes) noexcept
{
    // The length first: a short reply has no whole identifier to look at.
    if (reply_length_bytes < sizeof(LanHeader)) return LAN_E_MESSAGE_ID;
    return CompareHeaderId(request, reply) == 0 ? 0 : LAN_E_MESSAGE_ID;
}

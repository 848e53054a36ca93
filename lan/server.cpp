// From a received datagram to its reply: header check, duplicate check, dispatch by function code.
#include "lan/server.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "lan/result_codes.hpp"
#include "lan/tracker_list.hpp"
#include "mdcmain/log.hpp"
#include "osl/bytes.hpp"
#include "osl/counters.hpp"
#include "osl/lock_guard.hpp"
#include "osl/memory.h"
#include "osl/shared_word.hpp"

namespace corvane {
namespace {

constexpr std::size_t kHeader_bytes = sizeof(LanHeader);

// One received message. Its header is worked on in a block of its own, so that what a handler does
// to the message does not change by what it is tracked; the message gets the translated one, too.
// The message has a whole header, however few bytes came: what came is what its sender says of it.
class Received {
public:
    Received(void* message, std::uint32_t length_bytes) noexcept
        : message_(static_cast<std::byte*>(message)), length_bytes_(length_bytes)
    {
        std::memcpy(header_.data(), message_, kHeader_bytes);
    }

    [[nodiscard]] void* header() noexcept { return header_.data(); }
    [[nodiscard]] LanHeader fields() const noexcept { return load<LanHeader>(header_.data()); }

    void write_header_back() noexcept { std::memcpy(message_, header_.data(), kHeader_bytes); }

    // Calls `handler` with the message itself, or, when it is shorter than `room_bytes`, with a
    // copy of LAN_REQUEST_ROOM bytes: where the message ends, zeros follow.
    [[nodiscard]] void* hand_to(LanHandler handler, const DgramReplyAddr* sender,
                                std::uint32_t room_bytes) noexcept
    {
        if (length_bytes_ >= std::min(room_bytes, LAN_REQUEST_ROOM)) {
            return handler(message_, sender);
        }
        alignas(std::max_align_t) std::array<std::byte, LAN_REQUEST_ROOM> padded;
        const std::size_t end = std::max<std::size_t>(length_bytes_, kHeader_bytes);
        std::memcpy(padded.data(), message_, end);
        std::memset(padded.data() + end, 0, padded.size() - end);
        return handler(padded.data(), sender);
    }

private:
    std::byte* message_;
    std::uint32_t length_bytes_;
    alignas(LanHeader) std::array<std::byte, kHeader_bytes> header_;
};

// What is known of a request: nothing yet (new), that it was answered before (`reply` is the stored
// answer), or that it is to be passed over in silence, its first copy still being at work.
struct Earlier {
    enum { kNew, kAnswered, kInProcess } state = kNew;
    void* reply = nullptr;
};

// Looks for an earlier copy of the request and lists it as in process if there is none: in one hold
// of the lock, so that of two copies that arrive together only one is executed.
Earlier look_up_or_register(LanServer& server, const DgramReplyAddr* sender,
                            const void* header) noexcept
{
    Earlier earlier;
    if (!wants_tracking(header)) return earlier;
    TrackerPtr entry = new_tracker({header, sender});  // before the lock; freed after it if unused

    const LockGuard guard(server.lock);
    std::int32_t is_duplicate = 0;
    earlier.reply = LAN_HandleDuplicate(&server, sender, header, &is_duplicate);
    if (is_duplicate == 0) {
        if (entry) TrackerList(server).append(std::move(entry));
    } else if (earlier.reply != nullptr) {
        earlier.state = Earlier::kAnswered;
    } else {
        earlier.state = Earlier::kInProcess;
        CORVANE_TRACE("Dropping duplicate message\n");
        store_shared(numDupsDropped, load_shared(numDupsDropped) + 1);
        count_event(COUNTERS_EVENT_DUPLICATE_DROPPED);
    }
    return earlier;
}

void* dispatch(const LanServer& server, Received& received, const DgramReplyAddr* sender) noexcept
{
    const std::int32_t code = received.fields().functionCode;
    if (code >= 0 && code < LAN_FUNCTION_CODES && server.handlers[code] != nullptr) {
        return received.hand_to(server.handlers[code], sender, server.request_room);
    }
    return BuildReply(received.header(), kUnknownFunction);
}

// Calls the handler of a new request and keeps its reply for later copies.
void* execute(LanServer& server, Received& received, const DgramReplyAddr* sender) noexcept
{
    void* const reply = dispatch(server, received, sender);
    LAN_RegisterComplete(&server, sender, received.header(), reply);
    return reply;
}

}  // namespace
}  // namespace corvane

std::uint32_t LAN_InitServer(LanServer** server) noexcept
{
    TrackMessages = getEnvInt("TRACK_MESSAGES", TrackMessages);
    MaxTrack = getEnvInt("MAX_TRACKED_MESSAGES", MaxTrack);
    if (TrackMessages != 0) {
        CORVANE_TRACE("Tracking %d messages for duplicate detection.\n", MaxTrack);
    } else {
        CORVANE_TRACE("Tracking messages for duplicate detection is DISABLED.\n");
    }
    *server =
        static_cast<LanServer*>(OSL_Calloc(sizeof(LanServer), corvane::allocation_tag("dcba")));
    if (*server == nullptr) return corvane::kOutOfMemory;
    // A semaphore of this process with the value 1 cannot be refused.
    (void)OSL_QuickLockCreate(&(*server)->lock, nullptr, 0xabcd);
    (*server)->head.next = &(*server)->head;
    (*server)->head.prev = &(*server)->head;
    corvane::TrackerList::create_index(**server);
    return 0;
}

std::uint32_t LAN_RegisterMessageHandler(LanServer* server, std::int32_t function_code,
                                         LanHandler handler) noexcept
{
    if (function_code < 0 || function_code >= LAN_FUNCTION_CODES) return 1;
    server->handlers[function_code] = handler;
    return 0;
}

void* LAN_ProcessMessage(void* message, std::uint32_t length_bytes, LanServer* server,
                         const DgramReplyAddr* sender) noexcept
{
    CORVANE_TRACE("LANSERVER: received message\n");
    corvane::Received received(message, length_bytes);
    void* reply = ValidateHeader(received.header());
    received.write_header_back();
    const std::uint32_t said_bytes = received.fields().length;
    // The length decides, not the refusal: that is null too when memory is short.
    if (said_bytes >= corvane::kHeader_bytes) {
        if (said_bytes > length_bytes) {
            CORVANE_TRACE("LANSERVER: header length %u;receive length mismatch %u\n", said_bytes,
                          length_bytes);
        }
        const auto earlier = corvane::look_up_or_register(*server, sender, received.header());
        if (earlier.state == corvane::Earlier::kInProcess) return nullptr;
        reply = earlier.state == corvane::Earlier::kAnswered
                    ? earlier.reply
                    : corvane::execute(*server, received, sender);
    }
    PurgeTrackerList(server);
    return reply;
}

std::int32_t getEnvInt(const char* name, std::int32_t default_value) noexcept
{
    const char* const value = std::getenv(name);
    // What atoi does here, with a defined result for every number.
    return value == nullptr ? default_value
                            : static_cast<std::int32_t>(std::strtol(value, nullptr, 10));
}

void* ValidateHeader(void* message) noexcept
{
    LANSUP_TransLanHeader(message);
    const std::uint32_t length_bytes = corvane::load<LanHeader>(message).length;
    constexpr auto kSmallest_bytes = static_cast<std::uint32_t>(corvane::kHeader_bytes);
    if (length_bytes >= kSmallest_bytes) return nullptr;
    CORVANE_TRACE(
        "LANSERVER: invalid message length, min allowed message length %u length received %u\n",
        kSmallest_bytes, length_bytes);
    return BuildReply(message, corvane::kInvalidLength);
}

void* BuildReply(const void* request, std::int32_t result) noexcept
{
    void* const reply = OSL_Calloc(sizeof(LanHeader), corvane::allocation_tag("dcba"));
    if (reply == nullptr) return nullptr;
    auto header = corvane::load<LanHeader>(request);
    header.length = sizeof(LanHeader);
    // Unsigned, so that the negation of every code is defined.
    header.functionCode =
        static_cast<std::int32_t>(0U - static_cast<std::uint32_t>(header.functionCode));
    header.result = result;
    corvane::store(reply, header);
    return reply;
}

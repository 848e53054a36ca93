// Sends requests through the LAN client and hands back checked replies.
#include "client/exchange.hpp"

#include <algorithm>
#include <utility>

#include "client/failure.hpp"
#include "fsmdc/fs_result.h"
#include "lan/client.h"

namespace corvane {
namespace {

// More than any datagram can hold: a reply that fills its buffer counts as too long.
constexpr std::size_t kReplyRoomBytes = 65536 + 64;

}  // namespace

Exchange::Exchange(Endpoint endpoint, const std::atomic<bool>* stop)
    : endpoint_(std::move(endpoint)), stop_(stop)
{
    (void)LAN_InitClient();  // always 0
}

void Exchange::throw_if_stopped() const
{
    if (is_stopped()) throw Failure(kInterrupted, "interrupted; run the command again");
}

Reply Exchange::ask(const Message& request) const
{
    return send(request, endpoint_.timeout_s, endpoint_.tries, /*heed_stop=*/true);
}

Reply Exchange::ask_within(const Message& request, std::int32_t timeout_s, std::int32_t tries) const
{
    return send(request, timeout_s, tries, /*heed_stop=*/false);
}

// One attempt a call, so that a wish to stop is heeded between attempts.
Reply Exchange::send(const Message& request, std::int32_t timeout_s, std::int32_t tries,
                     bool heed_stop) const
{
    std::uint32_t code = FS_E_MISC_ERROR;
    for (std::int32_t attempt = 0; attempt < std::max(tries, 1); ++attempt) {
        if (heed_stop) throw_if_stopped();
        std::vector<std::byte> buffer(kReplyRoomBytes);
        auto received_bytes = static_cast<std::uint32_t>(buffer.size());
        code = LAN_SendAndReceiveWithTimeout(endpoint_.host.c_str(), endpoint_.port, request.data(),
                                             buffer.data(), &received_bytes, timeout_s,
                                             /*attempts=*/1);
        if (code == 0)
            return Reply(std::move(buffer), received_bytes, load<LanHeader>(request.data()));
    }
    if (heed_stop) throw_if_stopped();
    fail(code, "asking " + endpoint_.host + " port " + std::to_string(endpoint_.port) + " failed");
}

}  // namespace corvane

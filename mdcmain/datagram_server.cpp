// The datagram server: the metadata service behind the LAN server behind the UDP port.
#include "mdcmain/datagram_server.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "fsmdc/messages.h"
#include "fsmdc/service.h"
#include "lan/dgram.h"
#include "lan/server.h"
#include "mdcmain/catalogue_message.hpp"
#include "mdcmain/segment.h"
#include "osl/bytes.hpp"
#include "osl/counters.hpp"

LanServer* info = nullptr;

namespace corvane {
namespace {

constexpr int32_t kTextBindFailed = 595;

struct Registration {
    int32_t function_code;
    LanHandler handler;
};
constexpr Registration kRegistrations[] = {
    {SP_GET_VOLUME, SP_LanGetVolume},
    {SP_GET_INITIAL_MAP, SP_LanGetInitialMap},
    {SP_GET_EXTENDED_MAP, SP_LanGetExtendedMap},
    {SP_SET_SIZE, SP_LanSetSize},
    {SP_CLOSE, SP_LanClose},
};

// A reply's outcome: a handler's stands behind the header, in a refusal by the LAN server the
// header has it.
uint32_t outcome_of(const void* reply, const LanHeader& header) noexcept
{
    const auto* const bytes = static_cast<const std::byte*>(reply);
    if (header.length < sizeof(LanHeader) + sizeof(uint32_t)) {
        return static_cast<uint32_t>(header.result);
    }
    return load<uint32_t>(bytes + sizeof(LanHeader));
}

}  // namespace
}  // namespace corvane

int32_t DgramServer(uint16_t port) noexcept
{
    (void)LAN_InitServer(&info);  // always 0
    info->compare_addresses = DGRAM_CompareAddresses;
    info->request_room = LAN_REQUEST_ROOM;
    (void)FSMDCSP_Init();  // a service without plug-ins answers, too
    for (const auto& [function_code, handler] : corvane::kRegistrations) {
        (void)LAN_RegisterMessageHandler(info, function_code, handler);  // 1 to 5 are valid
    }
    const uint32_t result =
        DGRAM_BindListener(port, DgramServer_MessageHandler, info, fused_getDgram());
    if (result == 0) return 0;
    corvane::log_message(corvane::kTextBindFailed, static_cast<int>(result));
    std::exit(EXIT_FAILURE);
}

int32_t DgramServer_MessageHandler(void* message, int32_t length_bytes, DgramReplyAddr* sender,
                                   void* server) noexcept
{
    const uint64_t received = corvane::latency_clock();
    const corvane::osl_ptr<void> reply(LAN_ProcessMessage(
        message, static_cast<uint32_t>(length_bytes), static_cast<LanServer*>(server), sender));
    if (reply == nullptr) return 0;
    const auto header = corvane::load<LanHeader>(reply.get());
    (void)DGRAM_SendReply(sender, reply.get(), header.length);  // the client asks again
    // The lowest code of all is its own negation: turned back in unsigned words, like the reply's.
    const auto function_code =
        static_cast<int32_t>(0U - static_cast<uint32_t>(header.functionCode));
    corvane::count_request(function_code, corvane::outcome_of(reply.get(), header),
                           corvane::latency_clock() - received);
    return 0;
}

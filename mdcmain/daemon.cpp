// The daemon's frame: global lock, log handlers, and the datagram server over the metadata service.
#include "mdcmain/daemon.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>

#include "fsmdc/messages.h"
#include "fsmdc/service.h"
#include "lan/dgram.h"
#include "lan/server.h"
#include "mdcmain/log.hpp"
#include "mdcmain/segment.hpp"
#include "mdcmain/startup.hpp"
#include "osl/bytes.hpp"
#include "osl/counters.hpp"
#include "osl/memory.h"

LanServer* info = nullptr;
sem_t g_corvanedsem;

namespace corvane {
namespace {

constexpr int32_t kTextBindFailed = 595;

// The level bands of the three handlers. They share no level; at 2 none of them writes.
struct Band {
    int32_t lowest;
    int32_t highest;
};
constexpr Band kTraceBand{.lowest = 3, .highest = INT32_MAX};
constexpr Band kPrintBand{.lowest = 1, .highest = 1};
constexpr Band kWarningBand{.lowest = 0, .highest = 0};

void log_within(const Band& band, const char* text) noexcept
{
    fused_mapShared();
    if (fs == nullptr) return;
    const int32_t level = load_shared(fs->logLevel);
    if (level >= band.lowest && level <= band.highest) sanos_log("corvaned: %s", text);
}

// Lets the slot turn a line away before it is formatted. Without a segment every line reaches the
// handler, which looks for itself.
void limit_slot(DebugSlot& slot, const Band& band) noexcept
{
    if (fs == nullptr) return;
    slot.lowest = band.lowest;
    slot.highest = band.highest;
    slot.level = &fs->logLevel;
}

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

void install_log_handlers() noexcept
{
    dbgSetOutputStringHandler(myDebug);
    dbgSetOutputStringHandler2(myDebug2);
    dbgSetOutputStringHandlerErr(myError);
    limit_slot(g_trace_slot, kTraceBand);
    limit_slot(g_print_slot, kPrintBand);
    limit_slot(g_warning_slot, kWarningBand);
}

}  // namespace corvane

int32_t corvaned_lockInit(void) noexcept
{
    return sem_init(&g_corvanedsem, /*pshared=*/0, /*value=*/1);
}

void corvaned_lock(void) noexcept
{
    while (sem_wait(&g_corvanedsem) != 0 && errno == EINTR) continue;
}

int32_t corvaned_unlock(void) noexcept
{
    return sem_post(&g_corvanedsem);
}

void myDebug(const char* text) noexcept
{
    corvane::log_within(corvane::kTraceBand, text);
}
void myDebug2(const char* text) noexcept
{
    corvane::log_within(corvane::kPrintBand, text);
}
void myError(const char* text) noexcept
{
    corvane::log_within(corvane::kWarningBand, text);
}

int32_t DgramServer(uint16_t port) noexcept
{
    (void)LAN_InitServer(&info);  // always 0
    info->compare_addresses = DGRAM_CompareAddresses;
    (void)FSMDCSP_Init();  // a service without plug-ins answers, too
    for (const auto& [function_code, handler] : corvane::kRegistrations) {
        (void)LAN_RegisterMessageHandler(info, function_code, handler);  // 1 to 5 are valid
    }
    const uint32_t result =
        DGRAM_BindListener(port, DgramServer_MessageHandler, info, fused_getDgram());
    if (result == 0) return 0;
    sanos_log(corvane::message_text(corvane::kTextBindFailed), result);
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
    corvane::count_request(-header.functionCode, corvane::outcome_of(reply.get(), header),
                           corvane::latency_clock() - received);
    return 0;
}

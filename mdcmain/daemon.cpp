// The daemon's frame: its global lock, and debug output led into the log by level.
#include "mdcmain/daemon.h"

#include <cerrno>
#include <cstdint>

#include "mdcmain/log.hpp"
#include "mdcmain/segment.hpp"
#include "mdcmain/startup.hpp"

sem_t g_corvanedsem;

namespace corvane {
namespace {

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

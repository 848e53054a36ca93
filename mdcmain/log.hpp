// What our own code needs of the log beyond log.h: traces that cost one compare when nobody would
// see them, and operator messages by number.
#ifndef CORVANE_MDCMAIN_LOG_HPP
#define CORVANE_MDCMAIN_LOG_HPP

#include <cstdint>

#include "mdcmain/log.h"
#include "osl/shared_word.hpp"

namespace corvane {

// One slot of debug output. The daemon's own handlers name the word and the band in which they
// write, so that a line outside the band is never formatted; any other handler takes every line.
struct DebugSlot {
    DbgStringHandler handler = nullptr;
    const std::int32_t* level = nullptr;  // null: the handler wants everything
    std::int32_t lowest = 0;              // writes when lowest <= *level <= highest
    std::int32_t highest = 0;

    [[nodiscard]] bool wanted() const noexcept
    {
        if (handler == nullptr) return false;
        if (level == nullptr) return true;
        const std::int32_t now = load_shared(*level);
        return now >= lowest && now <= highest;
    }
};

extern DebugSlot g_trace_slot;    // corvane_dbg, corvane_trace, corvane_error
extern DebugSlot g_print_slot;    // print
extern DebugSlot g_warning_slot;  // warning

// True when a trace line would reach somebody: guard dumps and costly arguments with it.
[[nodiscard]] inline bool trace_wanted() noexcept
{
    return g_trace_slot.wanted();
}

// The text of message `number` of set 2 of the daemon's catalogue; never null, not to be freed. A
// message that is nowhere reads "Error not defined\n".
[[nodiscard]] const char* message_text(std::int32_t number) noexcept;

}  // namespace corvane

// A trace line that is neither formatted nor called for when nobody listens.
#define CORVANE_TRACE(...)                                         \
    do {                                                           \
        if (::corvane::trace_wanted()) corvane_trace(__VA_ARGS__); \
    } while (false)

#endif

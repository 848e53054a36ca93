// Calls of plug-in entry points on the way of a request, each counted by slot and outcome.
#ifndef CORVANE_FSMDC_PLUGIN_CALLS_HPP
#define CORVANE_FSMDC_PLUGIN_CALLS_HPP

#include <cstdint>

#include "fsmdc/fs_result.h"
#include "fsmdc/loader.h"
#include "osl/counters.hpp"

namespace corvane {

// The slot of a plug-in; the first one in nearly every installation.
[[nodiscard]] inline unsigned slot_of(const FsLibrary* library) noexcept
{
    unsigned slot = 0;
    while (slot < FS_LIBRARY_SLOTS && libs[slot] != library) ++slot;
    return slot;
}

// Counts a call that returned `result`, and returns it. Partial maps and short allocations are
// answers, not refusals.
inline std::uint32_t counted(const FsLibrary* library, unsigned call, std::uint32_t result) noexcept
{
    const bool refused =
        result != FS_E_SUCCESS && result != FS_E_PARTIAL && result != FS_E_SHORT_ALLOC;
    count_plugin_call(slot_of(library), call, refused);
    return result;
}

}  // namespace corvane
#endif

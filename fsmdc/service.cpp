// Start-up of the metadata service, and its information dump.
#include "fsmdc/service.h"

#include <dlfcn.h>

#include <cstdint>

#include "fsmdc/dispatch.hpp"
#include "fsmdc/fs_plugin.h"
#include "fsmdc/fs_result.h"
#include "fsmdc/lease.h"
#include "fsmdc/lease_list.hpp"
#include "fsmdc/messages.h"
#include "fsmdc/plugin_calls.hpp"
#include "fsmdc/reply.hpp"
#include "lan/server.h"
#include "mdcmain/log.h"
#include "osl/lock_guard.hpp"
#include "osl/thread.h"

namespace corvane {
namespace {

// Keeps what the plug-in says its version is. False when it is not to be used.
[[nodiscard]] bool accept(FsLibrary& library) noexcept
{
    library.version = library.FS_GetVersion();
    return library.version < FS_PLUGIN_VERSION_LIMIT && library.FS_Init() == 0;
}

// The file that a plug-in was loaded from, for the counters.
[[nodiscard]] const char* file_of(const FsLibrary& library) noexcept
{
    Dl_info file{};
    const int found = dladdr(reinterpret_cast<const void*>(library.FS_GetVersion), &file);
    return found != 0 ? file.dli_fname : nullptr;
}

// A rejected plug-in leaves its slot empty; the next one goes into the next slot.
[[nodiscard]] std::uint32_t load_plug_ins() noexcept
{
    std::uint32_t result = FS_E_SUCCESS;
    for (FsLibrary*& slot : libs) {
        FsLibrary* const library = FSMDCSP_LoadNextLibrary();
        if (library == nullptr) break;
        slot = library;
        if (accept(*library)) {
            ++libCount;
            name_plugin(slot_of(library), file_of(*library));
        } else {
            slot = nullptr;
            result = FS_E_MISC_ERROR;
        }
    }
    return result;
}

}  // namespace
}  // namespace corvane

extern "C" {

std::uint32_t FSMDCSP_Init() noexcept
{
    corvane::reset_dispatchers();
    corvane::reset_leases();
    const std::uint32_t result = corvane::load_plug_ins();
    if (OSL_CreateThread(PurgeLeaseThread, nullptr) != 0) {
        sanos_log("FTX2028E The lease purge thread cannot be started\n");
    }
    return result;
}

void* SP_LanDumpInfo(void* request, const DgramReplyAddr*) noexcept
{
    {
        const corvane::LockGuard guard(leaseListLock);
        FSMDCSP_DumpKeyList();
    }
    LAN_DumpInfo();
    return SP_InitReply(request, SP_DUMP_INFO_FIXED_BYTES, nullptr);  // its result is 0
}

}  // extern "C"

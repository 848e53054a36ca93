// The SetSize handler: sets a leased file's size and renews the lease.
#include <cstdint>

#include "fsmdc/fs_result.h"
#include "fsmdc/lease.h"
#include "fsmdc/messages.h"
#include "fsmdc/plugin_calls.hpp"
#include "fsmdc/reply.hpp"
#include "fsmdc/service.h"
#include "mdcmain/log.hpp"

namespace corvane {
namespace {

// Sets the size and renews the lease; `lease_ms` and `library` stay as they are on failure to get
// there.
[[nodiscard]] std::uint32_t set_size(const void* request, std::uint32_t key,
                                     const FsLibrary*& library, std::int32_t& lease_ms) noexcept
{
    LeaseRecord lease;
    const std::uint32_t known = GetLeaseCopy(key, &lease);
    if (known != FS_E_SUCCESS) return known;
    library = GetLibrary(lease.volumeCookie);
    if (library == nullptr) return FS_E_NO_LIBRARY;
    const auto file_size = GET_FIELD(request, SetSizeRequest, filesize);
    // Here even space that could not all be allocated is a failure.
    const std::uint32_t result = counted(
        library, COUNTERS_CALL_SET_FILE_SIZES,
        library->FS_SetFileSizes(lease.volumeCookie, lease.fileCookie, 0, file_size, -1, -1));
    if (result != FS_E_SUCCESS) return result;
    const std::int32_t granted_ms = CalcLease(GET_FIELD(request, SetSizeRequest, lease),
                                              lease.intention, library, lease.volumeCookie);
    if (ChangeLeaseEntry(key, static_cast<std::uint32_t>(granted_ms)) != 0) {
        return FS_E_UNABLE_TO_SET_LEASE;
    }
    count_event(COUNTERS_EVENT_LEASE_RENEWED);
    lease_ms = granted_ms;
    return FS_E_SUCCESS;
}

}  // namespace
}  // namespace corvane

extern "C" void* SP_LanSetSize(void* request, const DgramReplyAddr*) noexcept
{
    SPSUP_TransLanSetSize(request);
    const auto key = GET_FIELD(request, SetSizeRequest, key);
    CORVANE_TRACE("FTX2023I SP_LanSetSize handler called key %d\n", static_cast<int>(key));
    SPSUP_DumpSetSizeMsg(request);

    const FsLibrary* library = nullptr;
    std::int32_t lease_ms = 0;
    const std::uint32_t result = corvane::set_size(request, key, library, lease_ms);
    void* const reply = SP_InitReply(request, SP_SET_SIZE_FIXED_BYTES, library);
    if (reply == nullptr) return nullptr;
    PUT_FIELD(reply, SetSizeReply, result, static_cast<std::int32_t>(result));
    PUT_FIELD(reply, SetSizeReply, lease, lease_ms);
    SPSUP_DumpSetSizeReply(reply);
    return reply;
}

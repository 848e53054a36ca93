// The Close handler: sets a file's final size and ends the lease.
#include <cstdint>

#include "fsmdc/fs_result.h"
#include "fsmdc/lease_list.hpp"
#include "fsmdc/map_file.hpp"
#include "fsmdc/messages.h"
#include "fsmdc/reply.hpp"
#include "fsmdc/service.h"
#include "mdcmain/log.hpp"

namespace corvane {
namespace {

// Finds the leased file and its plug-in.
[[nodiscard]] std::uint32_t find_leased(std::uint32_t key, MappedFile& file) noexcept
{
    if (GetCookiesFromList(key, file.volume_cookie, file.file_cookie) != FS_E_SUCCESS) {
        CORVANE_TRACE("SP_Close, key not found in list. 0x%x\n", key);
        return FS_E_INVALID_KEY;
    }
    file.library = GetLibrary(file.volume_cookie);
    if (file.library == nullptr) {
        CORVANE_TRACE("SP_Close, no library.\n");
        return FS_E_NO_LIBRARY;
    }
    LeaseRecord lease;
    if (peek_lease(key, &lease) != FS_E_SUCCESS) {  // the request has named it already
        CORVANE_TRACE("SP_Close, invalid key.0x%x\n", key);
        return FS_E_INVALID_KEY;
    }
    return FS_E_SUCCESS;
}

// The allocation is set to the file's size: a closed file keeps no space behind its end.
[[nodiscard]] std::uint32_t set_final_size(const MappedFile& file, std::uint32_t key,
                                           std::int64_t file_size) noexcept
{
    if (file_size == -1) return FS_E_SUCCESS;
    CORVANE_TRACE("FTX2025I LanClose calling FS_SetFileSize key %d\n", static_cast<int>(key));
    const std::uint32_t result = set_file_sizes(file, file_size, file_size);
    if (result != FS_E_SUCCESS) {
        constexpr char kLine[] = "SP_Close, FS_SetFileSizes returned error %d\n";
        CORVANE_TRACE(kLine, static_cast<int>(result));
        warning(kLine, static_cast<int>(result));
    }
    return result;
}

void end_lease(const MappedFile& file, std::uint32_t key) noexcept
{
    std::uint8_t volume_cookie[FS_COOKIE_BYTES];
    std::uint8_t file_cookie[FS_COOKIE_BYTES];
    const std::uint32_t result =
        RemoveLeaseFromList(key, volume_cookie, file_cookie, file.library, "SP_LANClose");
    if (result == FS_E_SUCCESS) return;
    warning(
        "SP_Close, RemoveLeaseFromList %d(0x%x) returned error %d, Likely removed by prior "
        "message.\n",
        static_cast<int>(key), key, static_cast<int>(result));
}

// The lease ends whether or not the size could be set.
[[nodiscard]] std::uint32_t close_file(const void* request, std::uint32_t key,
                                       MappedFile& file) noexcept
{
    const std::uint32_t found = find_leased(key, file);
    if (found != FS_E_SUCCESS) return found;
    const std::uint32_t resized =
        set_final_size(file, key, GET_FIELD(request, CloseRequest, filesize));
    end_lease(file, key);
    return static_cast<std::int32_t>(resized) >= 0 ? resized : FS_E_MISC_ERROR;
}

}  // namespace
}  // namespace corvane

extern "C" void* SP_LanClose(void* request, const DgramReplyAddr*) noexcept
{
    SPSUP_TransLanClose(request);
    const auto key = GET_FIELD(request, CloseRequest, key);
    CORVANE_TRACE("FTX2024I SP_LanClose handler called key %d\n", static_cast<int>(key));
    SPSUP_DumpCloseMsg(request);

    corvane::MappedFile file;
    const std::uint32_t result = corvane::close_file(request, key, file);
    void* const reply = SP_InitReply(request, SP_CLOSE_FIXED_BYTES, file.library);
    if (reply == nullptr) return nullptr;
    PUT_FIELD(reply, CloseReply, result, static_cast<std::int32_t>(result));
    SPSUP_DumpCloseReply(reply);
    return reply;
}

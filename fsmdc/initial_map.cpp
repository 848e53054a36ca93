// The GetInitialMap handler: finds a file, grants a lease, and maps the file under it.
#include <cstdint>

#include "fsmdc/fs_result.h"
#include "fsmdc/lease.h"
#include "fsmdc/map_file.hpp"
#include "fsmdc/messages.h"
#include "fsmdc/plugin_calls.hpp"
#include "fsmdc/reply.hpp"
#include "fsmdc/request_path.hpp"
#include "fsmdc/service.h"
#include "mdcmain/log.hpp"
#include "osl/share_name.h"
#include "osl/thread.h"

namespace corvane {
namespace {

constexpr ReplyDraft::Shape kShape{SP_GET_INITIAL_MAP_RECORD, SP_GET_INITIAL_MAP_FIXED_BYTES,
                                   SP_GET_INITIAL_MAP_FIXED_BYTES};
constexpr unsigned kPathUnits = 1024;

// The path of the requested file, in full. Returns 0, the share's code, or 406 without a file part.
[[nodiscard]] std::uint32_t build_path(const void* request, FSUNI (&full_path)[kPathUnits]) noexcept
{
    RequestPath path(bytes_at(request, offsetof(GetInitialMapRequest, path)));
    OSL_TransPath(path.first());
    FSUNI mount_point[kMountPointUnits];
    const std::uint32_t result =
        OSL_ShareNameToMountPoint(path.first(), mount_point, kMountPointUnits);
    if (result != FS_E_SUCCESS) return result;
    FSUNI* const file = path.second();
    OSL_TransPath(file);
    if (file == nullptr || file[0] == 0) return FS_E_INVALID_PATHNAME;
    FSUNI separator[2] = {GET_FIELD(request, LanHeader, spare2), 0};
    OSL_TransPath(separator);
    (void)ConcatFilenameToPath(file, mount_point, separator[0], full_path, sizeof full_path);
    return FS_E_SUCCESS;
}

// Asks each plug-in in slot order for the file. Fills in the library and both cookies, or returns
// 405.
[[nodiscard]] std::uint32_t find_owner(const FSUNI* full_path, MappedFile& file) noexcept
{
    for (FsLibrary* library : libs) {
        if (library == nullptr) continue;
        const std::uint32_t result =
            counted(library, COUNTERS_CALL_GET_COOKIES,
                    library->FS_GetCookies(full_path, file.volume_cookie, file.file_cookie));
        if (result == FS_E_SUCCESS) {
            file.library = library;
            return AddVolumeDispatcherToList(file.volume_cookie, library);
        }
        CORVANE_TRACE("FS_GetCookies returned %d\n", static_cast<int>(result));
    }
    return FS_E_NO_LIBRARY;
}

[[nodiscard]] std::uint32_t find_file(const void* request, MappedFile& file) noexcept
{
    FSUNI full_path[kPathUnits] = {};
    const std::uint32_t result = build_path(request, full_path);
    return result != FS_E_SUCCESS ? result : find_owner(full_path, file);
}

[[nodiscard]] bool is_mapped(std::uint32_t result) noexcept
{
    return result == FS_E_SUCCESS || result == FS_E_PARTIAL;
}

// Maps the file and sets its sizes, and maps it once more when its allocation changed. The result
// is that of the last call.
[[nodiscard]] std::uint32_t map_and_resize(const void* request, const MappedFile& file,
                                           std::uint32_t key, const ReplyDraft& draft) noexcept
{
    const auto flag = GET_FIELD(request, GetInitialMapRequest, flag);
    const auto file_size = GET_FIELD(request, GetInitialMapRequest, filesize);
    const auto allocation = GET_FIELD(request, GetInitialMapRequest, allocsize);
    std::uint32_t result = map_file(file, {0, -1, flag}, draft);
    if (!is_mapped(result) || (file_size == -1 && allocation == -1)) return result;
    CORVANE_TRACE("FTX2020I GetInitalMap calling FS_SetFileSize key %d\n", static_cast<int>(key));
    result = set_file_sizes(file, file_size, allocation);
    if (!is_mapped(result) || allocation == -1) return result;
    return map_file(file, {0, -1, flag | FS_M_FLAG_REMAP}, draft);
}

class InitialMap {
public:
    InitialMap(const void* request, const void* comm_cookie, const MappedFile& file,
               std::uint32_t begin_ms) noexcept
        : request_(request), comm_cookie_(comm_cookie), file_(file), begin_ms_(begin_ms)
    {
    }

    // Returns the result; `reply` stays null when there is no memory, or no room, for what the
    // plug-in says.
    [[nodiscard]] std::uint32_t run(Reply& reply) noexcept
    {
        CORVANE_TRACE("We have a lib...\n");
        const auto intention = GET_FIELD(request_, GetInitialMapRequest, intention);
        lease_ms_ = CalcLease(GET_FIELD(request_, GetInitialMapRequest, lease), intention,
                              file_.library, file_.volume_cookie);
        const ReplyDraft draft(request_, file_.library, kShape);
        if (!draft) return FS_E_OUT_OF_MEMORY;
        const std::uint32_t duration_ms = static_cast<std::uint32_t>(lease_ms_) + FS_LEASE_GRACE_MS;
        const bool is_granted =
            AddLeaseToList(file_.volume_cookie, file_.file_cookie,
                           bytes_at(request_, offsetof(LanHeader, messageID)), comm_cookie_,
                           intention, duration_ms, &key_, file_.library) == 0;
        std::uint32_t result =
            is_granted ? map_and_resize(request_, file_, key_, draft) : FS_E_OUT_OF_MEMORY;
        const std::uint32_t unsent = seal(draft, reply);
        if (unsent != FS_E_SUCCESS) result = unsent;
        if (is_granted) settle(result, reply.get());
        return result;
    }

private:
    // Makes the draft a reply. Returns 0, or why there can be none.
    [[nodiscard]] std::uint32_t seal(const ReplyDraft& draft, Reply& reply) const noexcept
    {
        const ReplySize size = draft.map_size();
        if (!draft.holds(size)) return FS_E_MISC_ERROR;
        reply = draft.copy(size);
        if (reply == nullptr) return FS_E_OUT_OF_MEMORY;
        PUT_FIELD(reply.get(), GetInitialMapReply, key, key_);
        return FS_E_SUCCESS;
    }

    // Keeps the lease of a map that will be sent, unless it is for an unlocked file; ends every
    // other.
    void settle(std::uint32_t result, void* reply) noexcept
    {
        const bool ends = !is_mapped(result) || hand_over(reply);
        if (!ends) return;
        CORVANE_TRACE("Removing lease from list in GetInitialMap 0x%x\n", key_);
        std::uint8_t volume_cookie[FS_COOKIE_BYTES];
        std::uint8_t file_cookie[FS_COOKIE_BYTES];
        // Someone else may have ended it meanwhile: then there is nothing left to do.
        (void)RemoveLeaseFromList(key_, volume_cookie, file_cookie, file_.library, "GetInitialMap");
    }

    // Fills in what goes with a map, and starts the lease anew. Returns true when it ends at once.
    [[nodiscard]] bool hand_over(void* reply) noexcept
    {
        std::memcpy(bytes_at(reply, offsetof(GetInitialMapReply, volumeCookie)),
                    file_.volume_cookie, FS_COOKIE_BYTES);
        std::memcpy(bytes_at(reply, offsetof(GetInitialMapReply, fileCookie)), file_.file_cookie,
                    FS_COOKIE_BYTES);
        const bool unlocked =
            (GET_FIELD(request_, GetInitialMapRequest, flag) & FS_M_FLAG_UNLOCKED) != 0;
        if (unlocked) lease_ms_ = lengthen(lease_ms_, begin_ms_);
        PUT_FIELD(reply, GetInitialMapReply, lease, lease_ms_);
        if (unlocked) {
            CORVANE_TRACE("FS_M_FLAG_UNLOCKED: Removing lease from list in GetInitialMap 0x%x\n",
                          key_);
        }
        (void)ChangeLeaseEntry(
            key_, static_cast<std::uint32_t>(lease_ms_));  // purged meanwhile: so be it
        return unlocked;
    }

    const void* request_;
    const void* comm_cookie_;
    const MappedFile& file_;
    std::uint32_t begin_ms_;
    std::int32_t lease_ms_ = 0;
    std::uint32_t key_ = 0;
};

}  // namespace
}  // namespace corvane

extern "C" void* SP_LanGetInitialMap(void* request, const DgramReplyAddr* sender) noexcept
{
    using namespace corvane;
    const std::uint32_t begin_ms = OSL_GetClock();
    CORVANE_TRACE("FTX2019I SP_LanGetInitialMap handler called\n");
    SPSUP_TransLanGetInitialMap(request);
    SPSUP_DumpGetInitialMapMsg(request);

    MappedFile file;
    Reply reply;
    std::uint32_t result = find_file(request, file);
    if (result == FS_E_SUCCESS) result = InitialMap(request, sender, file, begin_ms).run(reply);
    if (reply == nullptr) {
        reply.reset(SP_InitReply(request, SP_GET_INITIAL_MAP_FIXED_BYTES, file.library));
    }
    if (reply == nullptr) return nullptr;
    PUT_FIELD(reply.get(), GetInitialMapReply, result, static_cast<std::int32_t>(result));
    SPSUP_DumpGetInitialMapReply(reply.get());
    return reply.release();
}

// The GetVolume handler: describes the disks of a volume, named by its share or by its cookie.
#include <cstdint>

#include "fsmdc/fs_result.h"
#include "fsmdc/messages.h"
#include "fsmdc/plugin_calls.hpp"
#include "fsmdc/reply.hpp"
#include "fsmdc/request_path.hpp"
#include "fsmdc/service.h"
#include "mdcmain/log.hpp"
#include "osl/share_name.h"

namespace corvane {
namespace {

// A record without disks and without text makes a reply two bytes longer than the fixed one.
constexpr ReplyDraft::Shape kShape{SP_GET_VOLUME_RECORD, SP_GET_VOLUME_FIXED_BYTES,
                                   SP_GET_VOLUME_FIXED_BYTES + 2};

[[nodiscard]] void* volume_cookie_of(void* request) noexcept
{
    return bytes_at(request, offsetof(GetVolumeRequest, volumeCookie));
}

// Puts the cookie of the volume that `path` names into the request. When no plug-in claims the
// place, the request's own cookie stays and is looked up instead.
[[nodiscard]] std::uint32_t resolve_volume(void* request) noexcept
{
    RequestPath path(bytes_at(request, offsetof(GetVolumeRequest, path)));
    if (path.first()[0] == 0) return FS_E_SUCCESS;
    OSL_TransPath(path.first());
    FSUNI mount_point[kMountPointUnits];
    const std::uint32_t result =
        OSL_ShareNameToMountPoint(path.first(), mount_point, kMountPointUnits);
    if (result != FS_E_SUCCESS) return result;
    for (FsLibrary* library : libs) {
        if (library == nullptr) continue;
        if (counted(library, COUNTERS_CALL_GET_VOL_COOKIE,
                    library->FS_GetVolCookie(mount_point, volume_cookie_of(request))) != 0) {
            continue;
        }
        return AddVolumeDispatcherToList(volume_cookie_of(request), library);
    }
    return FS_E_SUCCESS;
}

// Has `library` describe the volume. `reply` stays null when there is no room for what it says.
[[nodiscard]] std::uint32_t describe_volume(void* request, const FsLibrary& library,
                                            Reply& reply) noexcept
{
    const ReplyDraft draft(request, &library, kShape);
    if (!draft) return FS_E_OUT_OF_MEMORY;
    std::uint32_t room_bytes = draft.room_bytes();
    const std::uint32_t result =
        counted(&library, COUNTERS_CALL_GET_VOL_BY_COOKIE,
                library.FS_GetVolByCookie(volume_cookie_of(request), draft.record(), &room_bytes));
    const ReplySize size = draft.volume_size();
    draft.note_written(size);
    if (!draft.holds(size)) return FS_E_MISC_ERROR;
    reply = draft.copy(size);
    return reply != nullptr ? result : FS_E_OUT_OF_MEMORY;
}

}  // namespace
}  // namespace corvane

extern "C" void* SP_LanGetVolume(void* request, const DgramReplyAddr*) noexcept
{
    using namespace corvane;
    CORVANE_TRACE("FTX2018I SP_LanGetVolume handler called\n");
    SPSUP_TransLanGetVolume(request);
    SPSUP_DumpGetVolumeMsg(request);

    std::uint32_t result = resolve_volume(request);
    const FsLibrary* library = nullptr;
    Reply reply;
    if (result == FS_E_SUCCESS) {
        library = GetLibrary(volume_cookie_of(request));
        result = library != nullptr ? describe_volume(request, *library, reply) : FS_E_NO_LIBRARY;
    }
    if (reply == nullptr) reply.reset(SP_InitReply(request, SP_GET_VOLUME_FIXED_BYTES, library));
    if (reply == nullptr) return nullptr;
    PUT_FIELD(reply.get(), GetVolumeReply, result, static_cast<std::int32_t>(result));
    SPSUP_DumpGetVolumeReply(reply.get());
    return reply.release();
}

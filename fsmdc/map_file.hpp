// What the two map handlers share: the plug-in calls on one file, and the time that a lease gains
// by them.
#ifndef CORVANE_FSMDC_MAP_FILE_HPP
#define CORVANE_FSMDC_MAP_FILE_HPP

#include <cstdint>

#include "fsmdc/fs_plugin.h"
#include "fsmdc/fs_result.h"
#include "fsmdc/loader.h"
#include "fsmdc/plugin_calls.hpp"
#include "fsmdc/records.h"
#include "fsmdc/reply.hpp"
#include "osl/thread.h"

namespace corvane {

// A file as its plug-in knows it.
struct MappedFile {
    FsLibrary* library = nullptr;
    std::uint8_t volume_cookie[FS_COOKIE_BYTES] = {};
    std::uint8_t file_cookie[FS_COOKIE_BYTES] = {};
};

struct MapRange {
    std::int64_t start;
    std::int64_t length;  // -1: to the end
    std::int32_t flag;
};

[[nodiscard]] inline std::uint32_t map_file(const MappedFile& file, const MapRange& range,
                                            const ReplyDraft& draft) noexcept
{
    std::uint32_t room_bytes = draft.room_bytes();
    const std::uint32_t result = counted(
        file.library, COUNTERS_CALL_GET_LOCKED_MAP,
        file.library->FS_GetLockedMap(file.volume_cookie, file.file_cookie, range.start,
                                      range.length, range.flag, draft.record(), &room_bytes));
    draft.note_written(draft.map_size());
    return result;
}

// Sets the sizes, of which -1 leaves one as it is. Space that could not all be allocated counts as
// done.
[[nodiscard]] inline std::uint32_t set_file_sizes(const MappedFile& file, std::int64_t file_size,
                                                  std::int64_t allocation) noexcept
{
    const std::uint32_t result =
        counted(file.library, COUNTERS_CALL_SET_FILE_SIZES,
                file.library->FS_SetFileSizes(file.volume_cookie, file.file_cookie, 0, file_size,
                                              allocation, -1));
    return result == FS_E_SHORT_ALLOC ? FS_E_SUCCESS : result;
}

// Adds to a lease the time that has passed since `begin_ms`, unless the clock went back.
[[nodiscard]] inline std::int32_t lengthen(std::int32_t lease_ms, std::uint32_t begin_ms) noexcept
{
    const std::uint32_t passed_ms = OSL_GetClock() - begin_ms;
    if (static_cast<std::int32_t>(passed_ms) <= 0) return lease_ms;
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(lease_ms) + passed_ms);
}

}  // namespace corvane
#endif

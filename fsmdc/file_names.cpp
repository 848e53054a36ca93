// Names of files, asked of the plug-ins.
#include "fsmdc/file_names.hpp"

#include <cstring>

#include "fsmdc/plugin_calls.hpp"

namespace corvane {
namespace {

struct Entry {
    const FsLibrary* library;
    PathEntry get_path;
};
// Written at start-up only. A rejected plug-in may leave an entry that nobody looks for.
Entry g_entries[2 * FS_LIBRARY_SLOTS];
std::size_t g_count = 0;

[[nodiscard]] PathEntry entry_of(const FsLibrary* library) noexcept
{
    for (const Entry& entry : std::span(g_entries).first(g_count)) {
        if (entry.library == library) return entry.get_path;
    }
    return nullptr;
}

}  // namespace

void set_path_entry(const FsLibrary* library, PathEntry entry) noexcept
{
    if (entry == nullptr || g_count == std::size(g_entries)) return;
    g_entries[g_count++] = {library, entry};
}

std::size_t file_name(const FsLibrary* library, const void* volume_cookie, const void* file_cookie,
                      std::span<char> name) noexcept
{
    const PathEntry get_path = library != nullptr ? entry_of(library) : nullptr;
    if (get_path == nullptr || name.empty()) return 0;
    auto room_bytes = static_cast<std::uint32_t>(name.size());
    const std::uint32_t result = get_path(volume_cookie, file_cookie, name.data(), &room_bytes);
    count_plugin_call(slot_of(library), COUNTERS_CALL_GET_PATH, result != FS_E_SUCCESS);
    if (result != FS_E_SUCCESS || room_bytes > name.size()) return 0;
    return strnlen(name.data(), room_bytes);
}

}  // namespace corvane

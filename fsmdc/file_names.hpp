// What people call a volume or a file, where its plug-in can tell. The plug-ins' optional entry for
// it stands beside their records, whose layout is fixed.
#ifndef CORVANE_FSMDC_FILE_NAMES_HPP
#define CORVANE_FSMDC_FILE_NAMES_HPP

#include <cstddef>
#include <cstdint>
#include <span>

#include "fsmdc/loader.h"

namespace corvane {

using PathEntry = std::uint32_t (*)(const void* volume_cookie, const void* file_cookie, char* path,
                                    std::uint32_t* room_bytes);

// Remembers the entry of a library (null: it has none). At start-up, on one thread.
void set_path_entry(const FsLibrary* library, PathEntry entry) noexcept;

// Writes the name, without a zero, into `name`. Returns its length in bytes, 0 when the plug-in
// cannot tell. `library` may be null; `file_cookie` null asks for the volume. Takes no lock.
[[nodiscard]] std::size_t file_name(const FsLibrary* library, const void* volume_cookie,
                                    const void* file_cookie, std::span<char> name) noexcept;

}  // namespace corvane
#endif

// Paths of files inside shares, in FSUNI.
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <iterator>

#include "fsmdc/message_span.hpp"
#include "fsmdc/service.h"
#include "mdcmain/log.hpp"
#include "osl/fsuni.h"

namespace corvane {
namespace {

constexpr std::size_t kUnitBytes = sizeof(FSUNI);

// Both lengths in units. Nothing is written unless the whole path fits.
void join(const FSUNI* name, std::size_t name_units, const FSUNI* directory,
          std::size_t directory_units, FSUNI* out, std::size_t out_bytes) noexcept
{
    if ((directory_units + name_units + 1) * kUnitBytes > out_bytes) return;
    std::memcpy(out, directory, directory_units * kUnitBytes);
    std::memcpy(out + directory_units, name, (name_units + 1) * kUnitBytes);
}

void join_with(FSUNI separator, const FSUNI* name, std::size_t name_units, const FSUNI* directory,
               std::size_t directory_units, FSUNI* out, std::size_t out_bytes) noexcept
{
    if (out_bytes > kUnitBytes * directory_units + 1) {
        std::memcpy(out, directory, (directory_units + 1) * kUnitBytes);
    }
    const bool is_separated = directory_units > 0 && directory[directory_units - 1] == separator;
    const std::size_t count = directory_units + (is_separated ? 0 : 1);
    const std::size_t used_bytes = kUnitBytes * count;
    if (out_bytes <= used_bytes) return;
    out[count - 1] = separator;
    const std::size_t free_bytes = out_bytes - used_bytes;
    if (free_bytes >= kUnitBytes)
        out[count] = 0;  // a name that does not fit leaves a text all the same
    if (name_units > 1 && name[0] == separator) {
        ++name;
        --name_units;
    }
    if (free_bytes <= kUnitBytes * name_units + 2) return;
    std::memcpy(out + count, name, (name_units + 1) * kUnitBytes);
}

}  // namespace
}  // namespace corvane

extern "C" {

FSUNI* ConcatFilenameToPath(const FSUNI* name, const FSUNI* directory, FSUNI separator, FSUNI* out,
                            std::uint32_t out_bytes) noexcept
{
    const std::size_t name_units = OSL_FSUNILength(name);
    const std::size_t directory_units = OSL_FSUNILength(directory);
    if (separator == 0) {
        corvane::join(name, name_units, directory, directory_units, out, out_bytes);
    } else {
        corvane::join_with(separator, name, name_units, directory, directory_units, out, out_bytes);
    }
    return out;
}

FSUNI* ConcatFilenameToPathOld(const FSUNI* name, const FSUNI* directory, FSUNI* out,
                               std::uint32_t out_bytes) noexcept
{
    return ConcatFilenameToPath(name, directory, 0, out, out_bytes);
}

FSUNI* GetNextString(FSUNI* area, std::uint32_t area_bytes) noexcept
{
    const std::size_t units = area_bytes / sizeof(FSUNI);
    const std::size_t length = corvane::text_units(area, units);
    return length + 1 < units ? area + length + 1 : nullptr;
}

void printFSUNI(const FSUNI* text) noexcept
{
    if (text == nullptr || !corvane::trace_wanted()) return;
    wchar_t wide[1024];
    std::size_t units = 0;
    for (; units + 1 < std::size(wide) && text[units] != 0; ++units) {
        // A character that the process's locale cannot write would make the whole line fail.
        char narrow[MB_LEN_MAX];
        std::mbstate_t state{};
        const auto unit = static_cast<wchar_t>(text[units]);
        wide[units] =
            std::wcrtomb(narrow, unit, &state) == static_cast<std::size_t>(-1) ? L'?' : unit;
    }
    wide[units] = L'\0';
    corvane_trace("FTX2013I [%ls]\n", wide);
}

}  // extern "C"

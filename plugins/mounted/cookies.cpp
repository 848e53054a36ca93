// Writes and checks the 32-byte cookies of files.
#include "plugins/mounted/cookies.hpp"

#include <algorithm>
#include <cstring>
#include <type_traits>

#include "fsmdc/records.h"

namespace corvane::mounted {
namespace {

struct FileCookie {
    std::array<char, 2> mark;                             //  0: "M1"
    std::uint8_t type;                                    //  2
    std::uint8_t size;                                    //  3
    std::array<std::uint8_t, FileId::kMostBytes> handle;  //  4
    Uuid volume;                                          // 16
};
static_assert(sizeof(FileCookie) == FS_COOKIE_BYTES, "layout");
static_assert(std::has_unique_object_representations_v<FileCookie>, "no padding");

constexpr std::array<char, 2> kFileMark = {'M', '1'};

}  // namespace

void write_file_cookie(const Uuid& volume, const FileId& file, void* cookie) noexcept
{
    const FileCookie value{kFileMark, file.type, file.size, file.handle, volume};
    std::memcpy(cookie, &value, sizeof value);
}

std::optional<FileId> read_file_cookie(const Uuid& volume, const void* cookie) noexcept
{
    if (cookie == nullptr) return std::nullopt;
    FileCookie value{};
    std::memcpy(&value, cookie, sizeof value);
    if (value.mark != kFileMark || value.volume != volume) return std::nullopt;
    if (value.size == 0 || value.size > FileId::kMostBytes) return std::nullopt;
    const bool is_padded = std::all_of(value.handle.begin() + value.size, value.handle.end(),
                                       [](std::uint8_t byte) { return byte == 0; });
    if (!is_padded) return std::nullopt;
    return FileId{value.type, value.size, value.handle};
}

}  // namespace corvane::mounted

// Writes and checks the 32-byte cookies of files.
#include "plugins/ext/cookies.hpp"

#include <cstring>
#include <type_traits>

#include "fsmdc/records.h"

namespace corvane::ext {
namespace {

struct FileCookie {
    std::array<char, 4> mark;  //  0: "CVX1"
    std::uint32_t inode;       //  4
    std::uint32_t generation;  //  8
    std::uint32_t zero;        // 12
    Uuid volume;               // 16
};
static_assert(sizeof(FileCookie) == FS_COOKIE_BYTES, "layout");
static_assert(std::has_unique_object_representations_v<FileCookie>, "no padding");

constexpr std::array<char, 4> kFileMark = {'C', 'V', 'X', '1'};

}  // namespace

void write_file_cookie(const Uuid& volume, FileId file, void* cookie) noexcept
{
    const FileCookie value{kFileMark, file.inode, file.generation, 0, volume};
    std::memcpy(cookie, &value, sizeof value);
}

std::optional<FileId> read_file_cookie(const Uuid& volume, const void* cookie) noexcept
{
    if (cookie == nullptr) return std::nullopt;
    FileCookie value{};
    std::memcpy(&value, cookie, sizeof value);
    if (value.mark != kFileMark || value.zero != 0 || value.volume != volume) return std::nullopt;
    return FileId{value.inode, value.generation};
}

}  // namespace corvane::ext

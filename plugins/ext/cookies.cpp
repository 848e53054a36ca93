// Writes and checks the 32-byte cookies of volumes and files.
#include "plugins/ext/cookies.hpp"

#include <cstring>
#include <type_traits>

#include "fsmdc/records.h"

namespace corvane::ext {
namespace {

struct VolumeCookie {
    std::array<char, 8> mark;          //  0: "CVEXTV1\0"
    Uuid volume;                       //  8
    std::array<std::uint8_t, 8> zero;  // 24
};
static_assert(sizeof(VolumeCookie) == FS_COOKIE_BYTES, "layout");

struct FileCookie {
    std::array<char, 4> mark;  //  0: "CVX1"
    std::uint32_t inode;       //  4
    std::uint32_t generation;  //  8
    std::uint32_t zero;        // 12
    Uuid volume;               // 16
};
static_assert(sizeof(FileCookie) == FS_COOKIE_BYTES, "layout");
static_assert(std::has_unique_object_representations_v<FileCookie>, "no padding");

constexpr std::array<char, 8> kVolumeMark = {'C', 'V', 'E', 'X', 'T', 'V', '1', '\0'};
constexpr std::array<char, 4> kFileMark = {'C', 'V', 'X', '1'};

}  // namespace

void write_volume_cookie(const Uuid& volume, void* cookie) noexcept
{
    const VolumeCookie value{kVolumeMark, volume, {}};
    std::memcpy(cookie, &value, sizeof value);
}

std::optional<Uuid> read_volume_cookie(const void* cookie) noexcept
{
    VolumeCookie value{};
    std::memcpy(&value, cookie, sizeof value);
    if (value.mark != kVolumeMark || value.zero != decltype(value.zero){}) return std::nullopt;
    return value.volume;
}

void write_file_cookie(const Uuid& volume, FileId file, void* cookie) noexcept
{
    const FileCookie value{kFileMark, file.inode, file.generation, 0, volume};
    std::memcpy(cookie, &value, sizeof value);
}

std::optional<FileId> read_file_cookie(const Uuid& volume, const void* cookie) noexcept
{
    FileCookie value{};
    std::memcpy(&value, cookie, sizeof value);
    if (value.mark != kFileMark || value.zero != 0 || value.volume != volume) return std::nullopt;
    return FileId{value.inode, value.generation};
}

}  // namespace corvane::ext

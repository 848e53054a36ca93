// The cookie by which a plug-in knows its volumes between two calls, and over restarts.
#ifndef CORVANE_PLUGINS_COMMON_VOLUME_COOKIE_HPP
#define CORVANE_PLUGINS_COMMON_VOLUME_COOKIE_HPP

#include <array>
#include <cstdint>
#include <optional>

namespace corvane::plugin {

using Uuid = std::array<std::uint8_t, 16>;

// The first bytes of a plug-in's volume cookies: whose they are, in which version.
using VolumeMark = std::array<char, 8>;

// A volume cookie: 8 bytes of mark, the file system's UUID, 8 zeros.
void write_volume_cookie(const VolumeMark& mark, const Uuid& volume, void* cookie) noexcept;
// Absent for a null or another plug-in's cookie.
std::optional<Uuid> read_volume_cookie(const VolumeMark& mark, const void* cookie) noexcept;

}  // namespace corvane::plugin

#endif

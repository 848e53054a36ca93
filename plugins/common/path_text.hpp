// Paths as the daemon hands them over (FSUNI units) and as the disk holds them (bytes, UTF-8).
#ifndef CORVANE_PLUGINS_COMMON_PATH_TEXT_HPP
#define CORVANE_PLUGINS_COMMON_PATH_TEXT_HPP

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "osl/types.h"

namespace corvane::plugin {

// One name of a path in the two readings it may have. The daemon widens the bytes of a mount point
// one by one and with their sign, so byte 0xC3 arrives as unit 0xFFC3; what a client sent is
// UTF-16. The two meet in one path, and 0xFF80..0xFFFF are also characters of their own.
struct PathName {
    std::optional<std::string> utf8;  // absent when a surrogate is unpaired
    std::optional<std::string>
        bytes;  // present when some unit is 0xFF80..0xFFFF, the rest below 0x80

    // Whether either reading is `name`.
    [[nodiscard]] bool is(const std::string& name) const;
};

// Splits an absolute path at "/"; empty names and "." are dropped, ".." stays. Absent for a null or
// relative path, or one that does not end within 4096 units.
std::optional<std::vector<PathName>> split_path(const FSUNI* path);

// The names of a symbolic link's target; empty ones and "." are dropped, ".." stays.
std::vector<PathName> split_target(const std::string& target);

// Returns how many leading names of `path` the mount point takes, or nothing when it lies
// elsewhere.
std::optional<std::size_t> match_mount_point(std::span<const PathName> path,
                                             std::span<const std::string> mount_names);

}  // namespace corvane::plugin

#endif

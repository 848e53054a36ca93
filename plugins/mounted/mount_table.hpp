// What is mounted at a path.
#ifndef CORVANE_PLUGINS_MOUNTED_MOUNT_TABLE_HPP
#define CORVANE_PLUGINS_MOUNTED_MOUNT_TABLE_HPP

#include <sys/types.h>

#include <optional>
#include <string>

namespace corvane::mounted {

struct MountEntry {
    dev_t device = 0;
    std::string type;     // "ext4"
    std::string options;  // of the file system: "rw,data=ordered"

    [[nodiscard]] bool has_option(const std::string& name) const;  // "ro", "data=journal", "rtdev="
};

// Returns what lies uppermost at a mount point, from /proc/self/mountinfo; nothing when the path is
// no mount point.
std::optional<MountEntry> find_mount(const std::string& path);

}  // namespace corvane::mounted

#endif

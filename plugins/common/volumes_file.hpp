// The operator's list of volumes: which ones this plug-in serves, and how.
#ifndef CORVANE_PLUGINS_COMMON_VOLUMES_FILE_HPP
#define CORVANE_PLUGINS_COMMON_VOLUMES_FILE_HPP

#include <cstdint>
#include <string>
#include <vector>

namespace corvane::plugin {

struct VolumeLine {
    std::vector<std::string> mount_names;  // the mount point's names: "/mnt/a" is {"mnt", "a"}
    std::string source;  // image file or block device; empty where the kind has none
    bool writable = false;
    std::int32_t max_read_s = 0;   // longest read lease; 0: the daemon's default
    std::int32_t max_write_s = 0;  // longest write lease; 0: the daemon's default
    std::string where;             // "FILE:LINE", for log lines

    [[nodiscard]] std::string mount_point() const;
};

// Returns the path of the list: CORVANE_VOLUMES_FILE, else /usr/Corvane/volumes.conf.
std::string volumes_file_path();

// What a plug-in's lines look like.
struct LineKind {
    std::string name;
    bool has_source = true;  // a third field names the image or device
};

// Reads the lines of one kind. A bad one is logged with its place and left out; lines of other
// kinds belong to other plug-ins. A file that cannot be read gives no volumes and one log line.
std::vector<VolumeLine> read_volumes_file(const std::string& path, const LineKind& kind);

}  // namespace corvane::plugin

#endif

// Where the files of a volume were found: the way back from an inode to a path, for people who
// ask who holds what.
#ifndef CORVANE_PLUGINS_EXT_FILE_NAMES_HPP
#define CORVANE_PLUGINS_EXT_FILE_NAMES_HPP

#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>

namespace corvane::ext {

// Keeps the directory and the name of each inode that a path led through; of a file with several
// names, the last one. A served volume is ours alone and nothing here changes directories, so what
// was found once stays true. Has a lock of its own, which is never held over anything slow.
class FileNames {
public:
    // Remembers that `inode` was found in `directory`. A full table begins anew: that bounds what
    // clients can make it hold, and until their next look-up it costs some files their names.
    void add(std::uint32_t directory, const std::string& name, std::uint32_t inode);

    // Returns the path below the volume's root, beginning with "/"; empty when a part of the way is
    // not known.
    [[nodiscard]] std::string path_of(std::uint32_t inode) const;

private:
    struct Place {
        std::uint32_t directory = 0;
        std::string name;
    };

    mutable std::mutex mutex_;
    std::unordered_map<std::uint32_t, Place> places_;  // by inode
};

}  // namespace corvane::ext

#endif

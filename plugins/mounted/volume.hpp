// One served volume: where it is mounted, what it is made of, and its lent files.
#ifndef CORVANE_PLUGINS_MOUNTED_VOLUME_HPP
#define CORVANE_PLUGINS_MOUNTED_VOLUME_HPP

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "plugins/common/log.hpp"
#include "plugins/common/path_text.hpp"
#include "plugins/common/volumes_file.hpp"
#include "plugins/mounted/block_tree.hpp"
#include "plugins/mounted/cookies.hpp"
#include "plugins/mounted/descriptor.hpp"
#include "plugins/mounted/file_table.hpp"
#include "plugins/mounted/signature.hpp"
#include "plugins/mounted/superblock.hpp"

namespace corvane::mounted {

using plugin::log_line;
using plugin::PathName;
using plugin::VolumeLine;

// All but `files` never changes once it is made. Any thread.
struct Volume {
    VolumeLine line;
    dev_t device = 0;
    Superblock super;
    std::uint64_t magic = 0;       // of the file system, as statfs says it
    std::uint32_t unit_bytes = 0;  // what records count in: a block, or less where disks cut blocks
    BlockTree tree;
    std::vector<Signature> signatures;        // one a disk
    std::vector<std::uint64_t> slice_starts;  // one a disk: bytes from its start
    mutable FileTable files;

    [[nodiscard]] std::uint32_t block_bytes() const noexcept { return super.block_bytes; }
    [[nodiscard]] const Uuid& uuid() const noexcept { return super.uuid; }
    void report(const std::string& text) const;  // logs TEXT with the volume's mount point

    // Opens the directory that the volume is mounted at. FS_E_MISC_ERROR, and a line in the log,
    // when it is not what was mounted there at the start.
    std::uint32_t open_root(Descriptor& root) const;

    // Whether its disks are put together as they were at the start.
    [[nodiscard]] bool has_same_disks() const;

    // Reads from the volume's disks, past the page cache; the place is in the mounted device.
    bool read(std::uint64_t place, std::span<std::byte> bytes) const;
};

// Examines what one line of the list names. On failure returns null and says in `wrong` why.
std::unique_ptr<Volume> open_volume(const VolumeLine& line, std::string& wrong);

// Each of the following returns a result code of fs_result.h.

// Writes the volume record.
std::uint32_t describe_volume(const Volume& volume, void* record, std::uint32_t& room_bytes);

// Finds the file that `names` lead to from the volume's root. Symbolic links and ".." in them are
// followed inside the volume and never out of it; ".." in `names` itself is refused.
std::uint32_t find_file(const Volume& volume, std::span<const PathName> names, FileId& file);

// The same for a directory.
std::uint32_t find_directory(const Volume& volume, std::span<const PathName> names);

}  // namespace corvane::mounted

#endif

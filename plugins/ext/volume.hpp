// One served volume: what it is made of, and what may be asked of it. Any thread may call; the lock
// `io` is taken inside, since libext2fs knows no threads.
#ifndef CORVANE_PLUGINS_EXT_VOLUME_HPP
#define CORVANE_PLUGINS_EXT_VOLUME_HPP

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>

#include "plugins/common/log.hpp"
#include "plugins/common/path_text.hpp"
#include "plugins/common/volumes_file.hpp"
#include "plugins/ext/cookies.hpp"
#include "plugins/ext/ext_handles.hpp"
#include "plugins/ext/file_locks.hpp"
#include "plugins/ext/file_names.hpp"
#include "plugins/ext/layout.hpp"
#include "plugins/ext/name_cache.hpp"
#include "plugins/ext/source.hpp"

namespace corvane::ext {

using plugin::log_line;
using plugin::PathName;
using plugin::VolumeLine;

struct Volume {
    VolumeLine line;
    Uuid uuid{};
    Source source;  // outlives `fs`
    FileSystem fs;
    MetadataZones zones;
    FileLocks locks;  // has a lock of its own
    FileNames found;  // the same
    std::mutex io;    // guards `fs` and everything below; taken before the lock of `locks`
    NameCache names;
    bool is_broken = false;  // a change failed half-way: nothing more is changed before e2fsck

    [[nodiscard]] std::uint32_t block_bytes() const noexcept { return fs->blocksize; }
    void report(const std::string& text) const;  // logs TEXT with the volume's mount point
};

// One file while a call works on it.
struct OpenFile {
    FileId id;
    ext2_inode inode{};

    [[nodiscard]] std::uint64_t size_bytes() const noexcept
    {
        return (std::uint64_t{inode.i_size_high} << 32) | inode.i_size;
    }
    [[nodiscard]] bool has_extents() const noexcept
    {
        return (inode.i_flags & EXT4_EXTENTS_FL) != 0;
    }
};

struct MapRequest {
    std::int64_t start = 0;
    std::int64_t length = -1;  // negative: to the end
    std::int32_t flag = 0;
};

// Opens the volume of one line of the list. On failure returns null and says in `wrong` why, and
// what to do.
std::unique_ptr<Volume> open_volume(const VolumeLine& line, std::string& wrong);

// Each of the following returns a result code of fs_result.h.

// Writes the volume record.
std::uint32_t describe_volume(Volume& volume, void* record, std::uint32_t& room_bytes);

// Finds the file that `names` lead to from the volume's root. Symbolic links and ".." in them are
// followed inside the volume and never out of it; ".." in `names` itself is refused.
std::uint32_t find_file(Volume& volume, std::span<const PathName> names, FileId& file);

// Writes the path of the file, or without one the volume's mount point, with a zero behind it.
std::uint32_t write_path(const Volume& volume, std::optional<FileId> file, std::span<char> room,
                         std::uint32_t& used_bytes);

// find_file for a directory.
std::uint32_t find_directory(Volume& volume, std::span<const PathName> names);

std::uint32_t map_file(Volume& volume, FileId file, const MapRequest& request, void* record,
                       std::uint32_t& room_bytes);
std::uint32_t unlock_file(Volume& volume, FileId file);

// Sizes in bytes; -1: unchanged.
std::uint32_t set_file_sizes(Volume& volume, FileId file, std::int64_t file_size,
                             std::int64_t allocation_size);

// For the calls above, with `io` held:

// Reads the inode; FS_E_BAD_FILE when it is not (or no longer) the file that the cookie meant.
std::uint32_t load_file(Volume& volume, FileId id, OpenFile& file);

// FS_E_NO_DIRECT for what cannot be read block by block: directories, special files, files whose
// bytes lie in the inode, or are encrypted, compressed or verified.
std::uint32_t check_direct_access(const OpenFile& file);

// Returns the file's checked layout (kept while the file is locked), or null after logging the
// damage.
std::shared_ptr<const Layout> load_layout(Volume& volume, OpenFile& file);

// Frees what unlocked files left behind.
void settle_returned(Volume& volume);

}  // namespace corvane::ext

#endif

// Walks paths inside a volume, symbolic links included, without ever leaving it.
#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "plugins/ext/volume.hpp"

namespace corvane::ext {
namespace {

constexpr int kLinkLimit = 40;  // as many links as the kernel follows

bool is_directory(const ext2_inode& inode)
{
    return LINUX_S_ISDIR(inode.i_mode);
}

class Walk {
public:
    explicit Walk(Volume& volume) : volume_(volume) {}

    // Leaves the inode found in `number` and `inode`.
    std::uint32_t go(std::span<const PathName> names)
    {
        push_names(names);
        std::uint32_t result = enter(EXT2_ROOT_INO);
        while (result == FS_E_SUCCESS && !pending_.empty()) {
            const PathName name = std::move(pending_.back());
            pending_.pop_back();
            result = step(name);
        }
        return result;
    }

    ext2_ino_t number = 0;
    ext2_inode inode{};

private:
    void push_names(std::span<const PathName> names)
    {
        pending_.insert(pending_.end(), names.rbegin(), names.rend());
    }

    // Makes an inode the place where the walk stands.
    std::uint32_t enter(ext2_ino_t entered)
    {
        ext2_inode read{};
        if (const auto result = read_inode(entered, read); result != FS_E_SUCCESS) return result;
        path_.push_back(entered);
        number = entered;
        inode = read;
        return FS_E_SUCCESS;
    }

    std::uint32_t read_inode(ext2_ino_t wanted, ext2_inode& read)
    {
        const auto* super = volume_.fs->super;
        const bool is_reserved = wanted != EXT2_ROOT_INO && wanted < EXT2_FIRST_INODE(super);
        if (wanted == 0 || is_reserved || wanted > super->s_inodes_count) return FS_E_MISC_ERROR;
        if (errcode_t error = ext2fs_read_inode(volume_.fs.get(), wanted, &read)) {
            return to_result(error);
        }
        return read.i_links_count != 0 ? FS_E_SUCCESS : FS_E_UNKNOWN_FILE;
    }

    std::uint32_t step(const PathName& name)
    {
        if (!is_directory(inode)) return FS_E_UNKNOWN_FILE;
        if (name.is("..")) return step_up();
        if ((inode.i_flags & EXT4_ENCRYPT_FL) != 0) return FS_E_NO_DIRECT;
        if (!name.utf8 && !name.bytes) return FS_E_BAD_PATH;
        ext2_ino_t found = 0;
        std::uint32_t result = look_up(name.utf8, found);
        if (result == FS_E_UNKNOWN_FILE) result = look_up(name.bytes, found);
        if (result != FS_E_SUCCESS) return result;
        ext2_inode read{};
        result = read_inode(found, read);
        if (result != FS_E_SUCCESS) return result;
        return LINUX_S_ISLNK(read.i_mode) ? follow(found, read) : enter(found);
    }

    // Only symbolic links contain "..": at the root it would leave the volume.
    std::uint32_t step_up()
    {
        if (path_.size() < 2) return FS_E_BAD_PATH;
        path_.pop_back();
        const ext2_ino_t parent = path_.back();
        path_.pop_back();
        return enter(parent);
    }

    std::uint32_t look_up(const std::optional<std::string>& name, ext2_ino_t& found)
    {
        if (!name || name->size() > EXT2_NAME_LEN) return FS_E_UNKNOWN_FILE;
        found = volume_.names.find(number, *name);
        if (found == 0) {
            const errcode_t error = ext2fs_lookup(volume_.fs.get(), number, name->data(),
                                                  static_cast<int>(name->size()), nullptr, &found);
            if (error != 0) return to_result(error);
            volume_.names.add(number, *name, found);
        }
        volume_.found.add(number, *name, found);
        return FS_E_SUCCESS;
    }

    // The walk goes on from the directory that holds the link; an absolute target counts only below
    // the volume's own mount point.
    std::uint32_t follow(ext2_ino_t link, ext2_inode& link_inode)
    {
        if (++links_ > kLinkLimit) return FS_E_BAD_PATH;
        if ((link_inode.i_flags & EXT4_ENCRYPT_FL) != 0) return FS_E_NO_DIRECT;
        std::string target;
        const auto result = read_target(link, link_inode, target);
        if (result != FS_E_SUCCESS) return result;
        const std::vector<PathName> names = plugin::split_target(target);
        if (target.empty()) return FS_E_UNKNOWN_FILE;
        if (target[0] != '/') {
            push_names(names);
            return FS_E_SUCCESS;
        }
        const auto below = plugin::match_mount_point(names, volume_.line.mount_names);
        if (!below) return FS_E_BAD_PATH;
        push_names(std::span(names).subspan(*below));
        path_.clear();
        return enter(EXT2_ROOT_INO);
    }

    std::uint32_t read_target(ext2_ino_t link, ext2_inode& link_inode, std::string& target)
    {
        ext2_filsys fs = volume_.fs.get();
        const std::size_t size = link_inode.i_size;
        if (size >= fs->blocksize) return FS_E_MISC_ERROR;
        std::string block(std::max<std::size_t>(fs->blocksize, sizeof link_inode.i_block), '\0');
        if ((link_inode.i_flags & EXT4_INLINE_DATA_FL) != 0) {
            std::size_t inline_bytes = 0;
            if (errcode_t error = ext2fs_inline_data_size(fs, link, &inline_bytes)) {
                return to_result(error);
            }
            if (inline_bytes > block.size() || inline_bytes < size) return FS_E_MISC_ERROR;
            if (errcode_t error =
                    ext2fs_inline_data_get(fs, link, &link_inode, block.data(), &inline_bytes)) {
                return to_result(error);
            }
        } else if (ext2fs_is_fast_symlink(&link_inode) != 0) {
            if (size > sizeof link_inode.i_block) return FS_E_MISC_ERROR;
            std::memcpy(block.data(), link_inode.i_block, sizeof link_inode.i_block);
        } else {
            Layout layout;
            const std::string wrong = read_layout(fs, link, link_inode, volume_.zones, layout);
            if (!wrong.empty() || layout.runs.empty() || layout.runs[0].logical != 0) {
                return FS_E_MISC_ERROR;
            }
            if (errcode_t error =
                    io_channel_read_blk64(fs->io, layout.runs[0].physical, 1, block.data())) {
                return to_result(error);
            }
        }
        target = block.substr(0, std::min(size, block.find('\0')));
        return FS_E_SUCCESS;
    }

    Volume& volume_;
    std::vector<PathName> pending_;  // names still to walk, the next one last
    std::vector<ext2_ino_t> path_;   // inodes from the root to where the walk stands
    int links_ = 0;
};

bool climbs(std::span<const PathName> names)
{
    return std::any_of(names.begin(), names.end(),
                       [](const PathName& name) { return name.is(".."); });
}

}  // namespace

std::uint32_t find_file(Volume& volume, std::span<const PathName> names, FileId& file)
{
    if (climbs(names)) return FS_E_BAD_PATH;
    const std::scoped_lock guard(volume.io);
    Walk walk(volume);
    const std::uint32_t result = walk.go(names);
    if (result == FS_E_SUCCESS) file = {walk.number, walk.inode.i_generation};
    return result;
}

std::uint32_t write_path(const Volume& volume, std::optional<FileId> file, std::span<char> room,
                         std::uint32_t& used_bytes)
{
    std::string text = volume.line.mount_point();
    if (file) {
        const std::string below = volume.found.path_of(file->inode);
        if (below.empty()) return FS_E_UNKNOWN_FILE;
        text += below;
    } else if (text.empty()) {
        text = "/";
    }
    if (text.size() >= room.size()) return FS_E_OUT_OF_MEMORY;
    std::memcpy(room.data(), text.c_str(), text.size() + 1);
    used_bytes = static_cast<std::uint32_t>(text.size() + 1);
    return FS_E_SUCCESS;
}

std::uint32_t find_directory(Volume& volume, std::span<const PathName> names)
{
    if (climbs(names)) return FS_E_BAD_PATH;
    const std::scoped_lock guard(volume.io);
    Walk walk(volume);
    const std::uint32_t result = walk.go(names);
    if (result != FS_E_SUCCESS) return result;
    return is_directory(walk.inode) ? FS_E_SUCCESS : FS_E_BAD_PATH;
}

}  // namespace corvane::ext

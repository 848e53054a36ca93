// Walks paths inside a mounted volume, symbolic links included, without ever leaving it.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>

#include "fsmdc/fs_result.h"
#include "plugins/mounted/volume.hpp"

namespace corvane::mounted {
namespace {

constexpr int kLinkLimit = 40;  // as many links as the kernel follows

std::uint32_t to_result(int error)
{
    switch (error) {
        case ENOENT:
        case ENOTDIR:
        case ENAMETOOLONG:
            return FS_E_UNKNOWN_FILE;
        case EACCES:
        case EPERM:
            return FS_E_PRIVILEGE;
        case ENOMEM:
            return FS_E_OUT_OF_MEMORY;
        default:
            return FS_E_MISC_ERROR;
    }
}

class Walk {
public:
    explicit Walk(const Volume& volume) : volume_(volume) {}

    std::uint32_t go(std::span<const PathName> names)
    {
        push_names(names);
        std::uint32_t result = enter_root();
        while (result == FS_E_SUCCESS && !pending_.empty()) {
            const PathName name = std::move(pending_.back());
            pending_.pop_back();
            result = step(name);
        }
        return result;
    }

    // Where the walk stands: a descriptor that only names the file.
    [[nodiscard]] int get() const { return path_.back().get(); }
    [[nodiscard]] bool is_directory() const { return S_ISDIR(mode_); }

private:
    void push_names(std::span<const PathName> names)
    {
        pending_.insert(pending_.end(), names.rbegin(), names.rend());
    }

    std::uint32_t enter_root()
    {
        Descriptor root;
        if (const auto result = volume_.open_root(root); result != FS_E_SUCCESS) return result;
        path_.clear();
        path_.push_back(std::move(root));
        mode_ = S_IFDIR;
        return FS_E_SUCCESS;
    }

    std::uint32_t step(const PathName& name)
    {
        if (!is_directory()) return FS_E_UNKNOWN_FILE;
        if (name.is("..")) return step_up();
        if (!name.utf8 && !name.bytes) return FS_E_BAD_PATH;
        Descriptor found;
        std::uint32_t result = look_up(name.utf8, found);
        if (result == FS_E_UNKNOWN_FILE) result = look_up(name.bytes, found);
        if (result != FS_E_SUCCESS) return result;
        struct stat status {};
        if (fstat(found.get(), &status) != 0) return to_result(errno);
        // Something else is mounted there.
        if (status.st_dev != volume_.device) return FS_E_WRONG_FS;
        if (S_ISLNK(status.st_mode)) return follow(found.get());
        path_.push_back(std::move(found));
        mode_ = status.st_mode;
        return FS_E_SUCCESS;
    }

    // Only symbolic links contain "..": at the root it would leave the volume.
    std::uint32_t step_up()
    {
        if (path_.size() < 2) return FS_E_BAD_PATH;
        path_.pop_back();
        return FS_E_SUCCESS;
    }

    std::uint32_t look_up(const std::optional<std::string>& name, Descriptor& found) const
    {
        if (!name) return FS_E_UNKNOWN_FILE;
        found.reset(openat(get(), name->c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
        return found.is_open() ? FS_E_SUCCESS : to_result(errno);
    }

    // The walk goes on from the directory that holds the link; an absolute target counts only below
    // the volume's own mount point.
    std::uint32_t follow(int link)
    {
        if (++links_ > kLinkLimit) return FS_E_BAD_PATH;
        std::array<char, PATH_MAX> text{};
        const ssize_t size = readlinkat(link, "", text.data(), text.size() - 1);
        if (size <= 0) return FS_E_UNKNOWN_FILE;
        const std::string target(text.data(), static_cast<std::size_t>(size));
        const std::vector<PathName> names = plugin::split_target(target);
        if (target[0] != '/') {
            push_names(names);
            return FS_E_SUCCESS;
        }
        const auto below = plugin::match_mount_point(names, volume_.line.mount_names);
        if (!below) return FS_E_BAD_PATH;
        push_names(std::span(names).subspan(*below));
        return enter_root();
    }

    const Volume& volume_;
    std::vector<PathName> pending_;  // names still to walk, the next one last
    std::vector<Descriptor> path_;   // from the root to where the walk stands
    mode_t mode_ = S_IFDIR;
    int links_ = 0;
};

bool climbs(std::span<const PathName> names)
{
    return std::any_of(names.begin(), names.end(),
                       [](const PathName& name) { return name.is(".."); });
}

std::uint32_t read_handle(int descriptor, FileId& file)
{
    struct {
        file_handle head;
        std::array<unsigned char, MAX_HANDLE_SZ> room;
    } handle{};
    handle.head.handle_bytes = FileId::kMostBytes;
    int mount_id = 0;
    if (name_to_handle_at(descriptor, "", &handle.head, &mount_id, AT_EMPTY_PATH) != 0) {
        return to_result(errno);
    }
    const unsigned size = handle.head.handle_bytes;
    const int type = handle.head.handle_type;
    if (size == 0 || size > FileId::kMostBytes || type < 0 || type > UINT8_MAX) {
        return FS_E_MISC_ERROR;
    }
    file = {};
    file.type = static_cast<std::uint8_t>(type);
    file.size = static_cast<std::uint8_t>(size);
    std::memcpy(file.handle.data(), handle.head.f_handle, size);
    return FS_E_SUCCESS;
}

}  // namespace

std::uint32_t find_file(const Volume& volume, std::span<const PathName> names, FileId& file)
{
    if (climbs(names)) return FS_E_BAD_PATH;
    Walk walk(volume);
    const std::uint32_t result = walk.go(names);
    return result == FS_E_SUCCESS ? read_handle(walk.get(), file) : result;
}

std::uint32_t find_directory(const Volume& volume, std::span<const PathName> names)
{
    if (climbs(names)) return FS_E_BAD_PATH;
    Walk walk(volume);
    const std::uint32_t result = walk.go(names);
    if (result != FS_E_SUCCESS) return result;
    return walk.is_directory() ? FS_E_SUCCESS : FS_E_BAD_PATH;
}

}  // namespace corvane::mounted

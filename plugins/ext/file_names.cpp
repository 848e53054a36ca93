// The table of found names.
#include "plugins/ext/file_names.hpp"

#include "plugins/ext/ext_handles.hpp"

namespace corvane::ext {
namespace {

constexpr std::size_t kNameLimit = 1 << 18;
constexpr std::size_t kPathBytes = 4096;  // as long as the kernel's paths

}  // namespace

void FileNames::add(std::uint32_t directory, const std::string& name, std::uint32_t inode)
{
    const std::scoped_lock guard(mutex_);
    if (places_.size() >= kNameLimit && !places_.contains(inode)) places_.clear();
    Place& place = places_[inode];
    if (place.directory == directory && place.name == name) return;
    place = {directory, name};
}

std::string FileNames::path_of(std::uint32_t inode) const
{
    const std::scoped_lock guard(mutex_);
    std::string path;
    while (inode != EXT2_ROOT_INO) {
        const auto found = places_.find(inode);
        if (found == places_.end()) return "";
        path.insert(0, "/" + found->second.name);
        if (path.size() >= kPathBytes) return "";  // directories of a damaged volume may go round
        inode = found->second.directory;
    }
    return path;
}

}  // namespace corvane::ext

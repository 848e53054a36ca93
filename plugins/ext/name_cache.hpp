// Names found in directories. A served volume is ours alone and nothing here changes directories,
// so what was found once stays true; large directories, which are searched from front to back, are
// searched once a name.
#ifndef CORVANE_PLUGINS_EXT_NAME_CACHE_HPP
#define CORVANE_PLUGINS_EXT_NAME_CACHE_HPP

#include <cstdint>
#include <string>
#include <unordered_map>

namespace corvane::ext {

class NameCache {
public:
    // Returns the inode that `name` has in the directory, or 0 when it is not known.
    [[nodiscard]] std::uint32_t find(std::uint32_t directory, const std::string& name) const
    {
        const auto found = inodes_.find(key_of(directory, name));
        return found != inodes_.end() ? found->second : 0;
    }

    // Remembers a name. A full cache begins anew: that bounds what clients can make it hold.
    void add(std::uint32_t directory, const std::string& name, std::uint32_t inode)
    {
        if (inodes_.size() >= kNameLimit) inodes_.clear();
        inodes_.emplace(key_of(directory, name), inode);
    }

private:
    static constexpr std::size_t kNameLimit = 16384;

    static std::string key_of(std::uint32_t directory, const std::string& name)
    {
        return std::to_string(directory) + '/' + name;
    }

    std::unordered_map<std::string, std::uint32_t> inodes_;
};

}  // namespace corvane::ext

#endif

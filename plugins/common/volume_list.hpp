// The volumes that a plug-in serves: found by path or by cookie.
#ifndef CORVANE_PLUGINS_COMMON_VOLUME_LIST_HPP
#define CORVANE_PLUGINS_COMMON_VOLUME_LIST_HPP

#include <cstddef>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "plugins/common/path_text.hpp"
#include "plugins/common/volume_cookie.hpp"

namespace corvane::plugin {

// `Volume` has a `line`, its VolumeLine. A volume belongs to the list for as long as that lives.
template <class Volume>
class VolumeList {
public:
    void add(const Uuid& uuid, std::unique_ptr<Volume> volume)
    {
        entries_.push_back({uuid, std::move(volume)});
    }

    // Returns the volume whose mount point is the longest that `names` begin with, and the names
    // below it; null when the path lies on none of them.
    Volume* find(std::span<const PathName> names, std::span<const PathName>& below) const
    {
        Volume* found = nullptr;
        std::size_t found_names = 0;
        for (const Entry& entry : entries_) {
            const auto matched = match_mount_point(names, entry.volume->line.mount_names);
            if (!matched || *matched <= found_names) continue;
            found = entry.volume.get();
            found_names = *matched;
        }
        below = names.subspan(found_names);
        return found;
    }

    Volume* find(const Uuid& uuid) const
    {
        for (const Entry& entry : entries_) {
            if (entry.uuid == uuid) return entry.volume.get();
        }
        return nullptr;
    }

    [[nodiscard]] bool is_empty() const noexcept { return entries_.empty(); }

    template <class Body>
    void for_each(Body body) const
    {
        for (const Entry& entry : entries_) body(*entry.volume);
    }

private:
    struct Entry {
        Uuid uuid;
        std::unique_ptr<Volume> volume;
    };
    std::vector<Entry> entries_;
};

}  // namespace corvane::plugin

#endif

// The volumes that are served: found by path or by cookie.
#ifndef CORVANE_PLUGINS_EXT_REGISTRY_HPP
#define CORVANE_PLUGINS_EXT_REGISTRY_HPP

#include <memory>
#include <span>
#include <vector>

#include "plugins/ext/volume.hpp"

namespace corvane::ext {

// Never changes once it is made; each volume locks itself.
class Registry {
public:
    // Opens every volume of the list; the ones that cannot be served are logged and left out.
    static std::shared_ptr<const Registry> load();

    // Returns the volume whose mount point is the longest that `names` begin with, and the names
    // below it; null when the path lies on none of them.
    Volume* find(std::span<const PathName> names, std::span<const PathName>& below) const;

    Volume* find(const Uuid& uuid) const;

private:
    void add(const VolumeLine& line);

    std::vector<std::unique_ptr<Volume>> volumes_;
};

}  // namespace corvane::ext

#endif

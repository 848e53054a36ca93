// The volumes that are served: found by path or by cookie.
#ifndef CORVANE_PLUGINS_MOUNTED_REGISTRY_HPP
#define CORVANE_PLUGINS_MOUNTED_REGISTRY_HPP

#include <memory>
#include <span>
#include <vector>

#include "plugins/mounted/volume.hpp"

namespace corvane::mounted {

// Never changes once it is made; the files of each volume lock themselves.
class Registry {
public:
    // Examines every volume of the list; the ones that cannot be served are logged and left out.
    static std::shared_ptr<const Registry> load();

    // Returns the volume whose mount point is the longest that `names` begin with, and the names
    // below it; null when the path lies on none of them.
    const Volume* find(std::span<const PathName> names, std::span<const PathName>& below) const;

    const Volume* find(const Uuid& uuid) const;

    [[nodiscard]] bool is_empty() const noexcept { return volumes_.empty(); }

    // Ends every loan.
    void settle_all() const;

    // Takes up what an earlier process had lent; ends it when the longest lease is over.
    static void adopt_all(const std::shared_ptr<const Registry>& registry,
                          const std::vector<Loan>& loans);

private:
    void add(const VolumeLine& line);

    std::vector<std::shared_ptr<Volume>> volumes_;
};

}  // namespace corvane::mounted

#endif

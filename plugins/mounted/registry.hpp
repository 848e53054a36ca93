// The volumes that are served: found by path or by cookie.
#ifndef CORVANE_PLUGINS_MOUNTED_REGISTRY_HPP
#define CORVANE_PLUGINS_MOUNTED_REGISTRY_HPP

#include <memory>
#include <vector>

#include "plugins/common/volume_list.hpp"
#include "plugins/mounted/volume.hpp"

namespace corvane::mounted {

// Never changes once it is made; the files of each volume lock themselves.
class Registry : public plugin::VolumeList<const Volume> {
public:
    // Examines every volume of the list; the ones that cannot be served are logged and left out.
    static std::shared_ptr<const Registry> load();

    // Ends every loan.
    void settle_all() const;

    // Takes up what an earlier process had lent; ends it when the longest lease is over.
    static void adopt_all(const std::shared_ptr<const Registry>& registry,
                          const std::vector<Loan>& loans);

private:
    void add_line(const VolumeLine& line);
};

}  // namespace corvane::mounted

#endif

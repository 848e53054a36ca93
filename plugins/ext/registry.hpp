// The volumes that are served: found by path or by cookie.
#ifndef CORVANE_PLUGINS_EXT_REGISTRY_HPP
#define CORVANE_PLUGINS_EXT_REGISTRY_HPP

#include <memory>

#include "plugins/common/volume_list.hpp"
#include "plugins/ext/volume.hpp"

namespace corvane::ext {

// Never changes once it is made; each volume locks itself.
class Registry : public plugin::VolumeList<Volume> {
public:
    // Opens every volume of the list; the ones that cannot be served are logged and left out.
    static std::shared_ptr<const Registry> load();

private:
    void add_line(const VolumeLine& line);
};

}  // namespace corvane::ext

#endif

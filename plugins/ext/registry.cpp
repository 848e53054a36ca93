// Loads the list of volumes.
#include "plugins/ext/registry.hpp"

namespace corvane {

const char* const plugin::kPluginName = "ext";

namespace ext {

std::shared_ptr<const Registry> Registry::load()
{
    auto registry = std::make_shared<Registry>();
    const plugin::LineKind kind{"ext", /*has_source=*/true};
    for (const VolumeLine& line : plugin::read_volumes_file(plugin::volumes_file_path(), kind)) {
        registry->add_line(line);
    }
    return registry;
}

void Registry::add_line(const VolumeLine& line)
{
    std::string wrong;
    auto volume = open_volume(line, wrong);
    if (volume != nullptr) {
        if (const Volume* const twin = find(volume->uuid)) {
            wrong = "it has the UUID of " + twin->line.source +
                    "; give one of them a new one with tune2fs -U random";
        }
    }
    if (!wrong.empty()) {
        log_line(line.where + ": " + line.mount_point() + " is not served: " + line.source + ": " +
                 wrong);
        return;
    }
    log_line(line.mount_point() + " is served from " + line.source +
             (line.writable ? ", read and write" : ", read-only"));
    const Uuid uuid = volume->uuid;
    add(uuid, std::move(volume));
}

}  // namespace ext
}  // namespace corvane

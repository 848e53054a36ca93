// Loads the list of volumes and looks volumes up.
#include "plugins/ext/registry.hpp"

namespace corvane {

const char* const plugin::kPluginName = "ext";

namespace ext {

std::shared_ptr<const Registry> Registry::load()
{
    auto registry = std::make_shared<Registry>();
    const plugin::LineKind kind{"ext", /*has_source=*/true};
    for (const VolumeLine& line : plugin::read_volumes_file(plugin::volumes_file_path(), kind)) {
        registry->add(line);
    }
    return registry;
}

void Registry::add(const VolumeLine& line)
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
    volumes_.push_back(std::move(volume));
}

Volume* Registry::find(std::span<const PathName> names, std::span<const PathName>& below) const
{
    Volume* found = nullptr;
    std::size_t found_names = 0;
    for (const auto& volume : volumes_) {
        const auto matched = plugin::match_mount_point(names, volume->line.mount_names);
        if (!matched || *matched <= found_names) continue;
        found = volume.get();
        found_names = *matched;
    }
    below = names.subspan(found_names);
    return found;
}

Volume* Registry::find(const Uuid& uuid) const
{
    for (const auto& volume : volumes_) {
        if (volume->uuid == uuid) return volume.get();
    }
    return nullptr;
}

}  // namespace ext
}  // namespace corvane

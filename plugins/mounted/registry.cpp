// Loads the list of volumes, and takes up or ends what they have lent.
#include "plugins/mounted/registry.hpp"

#include <chrono>

#include "plugins/mounted/worker.hpp"

namespace corvane {

const char* const plugin::kPluginName = "mounted";

namespace mounted {

std::shared_ptr<const Registry> Registry::load()
{
    auto registry = std::make_shared<Registry>();
    const plugin::LineKind kind{"mounted", /*has_source=*/false};
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
        if (const Volume* const twin = find(volume->uuid())) {
            wrong = "it has the UUID of " + twin->line.mount_point();
        }
    }
    if (!wrong.empty()) {
        log_line(line.where + ": " + line.mount_point() + " is not served: " + wrong);
        return;
    }
    std::string disks;
    for (const TreeDisk& disk : volume->tree.disks()) {
        disks += (disks.empty() ? "" : ", ") + disk.name;
    }
    log_line(line.mount_point() + " is served from " + disks +
             (line.writable ? ", read and write" : ", read-only"));
    const Uuid uuid = volume->uuid();
    add(uuid, std::move(volume));
}

void Registry::settle_all() const
{
    for_each([](const Volume& volume) { volume.files.settle_all(); });
}

void Registry::adopt_all(const std::shared_ptr<const Registry>& registry,
                         const std::vector<Loan>& loans)
{
    // The daemon's own longest lease for writing, unless the list says less.
    constexpr std::chrono::seconds kDefaultLease{3600};
    const auto now = std::chrono::steady_clock::now();
    for (const Loan& loan : loans) {
        const Volume* const volume = registry->find(loan.volume);
        if (volume == nullptr) continue;
        volume->files.adopt(*volume, loan);
        const std::chrono::seconds lease(volume->line.max_write_s);
        queue_work_at(now + (lease.count() > 0 ? lease : kDefaultLease),
                      [registry, volume, loan] { volume->files.end_adopted(*volume, loan); });
    }
}

}  // namespace mounted
}  // namespace corvane

// What the exported functions of a plug-in do before they can begin: find the volume that is meant,
// and keep exceptions from the C caller.
#ifndef CORVANE_PLUGINS_COMMON_CALLS_HPP
#define CORVANE_PLUGINS_COMMON_CALLS_HPP

#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <span>
#include <utility>

#include "fsmdc/fs_plugin.h"
#include "plugins/common/path_text.hpp"
#include "plugins/common/volume_cookie.hpp"

namespace corvane::plugin {

// Runs `body` for a C caller: whatever it throws becomes a result code.
template <class Body>
std::uint32_t answer(Body body) noexcept
{
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return FS_E_OUT_OF_MEMORY;
    } catch (...) {
        return FS_E_MISC_ERROR;
    }
}

// The registry of the last FS_Init; calls in progress keep theirs alive. `Registry` has the
// members find() of a VolumeList.
template <class Registry>
class Served {
public:
    std::shared_ptr<const Registry> get() const
    {
        const std::scoped_lock guard(mutex_);
        return registry_;
    }
    void set(std::shared_ptr<const Registry> registry)
    {
        const std::scoped_lock guard(mutex_);
        registry_ = std::move(registry);
    }

    // Runs `body(volume)` for the volume of a cookie.
    template <class Body>
    std::uint32_t with_volume(const VolumeMark& mark, const void* cookie, Body body) const noexcept
    {
        return answer([&]() -> std::uint32_t {
            const auto volumes = get();
            const auto uuid = read_volume_cookie(mark, cookie);
            auto* const volume = volumes != nullptr && uuid ? volumes->find(*uuid) : nullptr;
            return volume != nullptr ? body(*volume) : FS_E_BAD_COOKIE;
        });
    }

    // Runs `body(volume, names below its mount point)` for a path.
    template <class Body>
    std::uint32_t with_path(const FSUNI* path, Body body) const noexcept
    {
        return answer([&]() -> std::uint32_t {
            const auto volumes = get();
            const auto names = split_path(path);
            if (!names) return FS_E_BAD_PATH;
            std::span<const PathName> below;
            auto* const volume = volumes != nullptr ? volumes->find(*names, below) : nullptr;
            return volume != nullptr ? body(*volume, below) : FS_E_WRONG_FS;
        });
    }

private:
    mutable std::mutex mutex_;
    std::shared_ptr<const Registry> registry_;
};

}  // namespace corvane::plugin

#endif

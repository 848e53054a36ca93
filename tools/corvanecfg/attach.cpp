// Looks at the segment before attaching: the common attach ends the process on a failure.
#include "tools/corvanecfg/attach.hpp"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tools/corvanecfg/settings.hpp"

namespace corvane::cfg {
namespace {

int wanted_volumes()
{
    const char* text = std::getenv("CORVANEVOLS");
    return std::max(text == nullptr ? 0 : std::atoi(text), CORVANE_SEGMENT_MIN_VOLUMES);
}

void check_size(int id)
{
    shmid_ds state{};
    if (shmctl(id, IPC_STAT, &state) != 0) return;  // the attach itself will say it
    const std::size_t wanted =
        std::size_t{CORVANE_SEGMENT_VOLUME_BYTES} * static_cast<std::size_t>(wanted_volumes()) +
        CORVANE_SEGMENT_FIXED_BYTES;
    if (state.shm_segsz >= wanted) return;
    const auto held = (static_cast<long>(state.shm_segsz) - CORVANE_SEGMENT_FIXED_BYTES) /
                      CORVANE_SEGMENT_VOLUME_BYTES;
    throw Refusal(
        "the settings were made for " + std::to_string(held) +
        " volumes, and CORVANEVOLS asks for " + std::to_string(wanted_volumes()) +
        ": unset CORVANEVOLS, or stop all programs and remove the segment (ipcrm -M 1124)");
}

}  // namespace

CorvaneSegment& attach(bool create)
{
    const int id = shmget(CORVANE_SEGMENT_KEY, 0, 0600);
    if (id < 0 && errno == ENOENT) {
        if (!create) {
            throw Refusal(
                "there are no settings on this machine yet: start corvaned, or give --create");
        }
    } else if (id < 0 && errno == EACCES) {
        throw Refusal(
            "this user may not read and write the settings (segment key 1124): run as root");
    } else if (id < 0) {
        throw Refusal(std::string("the settings cannot be opened: ") + std::strerror(errno));
    } else {
        check_size(id);
    }
    fused_mapShared();
    return *fs;
}

}  // namespace corvane::cfg

// Looks at the segment before attaching: the common attach ends the process on a failure.
#include "tools/corvanecfg/attach.hpp"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "mdcmain/segment_size.hpp"
#include "tools/corvanecfg/settings.hpp"

namespace corvane::cfg {
namespace {

bool g_attaching = false;

// The common attach writes its reason into the log and ends the process.
void explain_exit()
{
    if (!g_attaching) return;
    (void)std::fputs(
        "corvanecfg: the settings could not be made or attached; /usr/Corvane/mclog0 says why\n",
        stderr);
}

void check_size(int id)
{
    shmid_ds state{};
    if (shmctl(id, IPC_STAT, &state) != 0) return;  // the attach itself will say it
    const auto bytes = static_cast<std::int64_t>(state.shm_segsz);
    const std::int32_t volumes = max_volumes_wanted();
    if (bytes >= segment_bytes(volumes)) return;
    if (bytes < segment_bytes(CORVANE_SEGMENT_MIN_VOLUMES)) {
        throw Refusal("the segment with the key 1124 is too small to hold the settings (" +
                      std::to_string(bytes) +
                      " bytes): stop the program that made it and remove it (ipcrm -M 1124)");
    }
    const std::int64_t held = (bytes - CORVANE_SEGMENT_FIXED_BYTES) / CORVANE_SEGMENT_VOLUME_BYTES;
    throw Refusal(
        "the settings were made for " + std::to_string(held) +
        " volumes, and CORVANEVOLS asks for " + std::to_string(volumes) +
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
    (void)std::atexit(explain_exit);
    g_attaching = true;
    fused_mapShared();
    g_attaching = false;
    return *fs;
}

}  // namespace corvane::cfg

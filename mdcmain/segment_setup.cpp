// Creates or attaches the shared segment. This stands on top of log, locale and catalogues, which
// all need the segment's fields themselves.
#include <sys/mman.h>
#include <sys/shm.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "mdcmain/language.hpp"
#include "mdcmain/log.h"
#include "mdcmain/segment.h"
#include "mdcmain/segment_size.hpp"
#include "osl/shared_word.hpp"

namespace corvane {
namespace {

constexpr int kPermissions = 0777;
constexpr size_t kVersionBytes = 64;

[[noreturn]] void fail_with_errno(const char* what) noexcept
{
    std::perror(what);
    std::exit(EXIT_FAILURE);
}

int get_segment(int64_t bytes) noexcept
{
    int id = -1;
    errno = EINVAL;  // a size that the segment's own word cannot hold
    if (bytes <= std::numeric_limits<int32_t>::max()) {
        id = shmget(CORVANE_SEGMENT_KEY, static_cast<size_t>(bytes), IPC_CREAT | kPermissions);
    }
    if (id != -1) return id;
    std::printf("Corvane error: shared mem create failed size:%lld :%s\n",
                static_cast<long long>(bytes), std::strerror(errno));
    printhints();
    std::exit(EXIT_FAILURE);
}

void attach(int id) noexcept
{
    void* const at = shmat(id, nullptr, 0);
    if (reinterpret_cast<std::intptr_t>(at) == -1) {
        fs = nullptr;
        fail_with_errno("fs=shmat failed");
    }
    fs = static_cast<CorvaneSegment*>(at);
}

void log_creation(int id, int32_t max_volumes) noexcept
{
    char version[kVersionBytes] = {};
    (void)getVersion(version);  // without a version file the text stays empty
    utsname system{};
    if (uname(&system) != 0) {
        sanos_log("Shm init id %d ver %s\n", id, version);
        return;
    }
    sanos_log("Shm init id %d ver %s %s %s %s %s %s Max Volumes %d\n", id, version, system.nodename,
              system.sysname, system.release, system.version, system.machine, max_volumes);
}

// Zeros memory of the segment. Whole pages are given back to the kernel, which makes them read as
// zeros without touching them: most of them nobody ever uses, and writing them was most of the
// start-up time.
void clear_segment(void* start, size_t size_bytes) noexcept
{
    const auto page_bytes = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t whole_bytes = size_bytes / page_bytes * page_bytes;
    const bool given_back = madvise(start, whole_bytes, MADV_REMOVE) == 0;
    const size_t done_bytes = given_back ? whole_bytes : 0;
    std::memset(static_cast<char*>(start) + done_bytes, 0, size_bytes - done_bytes);
}

// Two creators at the same moment both come here and write the same.
void fill_new_segment(int id, int32_t max_volumes) noexcept
{
    // The size for 32 volumes, whatever the size: the kernel gave the rest as zeros.
    clear_segment(fs, static_cast<size_t>(segment_bytes(CORVANE_SEGMENT_MIN_VOLUMES)));
    store_shared(fs->initialised, 1);
    store_shared(fs->segmentSize, static_cast<int32_t>(segment_bytes(max_volumes)));
    store_shared(fs->maxVolumes, max_volumes);
    fused_setDefaults();
    log_creation(id, max_volumes);
    set_up_language();
}

// A segment made for more volumes than this process wants is mapped whole.
void attach_creators_size(int32_t max_volumes) noexcept
{
    const int32_t creators_volumes = load_shared(fs->maxVolumes);
    if (load_shared(fs->segmentSize) <= segment_bytes(max_volumes) ||
        creators_volumes <= max_volumes) {
        return;
    }
    (void)shmdt(fs);  // it is attached
    fs = nullptr;
    const int id = shmget(CORVANE_SEGMENT_KEY, static_cast<size_t>(segment_bytes(creators_volumes)),
                          kPermissions);
    if (id < 1) fail_with_errno("shmget");  // 0 counts as a failure, too
    attach(id);
}

}  // namespace
}  // namespace corvane

void setupSharedMemory(void) noexcept
{
    const int32_t max_volumes = corvane::max_volumes_wanted();
    const int id = corvane::get_segment(corvane::segment_bytes(max_volumes));
    if (fs != nullptr) return;
    corvane::attach(id);
    if (corvane::load_shared(fs->initialised) != 1) {
        corvane::fill_new_segment(id, max_volumes);
        return;
    }
    corvane::attach_creators_size(max_volumes);
    corvane::refresh_language();
}

void fused_mapShared(void) noexcept
{
    if (fs == nullptr) setupSharedMemory();
}

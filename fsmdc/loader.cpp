// The plug-in loader. Its operator messages, by catalogue number, take these arguments in this
// order:
//   326  %s the directory, %s why it cannot be opened
//   327  %s the library's path, %d its interface version
//   328  %s the library's path, %lld its size in bytes, %lld its modification time (seconds since
//   1970) 329  %d error number (0 when the dynamic loader gave none), %s the library's path, %s the
//   error 330  %s the path of the library that was given up 331  %s the directory
#include "fsmdc/loader.h"

#include <dirent.h>
#include <dlfcn.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

#include "fsmdc/file_names.hpp"
#include "mdcmain/catalogue_message.hpp"
#include "mdcmain/log.h"
#include "mdcmain/segment.h"
#include "osl/bytes.hpp"
#include "osl/memory.h"
#include "osl/shared_word.hpp"

FsLibrary* libs[FS_LIBRARY_SLOTS] = {};
std::int32_t libCount = 0;
LibraryCandidate libHead = {&libHead, &libHead, {}};

namespace corvane {
namespace {

constexpr char kDirectory[] = "/usr/Corvane/lib";
constexpr std::int32_t kMessageNoDirectory = 326;
constexpr std::int32_t kMessageVersion = 327;
constexpr std::int32_t kMessageLoaded = 328;
constexpr std::int32_t kMessageError = 329;
constexpr std::int32_t kMessageGivenUp = 330;
constexpr std::int32_t kMessageNoPlugIn = 331;

struct CloseDirectory {
    void operator()(DIR* directory) const noexcept { (void)closedir(directory); }
};

[[nodiscard]] std::int32_t debug_level() noexcept
{
    fused_mapShared();
    return fs == nullptr ? 0 : load_shared(fs->logLevel);
}

[[nodiscard]] bool logs_each_entry() noexcept
{
    return debug_level() > 4;
}

[[nodiscard]] bool is_candidate(const char* name) noexcept
{
    if (std::strstr(name, "sancvt") != nullptr) return false;
    return std::strstr(name, ".so") != nullptr || std::strstr(name, ".a") != nullptr;
}

void push_candidate(const char* name) noexcept
{
    auto* const candidate = static_cast<LibraryCandidate*>(
        OSL_Calloc(sizeof(LibraryCandidate), allocation_tag("libc")));
    if (candidate == nullptr) return;
    // A path that is too long is cut; then it names nothing, and is reported when it is tried.
    (void)std::snprintf(candidate->libName, sizeof candidate->libName, "%s/%s", kDirectory, name);
    candidate->next = libHead.next;
    candidate->prev = &libHead;
    libHead.next->prev = candidate;
    libHead.next = candidate;
}

// Each candidate goes to the front: the directory's last one is tried first.
[[nodiscard]] bool read_directory() noexcept
{
    libHead.next = libHead.prev = &libHead;
    const std::unique_ptr<DIR, CloseDirectory> directory(opendir(kDirectory));
    if (directory == nullptr) {
        const char* const reason = std::strerror(errno);
        log_message(kMessageNoDirectory, kDirectory, reason);
        return false;
    }
    while (const dirent* entry = readdir(directory.get())) {
        if (is_candidate(entry->d_name)) push_candidate(entry->d_name);
    }
    return true;
}

// One required entry point: its name and the line that reports its address.
template <class Function>
[[nodiscard]] bool resolve(void* library, const char* name, const char* line,
                           Function*& entry) noexcept
{
    void* const address = dlsym(library, name);
    if (address == nullptr) return false;
    static_assert(sizeof entry == sizeof address);
    std::memcpy(&entry, &address, sizeof address);
    if (logs_each_entry())
        sanos_log(line, static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(address)));
    return true;
}

[[nodiscard]] bool resolve_all(void* library, FsLibrary& record) noexcept
{
    if (!resolve(library, "FS_Init", "FTX1476I Got FS_Init %lx \n", record.FS_Init) ||
        !resolve(library, "FS_GetCookies", "FTX1477I Got FS_GetCookies %lx \n",
                 record.FS_GetCookies) ||
        !resolve(library, "FS_GetLockedMap", "FTX1478I Got FS_GetLockedMap %lx \n",
                 record.FS_GetLockedMap) ||
        !resolve(library, "FS_GetVersion", "FTX1479I Got FS_GetVersion %lx \n",
                 record.FS_GetVersion) ||
        !resolve(library, "FS_GetVolByCookie", "FTX1480I Got FS_GetVolByCookie %lx \n",
                 record.FS_GetVolByCookie) ||
        !resolve(library, "FS_GetVolCookie", "FTX1481I Got FS_GetVolCookie %lx \n",
                 record.FS_GetVolCookie) ||
        !resolve(library, "FS_SetFileSizes", "FTX1482I Got FS_SetFileSizes %lx \n",
                 record.FS_SetFileSizes) ||
        !resolve(library, "FS_UnlockMap", "FTX1483I Got FS_UnlockMap %lx \n",
                 record.FS_UnlockMap)) {
        return false;
    }
    (void)resolve(library, "FS_GetMaxLeases", "FTX1484I Got FS_GetMaxLeases %lx \n",
                  record.FS_GetMaxLeases);  // optional
    return true;
}

// Opens one library and fills `record`. The library stays open for good, whatever it lacks.
[[nodiscard]] bool load_candidate(const char* path, FsLibrary& record) noexcept
{
    struct stat status {};
    if (stat(path, &status) != 0) {
        const int error = errno;
        const char* const reason = std::strerror(error);
        log_message(kMessageError, error, path, reason);
        return false;
    }
    void* const library = dlopen(path, RTLD_LAZY);
    if (library == nullptr) {
        const char* const reason = dlerror();
        log_message(kMessageError, 0, path, reason != nullptr ? reason : "");
        return false;
    }
    if (logs_each_entry()) sanos_log("FTX1475I opened lib %s\n", path);
    if (!resolve_all(library, record)) return false;
    PathEntry get_path = nullptr;  // optional; what the log says at loading names the others alone
    void* const address = dlsym(library, "FS_GetPath");
    std::memcpy(&get_path, &address, sizeof address);
    set_path_entry(&record, get_path);
    const std::int32_t version = record.FS_GetVersion();
    if (version > 0) log_message(kMessageVersion, path, version);
    log_message(kMessageLoaded, path, static_cast<long long>(status.st_size),
                static_cast<long long>(status.st_mtime));
    return true;
}

void unlink_candidate(LibraryCandidate& candidate) noexcept
{
    candidate.prev->next = candidate.next;
    candidate.next->prev = candidate.prev;
    OSL_Free(&candidate);
}

// Tries candidates until one can be loaded: one that cannot costs only itself.
[[nodiscard]] FsLibrary* load_next(bool& none_tried) noexcept
{
    while (libHead.next != &libHead) {
        osl_ptr<FsLibrary> record(
            static_cast<FsLibrary*>(OSL_Calloc(sizeof(FsLibrary), allocation_tag("libr"))));
        if (record == nullptr) return nullptr;
        LibraryCandidate& candidate = *libHead.next;
        const bool loaded = load_candidate(candidate.libName, *record);
        const char* const path = candidate.libName;
        if (!loaded) log_message(kMessageGivenUp, path);
        unlink_candidate(candidate);
        none_tried = false;
        if (loaded) return record.release();
    }
    return nullptr;
}

}  // namespace
}  // namespace corvane

extern "C" {

FsLibrary* FSMDCSP_LoadNextLibrary() noexcept
{
    static bool scanned = false;
    static bool none_tried = true;
    if (corvane::debug_level() > 6) sanos_log("LoadNextLibrary was called.\n");
    if (!scanned) {
        if (!corvane::read_directory()) return nullptr;
        scanned = true;
    }
    FsLibrary* const record = corvane::load_next(none_tried);
    if (none_tried) corvane::log_message(corvane::kMessageNoPlugIn, corvane::kDirectory);
    return record;
}

void dumpLibList() noexcept
{
    std::printf("Dumping LibList\n");
    for (const LibraryCandidate* current = libHead.next; current != &libHead;
         current = current->next) {
        std::printf("current->libName is %s\n", current->libName);
    }
}

}  // extern "C"

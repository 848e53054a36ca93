// The rotating log files: their names, their first line, their rotation, and the count that
// outlives a boot.
#include "mdcmain/log_files.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "mdcmain/log.h"
#include "mdcmain/log_state.h"
#include "mdcmain/segment.h"
#include "mdcmain/segment.hpp"
#include "osl/descriptor.hpp"

namespace corvane {
namespace {

constexpr char kCountFile[] = "/tmp/mclogdata.bak";
constexpr size_t kCountBytes = 32;

// The number of the file for `count`; 0 when other programs left no number of logs.
int32_t file_number(int32_t count) noexcept
{
    const int64_t logs = load_shared(fs->numLogs);
    return logs == 0 ? 0 : static_cast<int32_t>(count % logs);
}

void rotate(char (&name)[kLogNameBytes]) noexcept
{
    const auto next = static_cast<int32_t>(static_cast<uint32_t>(load_shared(fs->logCount)) + 1U);
    store_shared(fs->logCount, next);
    utils_saveLogCount(next);
    utils_getLogFilename(name);
    (void)unlink(name);  // there may be none
}

}  // namespace

void check_log_file(char (&name)[kLogNameBytes], char (&header)[kLogHeaderBytes]) noexcept
{
    struct stat status {};
    if (stat(name, &status) != 0) {
        makeLogHeader(header);
    } else if (int64_t{status.st_size} > load_shared(fs->logMaxSize)) {
        rotate(name);
    }
}

}  // namespace corvane

void utils_getLogFilename(char* buffer) noexcept
{
    fused_mapShared();
    const std::string_view base = corvane::text_of(fs->logBaseName);
    (void)std::snprintf(buffer, corvane::kLogNameBytes, "%.*s%d", static_cast<int>(base.size()),
                        base.data(), corvane::file_number(corvane::load_shared(fs->logCount)));
}

int32_t utils_getLogCount(void) noexcept
{
    const corvane::Descriptor file(open(corvane::kCountFile, O_RDONLY | O_CLOEXEC));
    if (!file.is_open()) return 0;
    char text[corvane::kCountBytes + 1] = {};
    if (read(file.get(), text, corvane::kCountBytes) <= 0) return 0;
    return std::atoi(text);
}

void utils_saveLogCount(int32_t count) noexcept
{
    fused_mapShared();
    const int32_t number = corvane::file_number(count);
    if (number == corvane::load_shared(prevCount)) return;  // a remainder of 0 is never saved
    const corvane::Descriptor file(
        open(corvane::kCountFile, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (file.get() <= 0) return;  // not saved: no file, or one in the place of standard input
    char text[corvane::kCountBytes] = {};
    (void)std::snprintf(text, sizeof text, "%d", number);
    (void)write(file.get(), text, sizeof text);  // a full disk costs the count
    (void)fchmod(file.get(), 0666);              // refused when the file is another user's
}

void makeLogHeader(char* buffer) noexcept
{
    char version[64] = {};
    (void)getVersion(version);  // without a version file the text stays empty
    char system[512];
    getSystemInfo(system);  // reports its own failure; the header does not show the text
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char when[32] = {};
    if (asctime_r(&local, when) == nullptr) when[0] = 0;
    (void)std::snprintf(buffer, corvane::kLogHeaderBytes, "Opening Log version:%s time:%s", version,
                        when);
}

// What is known of this host and this installation: system names, version file, DMA limit.
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "mdcmain/log.h"
#include "mdcmain/segment.h"
#include "mdcmain/segment.hpp"
#include "osl/c_file.hpp"

namespace corvane {
namespace {

constexpr char kVersionFile[] = "/usr/Corvane/version.txt";
constexpr char kDmaFile[] = "/tmp/dmaSize.txt";
constexpr char kDmaCommand[] = "systune maxdmasz >/tmp/dmaSize.txt";
constexpr int32_t kNoDmaSize = -1;
constexpr int kDmaToken = 2;  // the third one

struct SystemCode {
    std::string_view name_and_release;
    int32_t code;
};
constexpr SystemCode kSystemCodes[] = {{"SunOS5.6", 1}, {"SunOS5.7", 2}, {"SunOS5.8", 3}};

// The blank-separated token number `index` of `line`, which is cut up; null when there are fewer.
const char* nth_token(char* line, int index) noexcept
{
    char* rest = nullptr;
    const char* token = strtok_r(line, " ", &rest);
    for (; token != nullptr && index > 0; --index) token = strtok_r(nullptr, " ", &rest);
    return token;
}

int32_t read_dma_size(std::FILE* file, int32_t unit_bytes) noexcept
{
    char line[1024];
    if (std::fgets(line, sizeof line, file) == nullptr) return kNoDmaSize;
    const char* const token = nth_token(line, kDmaToken);
    if (token == nullptr) return kNoDmaSize;
    const int32_t pages = std::atoi(token);
    const auto size = static_cast<int32_t>((int64_t{pages} - 1) * unit_bytes);
    if (log_level() > 2) sanos_log("maxdmasz %d maxio transfer size is %d\n", pages, size);
    return size;
}

}  // namespace
}  // namespace corvane

int32_t setSysName(void) noexcept
{
    utsname system{};
    if (uname(&system) != 0) return 0;
    char joined[sizeof system.sysname + sizeof system.release];
    (void)std::snprintf(joined, sizeof joined, "%s%s", system.sysname, system.release);
    for (const auto& [name_and_release, code] : corvane::kSystemCodes) {
        if (std::string_view(joined).find(name_and_release) != std::string_view::npos) return code;
    }
    return 0;
}

int32_t getMaxDmaSize(void) noexcept
{
    utsname system{};
    if (uname(&system) != 0) {
        if (corvane::log_level() > 2) sanos_log("uname call failed returning dmaSize of -1\n");
        return corvane::kNoDmaSize;
    }
    const int32_t unit_bytes = std::strcmp(system.sysname, "IRIX64") == 0 ? 16384 : 4096;
    (void)std::system(corvane::kDmaCommand);  // without the command the file stays empty
    int32_t size = corvane::kNoDmaSize;
    {
        const corvane::CFile file(std::fopen(corvane::kDmaFile, "re"));
        if (file == nullptr) {
            if (corvane::log_level() > 2) sanos_log("failed to open %s\n", corvane::kDmaFile);
            return corvane::kNoDmaSize;
        }
        size = corvane::read_dma_size(file.get(), unit_bytes);
    }
    (void)unlink(corvane::kDmaFile);
    return size;
}

int32_t getVersion(char* buffer) noexcept
{
    const corvane::CFile file(std::fopen(corvane::kVersionFile, "re"));
    if (file == nullptr) return -1;
    char line[64] = {};
    if (std::fgets(line, sizeof line, file.get()) == nullptr) line[0] = 0;
    const size_t length = std::strlen(line);
    if (length != 0) line[length - 1] = 0;  // the newline, or whatever stands in its place
    std::memcpy(buffer, line, std::strlen(line) + 1);
    return 0;
}

void getSystemInfo(char* buffer) noexcept
{
    buffer[0] = 0;
    utsname system{};
    if (uname(&system) != 0) {
        std::printf("failed %s\n", std::strerror(errno));
        return;
    }
    (void)std::snprintf(buffer, 512, "%s %s %s %s %s\n", system.release, system.sysname,
                        system.nodename, system.version, system.machine);
}

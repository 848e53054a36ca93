// Finds the host's log function once and writes every line of the plug-in through it.
#include "plugins/common/log.hpp"

#include <dlfcn.h>

#include <cstdio>

namespace corvane::plugin {
namespace {

using HostLog = void (*)(const char* format, ...);

HostLog find_host_log() noexcept
{
    // dlsym hands every symbol out as a data pointer; POSIX promises that this conversion works.
    return reinterpret_cast<HostLog>(dlsym(RTLD_DEFAULT, "sanos_log"));
}

}  // namespace

void log_line(const std::string& text) noexcept
{
    static const HostLog host_log = find_host_log();
    if (host_log != nullptr) {
        host_log("%s: %s\n", kPluginName, text.c_str());
    } else {
        std::fprintf(stderr, "%s: %s\n", kPluginName, text.c_str());
    }
}

}  // namespace corvane::plugin

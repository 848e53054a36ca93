// Stands in for the daemon's log.
#include "tests/plugins/host_log.hpp"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>

#include "osl/export.h"

namespace {

std::mutex g_log_mutex;
std::string g_log;

}  // namespace

extern "C" CORVANE_API __attribute__((format(printf, 1, 2))) void sanos_log(const char* format,
                                                                            ...);

extern "C" void sanos_log(const char* format, ...)
{
    char line[4096];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    const std::scoped_lock guard(g_log_mutex);
    if (length > 0) g_log += line;
}

namespace corvane::test {

std::string take_log()
{
    const std::scoped_lock guard(g_log_mutex);
    return std::exchange(g_log, {});
}

}  // namespace corvane::test

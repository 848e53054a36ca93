// The log's one entrance, sanos_log: where a message goes, and its way there.
#include "mdcmain/log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "mdcmain/log_files.hpp"
#include "mdcmain/log_format.hpp"
#include "mdcmain/log_state.h"
#include "mdcmain/segment.h"
#include "osl/counters.hpp"
#include "osl/descriptor.hpp"
#include "osl/shared_word.hpp"

int32_t recurseCk = 0;
uint64_t loopcount = 0;
int32_t pid = 0;
int32_t prevCount = 0;

namespace corvane {
namespace {

constexpr size_t kFileMessageBytes = 1024;
constexpr size_t kOtherMessageBytes = 2048;
constexpr size_t kPrefixBytes = 64;
constexpr uint64_t kMessagesPerCheck = 50;
constexpr int32_t kModeOutput = 0;
constexpr int32_t kModeFile = 1;

// A thread that finds another one's message under way drops its own: nobody waits for the log.
bool enter() noexcept
{
    const std::atomic_ref<int32_t> flag(recurseCk);
    int32_t seen = flag.load(std::memory_order_relaxed);
    return seen <= 0 && flag.compare_exchange_strong(seen, 1, std::memory_order_acquire);
}

void leave() noexcept
{
    store_shared(loopcount, load_shared(loopcount) + 1);
    std::atomic_ref<int32_t>(recurseCk).store(0, std::memory_order_release);
}

template <size_t Size>
void format_into(char (&buffer)[Size], const char* format, va_list arguments) noexcept
{
    buffer[0] = 0;
    (void)std::vsnprintf(buffer, Size, format, arguments);  // what does not fit is cut
}

int32_t cached_pid() noexcept
{
    if (load_shared(pid) == 0) store_shared(pid, getpid());
    return load_shared(pid);
}

void write_to_output(const char* format, va_list arguments) noexcept
{
    char message[kOtherMessageBytes];
    format_into(message, format, arguments);
    interpret_again(message);
    (void)std::fputs(message, stdout);
    (void)std::fflush(stdout);
}

void write_to_ring(const char* format, va_list arguments) noexcept
{
    char message[kOtherMessageBytes];
    format_into(message, format, arguments);
    char line[kPrefixBytes + kOtherMessageBytes];
    (void)std::snprintf(line, sizeof line, "%d  %s", getpid(), message);
    logToSharedMem(line);
}

// Level 0 shows when, all others who: operators read the one, developers the other.
void format_prefix(char (&prefix)[kPrefixBytes], int32_t level) noexcept
{
    if (level != 0) {
        (void)std::snprintf(prefix, sizeof prefix, "%d ", cached_pid());
        return;
    }
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    (void)std::snprintf(prefix, sizeof prefix, "%.2d/%.2d|%.2d:%.2d:%.2d ", local.tm_mon + 1,
                        local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
}

// Header, prefix and message go out in one write, so that lines of several writers stay whole.
void append_line(int file, const char* header, int32_t level, const char* format,
                 va_list arguments) noexcept
{
    char prefix[kPrefixBytes];
    format_prefix(prefix, level);
    char message[kFileMessageBytes];
    format_into(message, format, arguments);
    char line[kLogHeaderBytes + kPrefixBytes + kFileMessageBytes];
    const int length = std::snprintf(line, sizeof line, "%s%s%s", header, prefix, message);
    (void)write(file, line, static_cast<size_t>(length));  // a full disk costs the line
}

void write_to_file(int32_t level, const char* format, va_list arguments) noexcept
{
    char name[kLogNameBytes];
    utils_getLogFilename(name);
    char header[kLogHeaderBytes] = {};
    if (load_shared(loopcount) % kMessagesPerCheck == 0) check_log_file(name, header);

    const Descriptor file(open(name, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
    if (!file.is_open()) {
        std::printf("Could not open log file %s: %s\n", name, std::strerror(errno));
        (void)std::vprintf(format, arguments);
        (void)std::fflush(stdout);
        return;
    }
    const int saved_errno = errno;
    (void)fchmod(file.get(), 0666);  // refused when the file is another user's
    errno = saved_errno;
    append_line(file.get(), header, level, format, arguments);
}

void write_message(const char* format, va_list arguments) noexcept
{
    const int32_t level = load_shared(fs->logLevel);
    const int32_t mode = load_shared(fs->logMode);
    if (mode == kModeFile || level == 0) {
        write_to_file(level, format, arguments);
    } else if (mode == kModeOutput) {
        write_to_output(format, arguments);
    } else {
        write_to_ring(format, arguments);
    }
}

}  // namespace
}  // namespace corvane

void localSemLock(void) noexcept {}
void localSemUnlock(void) noexcept {}

void sanos_log(const char* format, ...) noexcept
{
    if (!corvane::enter()) {
        corvane::count_event(COUNTERS_EVENT_LOG_LOST);
        return;
    }
    fused_mapShared();
    if (fs == nullptr) return;  // the flag stays: this process writes no more
    std::va_list arguments;
    va_start(arguments, format);
    corvane::write_message(format, arguments);
    va_end(arguments);
    corvane::leave();
}

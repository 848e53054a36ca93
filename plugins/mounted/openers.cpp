// Searches /proc. Programs come and go meanwhile: what cannot be read is passed over.
#include "plugins/mounted/openers.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "plugins/mounted/descriptor.hpp"

namespace corvane::mounted {
namespace {

namespace files = std::filesystem;

constexpr std::size_t kMostNamed = 8;

std::optional<Inode> inode_at(const std::string& path)
{
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return std::nullopt;
    return Inode{status.st_dev, status.st_ino};
}

bool is_number(const std::string& text)
{
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string describe(const files::path& process)
{
    std::string name;
    std::getline(std::ifstream(process / "comm"), name);
    struct stat status {};
    const bool has_user = stat(process.c_str(), &status) == 0;
    return "pid " + process.filename().string() + " (" + name +
           (has_user ? ", user " + std::to_string(status.st_uid) : "") + ")";
}

// A call that a task sleeps in: its number and arguments.
struct SleepingCall {
    long number = -1;
    std::array<std::uint64_t, 3> arguments{};
};

std::optional<SleepingCall> read_call(const files::path& task)
{
    std::ifstream file(task / "syscall");
    SleepingCall call;
    if (!(file >> call.number)) return std::nullopt;  // "running"
    file >> std::hex;
    for (std::uint64_t& argument : call.arguments) {
        std::string text;
        if (!(file >> text)) return std::nullopt;
        argument = std::strtoull(text.c_str(), nullptr, 16);
    }
    return call;
}

std::string read_text(const files::path& task, std::uint64_t address)
{
    const Descriptor memory(open((task / "mem").c_str(), O_RDONLY | O_CLOEXEC));
    std::array<char, PATH_MAX> text{};
    // Up to the end of the page first: the next one may not be there.
    const std::size_t first = std::min<std::size_t>(text.size(), 4096 - address % 4096);
    if (!memory.is_open()) return {};
    const auto place = static_cast<off_t>(address);
    if (pread(memory.get(), text.data(), first, place) <= 0) return {};
    if (strnlen(text.data(), first) == first && first < text.size()) {
        (void)!pread(memory.get(), text.data() + first, text.size() - first,
                     place + static_cast<off_t>(first));
    }
    text.back() = '\0';
    return text.data();
}

// The inode that the call of a task is about to open, seen from the task's own directories.
std::optional<Inode> target_of(const files::path& process, const files::path& task,
                               const SleepingCall& call)
{
    std::uint64_t text_at = call.arguments[0];
    std::string base = (process / "cwd").string();
    switch (call.number) {
#ifdef SYS_open
        case SYS_open:
        case SYS_creat:
#endif
        case SYS_truncate:
            break;
        case SYS_openat:
        case SYS_openat2:
            text_at = call.arguments[1];
            if (static_cast<std::int32_t>(call.arguments[0]) != AT_FDCWD) {
                base = (process / "fd" / std::to_string(call.arguments[0] & INT32_MAX)).string();
            }
            break;
        default:
            return std::nullopt;
    }
    const std::string path = read_text(task, text_at);
    if (path.empty()) return std::nullopt;
    return inode_at(path[0] == '/' ? (process / "root").string() + path : base + "/" + path);
}

bool waits_for(const files::path& process, const Inode& file)
{
    std::error_code error;
    for (const auto& task : files::directory_iterator(process / "task", error)) {
        const auto call = read_call(task.path());
        if (call && target_of(process, task.path(), *call) == file) return true;
    }
    return false;
}

bool has_open(const files::path& process, const Inode& file)
{
    std::error_code error;
    for (const auto& descriptor : files::directory_iterator(process / "fd", error)) {
        if (inode_at(descriptor.path().string()) == file) return true;
    }
    return false;
}

bool maps(const files::path& process, const Inode& file)
{
    std::ostringstream device;
    device << std::hex;
    device.fill('0');
    device.width(2);
    device << major(file.device) << ':';
    device.width(2);
    device << minor(file.device);
    std::ifstream table(process / "maps");
    for (std::string line; std::getline(table, line);) {
        std::istringstream words(line);
        std::string range;
        std::string rights;
        std::string offset;
        std::string place;
        ino_t number = 0;
        if (!(words >> range >> rights >> offset >> place >> number)) continue;
        if (number == file.number && place == device.str()) return true;
    }
    return false;
}

template <class Test>
std::string find_processes(bool is_self_meant, Test test)
{
    std::string found;
    std::size_t count = 0;
    std::error_code error;
    const std::string self = std::to_string(getpid());
    for (const auto& process : files::directory_iterator("/proc", error)) {
        const std::string name = process.path().filename().string();
        if (!is_number(name) || (name == self && !is_self_meant)) continue;
        if (!test(process.path())) continue;
        if (++count > kMostNamed) return found + " and more";
        found += (found.empty() ? "" : ", ") + describe(process.path());
    }
    return found;
}

}  // namespace

Inode inode_of(int descriptor)
{
    struct stat status {};
    if (fstat(descriptor, &status) != 0) return {};
    return {status.st_dev, status.st_ino};
}

std::string find_waiting_openers(const Inode& file)
{
    return find_processes(/*is_self_meant=*/true,
                          [&](const files::path& process) { return waits_for(process, file); });
}

std::string find_holders(const Inode& file)
{
    return find_processes(/*is_self_meant=*/false, [&](const files::path& process) {
        return has_open(process, file) || maps(process, file);
    });
}

}  // namespace corvane::mounted

// Builds the world's root on a memory file system: what is written in it is gone with the
// namespace.
#include "tests/harness/namespaces.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "tests/harness/wire.hpp"

namespace corvane::harness {

namespace {

namespace stdfs = std::filesystem;

constexpr const char* kOldRoot = "/.old_root";
constexpr const char* kMachineEtc = "/.machine_etc";

[[noreturn]] void fail(const std::string& what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

void must(int result, const std::string& what)
{
    if (result != 0) fail(what);
}

void write_text(const std::string& path, const std::string& text)
{
    const Fd file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (::write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        fail("cannot write " + path);
    }
}

void bind(const stdfs::path& from, const stdfs::path& to)
{
    must(::mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr),
         "cannot bind " + from.string() + " to " + to.string());
}

// Gives `to` the entry `from`: a link as a link, a folder or file by a bind mount.
void mirror(const stdfs::path& from, const stdfs::path& to)
{
    if (stdfs::is_symlink(from)) {
        stdfs::create_symlink(stdfs::read_symlink(from), to);
    } else if (stdfs::is_directory(from)) {
        stdfs::create_directories(to);
        bind(from, to);
    } else if (stdfs::exists(from)) {
        std::ofstream(to).close();
        bind(from, to);
    }
}

// Mirrors what lies in `from` into the folder `to`, but for the entries named.
void mirror_children(const stdfs::path& from, const stdfs::path& to,
                     const std::vector<std::string>& but)
{
    stdfs::create_directories(to);
    for (const auto& entry : stdfs::directory_iterator(from)) {
        const std::string name = entry.path().filename().string();
        if (std::find(but.begin(), but.end(), name) != but.end()) continue;
        if (from == kOldRoot && !entry.is_directory() && !entry.is_symlink()) continue;
        mirror(entry.path(), to / name);
    }
}

// An /etc whose entries lead to the machine's, so that a test may put its own in an entry's place.
void make_etc()
{
    stdfs::create_directory(kMachineEtc);
    bind(std::string(kOldRoot) + "/etc", kMachineEtc);
    stdfs::create_directory("/etc");
    for (const auto& entry : stdfs::directory_iterator(kMachineEtc)) {
        const std::string name = entry.path().filename().string();
        if (name == "samba") continue;  // only what a test puts there
        stdfs::create_symlink(std::string(kMachineEtc) + "/" + name, "/etc/" + name);
    }
}

void make_devices()
{
    stdfs::create_directories("/dev/shm");
    ::chmod("/dev/shm", 01777);
    for (const char* name : {"null", "zero", "full", "random", "urandom", "tty"}) {
        mirror(std::string(kOldRoot) + "/dev/" + name, std::string("/dev/") + name);
    }
    stdfs::create_symlink("/proc/self/fd", "/dev/fd");
    stdfs::create_symlink("/proc/self/fd/1", "/dev/stdout");
    stdfs::create_symlink("/proc/self/fd/2", "/dev/stderr");
}

// The machine's devices; shared memory is still this machine's own.
void mirror_devices()
{
    mirror(std::string(kOldRoot) + "/dev", "/dev");
    if (!stdfs::is_directory("/dev/shm")) return;
    must(::mount("corvane_world", "/dev/shm", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777"),
         "cannot mount shared memory");
}

// A fresh /proc shows this namespace's processes alone; where the machine hides parts of its own,
// the kernel refuses a fresh one, and the machine's stays.
void make_proc()
{
    stdfs::create_directory("/proc");
    if (::mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0) {
        bind(std::string(kOldRoot) + "/proc", "/proc");
    }
}

bool has_parent(const std::string& path, const std::vector<std::string>& folders)
{
    return std::any_of(folders.begin(), folders.end(), [&path](const std::string& folder) {
        return path.compare(0, folder.size(), folder) == 0;
    });
}

}  // namespace

void enter_namespaces()
{
    constexpr int kSpaces = CLONE_NEWNS | CLONE_NEWIPC | CLONE_NEWNET | CLONE_NEWPID;
    if (::geteuid() == 0 && ::unshare(kSpaces) == 0) return;
    const auto uid = std::to_string(::geteuid());
    const auto gid = std::to_string(::getegid());
    must(::unshare(CLONE_NEWUSER), "this machine allows no user namespace to this user");
    ::prctl(PR_SET_DUMPABLE, 1);  // else the files below belong to somebody else
    write_text("/proc/self/setgroups", "deny");
    write_text("/proc/self/uid_map", "0 " + uid + " 1");
    write_text("/proc/self/gid_map", "0 " + gid + " 1");
    must(::unshare(kSpaces), "this machine allows no mount, IPC, network and PID namespaces");
}

void build_root(const RootOptions& options)
{
    must(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "cannot part the mounts");
    must(::mount("corvane_world", "/tmp", "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755"),
         "cannot mount a memory file system");
    stdfs::create_directory(std::string("/tmp") + kOldRoot);
    must(static_cast<int>(
             ::syscall(SYS_pivot_root, "/tmp", (std::string("/tmp") + kOldRoot).c_str())),
         "cannot change the root");
    must(::chdir("/"), "cannot enter the new root");

    const stdfs::path old = kOldRoot;
    mirror_children(old, "/", {"tmp", "dev", "proc", "usr", "etc", "lost+found"});
    mirror_children(old / "usr", "/usr", {"Corvane"});
    stdfs::create_directories("/usr/Corvane/lib");
    stdfs::create_directory("/tmp");
    ::chmod("/tmp", 01777);
    make_etc();
    options.real_devices ? mirror_devices() : make_devices();
    make_proc();
    for (const auto& path : options.keep_paths) {
        if (!has_parent(path, {"/tmp/", "/usr/Corvane/", "/dev/"})) continue;
        stdfs::create_directories(path);
        bind(old.string() + path, path);
    }
    must(::umount2(kOldRoot, MNT_DETACH), "cannot leave the old root");
    stdfs::remove(kOldRoot);
}

void raise_loopback()
{
    const Fd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    must(::ioctl(socket.get(), SIOCGIFFLAGS, &request), "cannot ask the loopback interface");
    request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP | IFF_RUNNING);
    must(::ioctl(socket.get(), SIOCSIFFLAGS, &request), "cannot raise the loopback interface");
}

}  // namespace corvane::harness

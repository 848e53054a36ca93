// corvane_sandbox: runs one command in a world of its own, with an own /usr/Corvane, /tmp, IPC,
// network and process ids, and ends with the command's status. Status 125: this machine lets us
// make no world.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tests/harness/world.hpp"

namespace {

constexpr const char* kUsage =
    "Usage: corvane_sandbox [--devices] [--keep PATH]... [--] COMMAND [ARGUMENT...]\n"
    "Runs COMMAND with its own /usr/Corvane, /tmp, /etc, shared memory, network and processes.\n"
    "Nothing of the machine changes, and what the command leaves is gone when it ends.\n"
    "  --devices    /dev is the machine's (loop devices)\n"
    "  --keep PATH  PATH stays visible, even below /tmp\n";

}  // namespace

int main(int argc, char** argv)
{
    corvane::harness::RootOptions options;
    int next = 1;
    for (; next < argc && argv[next][0] == '-'; ++next) {
        if (std::strcmp(argv[next], "--devices") == 0) {
            options.real_devices = true;
        } else if (std::strcmp(argv[next], "--keep") == 0 && next + 1 < argc) {
            options.keep_paths.emplace_back(argv[++next]);
        } else if (std::strcmp(argv[next], "--") == 0) {
            ++next;
            break;
        } else {
            const bool is_help = std::strcmp(argv[next], "--help") == 0;
            std::fputs(kUsage, is_help ? stdout : stderr);
            return is_help ? 0 : 2;
        }
    }
    if (next >= argc) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    try {
        corvane::harness::World world(options);
        corvane::harness::Command command;
        command.arguments.assign(argv + next, argv + argc);
        command.input = STDIN_FILENO;
        command.output = STDOUT_FILENO;
        command.errors = STDERR_FILENO;
        const auto pid = world.spawn(command);
        for (;;) {
            const auto status = world.wait(pid, std::chrono::hours(1));
            if (status) return *status;
        }
    } catch (const corvane::harness::NoWorld& error) {
        std::fprintf(
            stderr,
            "corvane_sandbox: %s. Run it as root (in a container: with --privileged), or where "
            "user namespaces are allowed.\n",
            error.what());
        return 125;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "corvane_sandbox: %s\n", error.what());
        return 125;
    }
}

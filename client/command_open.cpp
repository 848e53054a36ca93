// `corvane open`: runs a command with a file that the local daemon opened.
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>

#include "client/command.hpp"
#include "client/descriptor.h"
#include "client/descriptor_owner.hpp"
#include "client/failure.hpp"

namespace corvane {
namespace {

std::string advice_for(int errno_value)
{
    switch (errno_value) {
        case EREMOTEIO:
            return "corvaned could not open it for reading and writing: its log says why "
                   "(FTX1536I)";
        case ENOENT:
        case ECONNREFUSED:
            return "check CORVANEFIFO, and that corvaned runs on this host";
        case ENAMETOOLONG:
            return "use a shorter path";
        default:
            return "check corvaned and its log";
    }
}

Descriptor open_by_daemon(const std::string& path)
{
    // The daemon has a working directory of its own.
    const std::string absolute = std::filesystem::absolute(path).string();
    Descriptor file(corvane_open_descriptor(absolute.c_str()));
    if (!file.is_open()) {
        const int why = errno;
        fail_errno(kLocalFile, "the descriptor service did not open " + absolute, why,
                   advice_for(why));
    }
    return file;
}

}  // namespace

// The command takes this process's place, so its exit status is the one that the caller sees.
void run_open(const CommandOptions& options)
{
    const Descriptor file = open_by_daemon(options.path);
    if (dup2(file.get(), STDIN_FILENO) < 0 || dup2(file.get(), STDOUT_FILENO) < 0) {
        fail_errno(kLocalFile, "the file cannot become standard input and output", errno,
                   "close some descriptors");
    }
    std::vector<std::string> words = options.program;
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (auto& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    (void)std::signal(SIGPIPE, SIG_DFL);  // as a command expects it
    (void)execvp(arguments.front(), arguments.data());
    fail_errno(kLocalFile, "the command " + words.front() + " cannot be run", errno,
               "check its name and PATH");
}

}  // namespace corvane

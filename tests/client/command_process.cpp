// Starts the command with files for its three streams.
#include "tests/client/command_process.hpp"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

namespace corvane::test {
namespace {

Descriptor memory_file(const std::string& contents)
{
    Descriptor file(memfd_create("stream", MFD_CLOEXEC));
    if (!file.is_open() || pwrite(file.get(), contents.data(), contents.size(), 0) !=
                               static_cast<ssize_t>(contents.size())) {
        throw std::runtime_error("no memory file");
    }
    return file;
}

std::string contents_of(const Descriptor& file)
{
    std::string text;
    char piece[4096];
    ssize_t count = 0;
    while ((count = pread(file.get(), piece, sizeof piece, static_cast<off_t>(text.size()))) > 0) {
        text.append(piece, static_cast<std::size_t>(count));
    }
    return text;
}

}  // namespace

CommandProcess::CommandProcess(std::vector<std::string> arguments, const std::string& input,
                               int output)
    : in_(memory_file(input)), out_(memory_file({})), err_(memory_file({}))
{
    arguments.insert(arguments.begin(), CORVANE_COMMAND);
    std::vector<char*> words;
    for (auto& word : arguments) words.push_back(word.data());
    words.push_back(nullptr);
    child_ = fork();
    if (child_ < 0) throw std::runtime_error("no child");
    if (child_ != 0) return;
    (void)dup2(in_.get(), STDIN_FILENO);
    (void)dup2(output >= 0 ? output : out_.get(), STDOUT_FILENO);
    (void)dup2(err_.get(), STDERR_FILENO);
    (void)execv(words.front(), words.data());
    _exit(126);
}

CommandProcess::~CommandProcess()
{
    if (child_ < 0) return;
    (void)kill(child_, SIGKILL);
    (void)waitpid(child_, nullptr, 0);
}

void CommandProcess::send(int signal) const
{
    (void)kill(child_, signal);
}

bool CommandProcess::has_ended() const
{
    siginfo_t what{};
    return waitid(P_PID, static_cast<id_t>(child_), &what, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           what.si_pid == child_;
}

Finished CommandProcess::finish()
{
    int status = 0;
    if (waitpid(child_, &status, 0) != child_) throw std::runtime_error("the child is lost");
    child_ = -1;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), contents_of(out_),
            contents_of(err_)};
}

Finished run_command(const std::vector<std::string>& arguments, const std::string& input)
{
    return CommandProcess(arguments, input).finish();
}

}  // namespace corvane::test

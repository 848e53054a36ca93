// Runs the real command as a child and takes what it prints.
#ifndef CORVANE_TESTS_CLIENT_COMMAND_PROCESS_HPP
#define CORVANE_TESTS_CLIENT_COMMAND_PROCESS_HPP

#include <sys/types.h>

#include <string>
#include <vector>

#include "client/descriptor_owner.hpp"

namespace corvane::test {

struct Finished {
    int status = -1;  // exit status, or 128 + the signal that ended it
    std::string out;
    std::string err;
};

// A started command. Its standard input is `input`; output and errors go to files.
class CommandProcess {
public:
    // `output` takes standard output's place when it is not -1.
    explicit CommandProcess(std::vector<std::string> arguments, const std::string& input = {},
                            int output = -1);
    ~CommandProcess();
    CommandProcess(const CommandProcess&) = delete;
    CommandProcess& operator=(const CommandProcess&) = delete;

    void send(int signal) const;
    [[nodiscard]] bool has_ended() const;  // and waits for `finish`
    [[nodiscard]] Finished finish();

private:
    Descriptor in_, out_, err_;
    pid_t child_ = -1;
};

[[nodiscard]] Finished run_command(const std::vector<std::string>& arguments,
                                   const std::string& input = {});

}  // namespace corvane::test
#endif

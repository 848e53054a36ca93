// A scratch directory of a test, and commands run in it.
#ifndef CORVANE_TESTS_PLUGINS_SCRATCH_HPP
#define CORVANE_TESTS_PLUGINS_SCRATCH_HPP

#include <filesystem>
#include <string>

namespace corvane::test {

// Made anew for each test, removed with all it holds.
class Scratch {
public:
    Scratch();
    ~Scratch();
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    [[nodiscard]] std::string path(const std::string& name) const { return directory_ / name; }
    [[nodiscard]] std::string write(const std::string& name, const std::string& content) const;

private:
    std::filesystem::path directory_;
};

struct CommandResult {
    int status = -1;  // exit status
    std::string output;
};

// Runs a shell command, standard error included in its output.
CommandResult run_command(const std::string& command);

// Runs a command that must succeed; a failure is a test failure. Returns its output.
std::string must_run(const std::string& command);

std::string read_whole_file(const std::string& path);

// Text that differs at every place and from seed to seed.
std::string pattern(std::size_t bytes, unsigned seed);

}  // namespace corvane::test

#endif

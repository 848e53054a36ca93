// Runs a test's body in a process of its own with a private machine around it: own IPC, /tmp, /etc
// and /usr/Corvane, and this program's globals as they were before any test used them.
#ifndef CORVANE_TESTS_MDCMAIN_PRIVATE_MACHINE_HPP
#define CORVANE_TESTS_MDCMAIN_PRIVATE_MACHINE_HPP

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>

#include "tests/harness/namespaces.hpp"

namespace corvane::test {

inline constexpr int kPassed = 0;
inline constexpr int kFailed = 113;  // no exit status of the code under test
inline constexpr int kNoMachine = 114;

// Runs `body` in a child and returns the child's exit status, or 128 + the signal that ended it.
inline int status_of_child(const std::function<void()>& body)
{
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        int status = kFailed;
        try {
            body();
            status = ::testing::Test::HasFailure() ? kFailed : kPassed;
        } catch (const std::exception& problem) {
            std::cout << "the test's body threw: " << problem.what() << std::endl;
        }
        std::fflush(nullptr);
        _exit(status);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) return kFailed;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// The catalogue that a new machine has. Creating the segment only looks whether there is one; texts
// come from the built-in table.
inline constexpr char kCatalogue[] = "/usr/Corvane/nls/C/corvanecat.cat";

inline void write_file(const std::string& path, const std::string& text)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::filesystem::remove(path);  // a link to the machine's own file, in /etc
    std::ofstream file(path, std::ios::binary);
    file << text;
    if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

// The whole file; empty when there is none.
inline std::string read_file(const std::string& path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

// Enters a private machine and runs `body` there as its first process. Ends this process.
[[noreturn]] inline void live_in_machine(const std::function<void()>& body)
{
    try {
        harness::enter_namespaces();
    } catch (const std::exception& problem) {
        std::cout << "no private machine: " << problem.what() << std::endl;
        _exit(kNoMachine);
    }
    _exit(status_of_child([&body] {
        harness::build_root({});
        for (const char* name :
             {"CORVANEVOLS", "CORVANEFIFO", "CORVANE_SMBPATH", "LC_ALL", "LC_CTYPE", "LC_COLLATE",
              "LC_TIME", "LC_NUMERIC", "LC_MONETARY", "LC_MESSAGES", "LANG"}) {
            unsetenv(name);
        }
        write_file(kCatalogue, "only looked for");
        body();
    }));
}

// The body's failures are the test's; a body that ends the process, by exit or signal, fails it
// unless `wanted_status` says so.
inline void in_private_machine(const std::function<void()>& body, int wanted_status = kPassed)
{
    const int status = status_of_child([&body] { live_in_machine(body); });
    if (status == kNoMachine)
        GTEST_SKIP() << "this machine lets us make no private one (see above)";
    EXPECT_EQ(status, wanted_status) << "exit status, or 128 + signal, of the private machine";
}

inline unsigned permissions_of(const std::string& path)
{
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0U;
}

// Sends standard output into a file while it lives.
class OutputCapture {
public:
    OutputCapture() : saved_(dup(STDOUT_FILENO))
    {
        std::fflush(stdout);
        const int file = open(kPath, O_RDWR | O_CREAT | O_TRUNC, 0600);
        dup2(file, STDOUT_FILENO);
        close(file);
    }
    ~OutputCapture()
    {
        std::fflush(stdout);
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
    }
    OutputCapture(const OutputCapture&) = delete;
    OutputCapture& operator=(const OutputCapture&) = delete;

    [[nodiscard]] std::string text() const
    {
        std::fflush(stdout);
        return read_file(kPath);
    }

private:
    static constexpr const char* kPath = "/tmp/captured_output";
    int saved_;
};

}  // namespace corvane::test

#endif

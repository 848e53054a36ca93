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

#include "nls/catalogue_compiler.h"
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

// Compiles `messages` ("number text" lines of set 2) into a catalogue.
inline void write_catalogue(const std::string& path, const std::string& messages)
{
    write_file("/tmp/messages", "$set 2\n" + messages);
    write_file(path, "");
    const int status = status_of_child([&path] {
        MCParse(open("/tmp/messages", O_RDONLY));
        MCWriteCat(open(path.c_str(), O_WRONLY));
    });
    if (status != kPassed) throw std::runtime_error("cannot compile " + path);
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
        write_catalogue(kCatalogue, "1 the only text\\n\n");
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

// What `body` and its children write to standard output, the messages of a failing check included.
inline std::string output_of(const std::function<void()>& body)
{
    constexpr char kPath[] = "/tmp/captured_output";
    std::fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    const int file = open(kPath, O_RDWR | O_CREAT | O_TRUNC, 0600);
    dup2(file, STDOUT_FILENO);
    close(file);
    body();
    std::fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    return read_file(kPath);
}

}  // namespace corvane::test

#endif

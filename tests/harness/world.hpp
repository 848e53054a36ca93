// A private machine for one test: own /usr/Corvane, /tmp, /etc, IPC, network and processes. All of
// it is gone when the World object is. Works as root and, where the machine allows user namespaces,
// without.
#ifndef CORVANE_TESTS_HARNESS_WORLD_HPP
#define CORVANE_TESTS_HARNESS_WORLD_HPP

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/harness/namespaces.hpp"
#include "tests/harness/wire.hpp"

namespace corvane::harness {

using std::chrono::milliseconds;

// Long enough for a loaded machine under a sanitizer; reached only by a test that fails.
inline constexpr milliseconds kPatience{20000};

// This machine lets us make no world; what() says why. A test skips aloud with it.
class NoWorld : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The keeper refused a request, or is gone.
class WorldError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

enum class Network { kMain, kClient };
inline constexpr const char* kMainAddress =
    "10.77.0.1";  // of the daemon's side, after join_networks
inline constexpr const char* kClientAddress = "10.77.0.2";  // of the client's side

// Asks `condition` again and again until it holds; false when it does not within `limit`.
[[nodiscard]] bool eventually(const std::function<bool()>& condition,
                              milliseconds limit = kPatience);

// How a program is started. Standard streams that are not given come from and go to /dev/null.
struct Command {
    std::vector<std::string> arguments;    // the program first, looked for in PATH
    std::vector<std::string> environment;  // NAME=value sets, NAME takes out
    Network network = Network::kMain;
    int input = -1;
    int output = -1;
    int errors = -1;
};

// What a finished program left.
struct Outcome {
    int status = -1;  // exit status, or 128 + the signal that ended it
    std::string output;
    std::string errors;
};

class World {
public:
    explicit World(RootOptions options = {});
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    // The file `inside` of the world, as this process may open it. It must not lead over an
    // absolute link.
    [[nodiscard]] std::filesystem::path path(const std::string& inside) const;
    void write_file(const std::string& inside, const std::string& contents);
    [[nodiscard]] std::string read_file(
        const std::string& inside) const;  // empty when there is none
    // A file of /proc, as the world's first process sees it.
    [[nodiscard]] std::string read_inside(const std::string& inside);

    // Starts a program; the result is its process id inside.
    [[nodiscard]] pid_t spawn(const Command& command);
    // Waits for a program's end: exit status or 128 + signal; nothing when it runs on.
    [[nodiscard]] std::optional<int> wait(pid_t pid, milliseconds limit = kPatience);
    // Runs a program to its end and takes what it wrote.
    [[nodiscard]] Outcome run(Command command, milliseconds limit = kPatience);
    void kill(pid_t pid, int signal);
    [[nodiscard]] bool is_running(pid_t pid);
    [[nodiscard]] std::vector<pid_t> processes();

    // A socket inside one of the networks, not yet bound or connected.
    [[nodiscard]] Fd socket(Network network, int domain, int type);
    // Makes the client's network and the cable between the two.
    void join_networks();

    // The shared segment, by byte offset.
    [[nodiscard]] bool has_segment();
    [[nodiscard]] std::int64_t segment_bytes();
    [[nodiscard]] int segment_mode();
    [[nodiscard]] std::string peek(std::int64_t offset, std::int64_t count);
    void poke(std::int64_t offset, const std::string& bytes);
    [[nodiscard]] std::int32_t word(std::int64_t offset);
    void set_word(std::int64_t offset, std::int32_t value);
    [[nodiscard]] std::string text(std::int64_t offset, std::int64_t room);
    void remove_segment();

private:
    Packet ask(Op op, std::int64_t a = 0, std::int64_t b = 0, std::int64_t c = 0,
               std::string payload = {}, const std::vector<int>& fds = {});

    Fd control_;
    Fd root_;
    pid_t keeper_ = -1;
};

}  // namespace corvane::harness

#endif

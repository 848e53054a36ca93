// The test fixture for whole-daemon tests: a world, the daemon in it, clients, and a check at the
// end that nothing was reported by a sanitizer and no process was left.
#ifndef CORVANE_TESTS_HARNESS_DAEMON_HPP
#define CORVANE_TESTS_HARNESS_DAEMON_HPP

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/harness/codec.hpp"
#include "tests/harness/segment_fields.hpp"
#include "tests/harness/world.hpp"

namespace corvane::harness {

inline constexpr std::uint16_t kPort = 5501;
inline constexpr const char* kSocketPath = "/tmp/corvane_fd.fifo";

// A client's UDP socket in one of the world's networks, connected to the daemon.
class UdpClient {
public:
    UdpClient(World& world, Network network, std::uint16_t port);

    void send(std::string_view datagram);
    // The next datagram, or nothing within `limit`.
    [[nodiscard]] std::optional<std::string> receive(milliseconds limit = kPatience);
    // Sends and takes the answer; the test fails without one, and an empty message comes back.
    [[nodiscard]] codec::Bytes ask(const codec::Bytes& request);

private:
    Fd socket_;
};

class DaemonTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    World& world() { return *world_; }

    // Starts corvaned with these options, in `environment_`, and waits until both its services
    // answer.
    void start(const std::vector<std::string>& options = {"-d"});
    // Starts it without waiting for its services.
    pid_t launch(const std::vector<std::string>& options);
    // Starts, waits and kills it once, so that the segment exists and can be set before the real
    // start.
    void make_segment();
    void stop(int signal = SIGKILL);
    // Both services take requests.
    [[nodiscard]] bool is_ready();
    [[nodiscard]] pid_t daemon_pid() const { return pid_; }
    [[nodiscard]] Command daemon_command(const std::vector<std::string>& options) const;

    // Sets logLevel in the segment of the running daemon.
    void set_level(std::int32_t level);
    [[nodiscard]] std::string log() { return world().read_file("/usr/Corvane/mclog0"); }
    // The log's lines without their prefix (date or process id), and without the "corvaned: " mark.
    [[nodiscard]] std::vector<std::string> log_lines();
    // Waits until the log holds `text`.
    [[nodiscard]] bool logged(const std::string& text, milliseconds limit = kPatience);
    // Empties the log file.
    void clear_log() { world().write_file("/usr/Corvane/mclog0", ""); }

    // Puts a plug-in of the build tree, or a recorder, into /usr/Corvane/lib under the given name.
    void install_plugin(const std::string& built, const std::string& as);
    void install_recorder(const std::string& as = "recorder.so",
                          const std::string& variant = "corvane_recorder");
    // Writes the recorder's script.
    void script(const std::string& lines, const std::string& plugin = "recorder.so");
    // The calls that recorders wrote down, without FS_Init and FS_GetVersion; `forget_calls`
    // empties it.
    [[nodiscard]] std::vector<std::string> calls();
    void forget_calls();
    // Puts the message catalogues of the build tree where the daemon looks for them.
    void install_catalogues();

    [[nodiscard]] UdpClient client(Network network = Network::kMain);

    std::vector<std::string> environment_;

private:
    [[nodiscard]] std::string what_daemon_said() const;
    void check_sanitizers();

    std::unique_ptr<World> world_;
    Fd output_;
    pid_t pid_ = -1;
};

}  // namespace corvane::harness

#endif

// The load generator's command line: a bounded run against a server on this machine, and its
// figures as JSON.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sched.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/load_generator_loop.hpp"

namespace {

using corvane::bench::Options;
using corvane::bench::Report;

// The loopback network alone: this program must not be turned against other machines.
bool parse_loopback(const std::string& text, std::uint32_t& address)
{
    in_addr parsed{};
    if (inet_pton(AF_INET, text.c_str(), &parsed) != 1) return false;
    address = ntohl(parsed.s_addr);
    return address >> 24U == 127;
}

nlohmann::json figures(const Report& report)
{
    auto windows = nlohmann::json::array();
    std::uint64_t worst_ns = 0;
    for (const auto& [requests, p999_ns] : report.windows) {
        windows.push_back({{"requests", requests}, {"p999_ns", p999_ns}});
        worst_ns = std::max(worst_ns, p999_ns);
    }
    return {{"requests", report.requests},
            {"failures", report.failures},
            {"resent", report.resent},
            {"seconds", report.seconds},
            {"requests_per_second", static_cast<double>(report.requests) / report.seconds},
            {"p50_ns", report.latency.quantile(0.5)},
            {"p99_ns", report.latency.quantile(0.99)},
            {"p999_ns", report.latency.quantile(0.999)},
            {"windows", windows},
            {"worst_window_p999_ns", worst_ns},
            {"reply_bytes", report.reply_bytes}};
}

// Starts `command` and asks until it answers. Returns the nanoseconds between, and ends it.
std::uint64_t time_to_first_answer(const Options& options, const std::vector<std::string>& command)
{
    using Clock = std::chrono::steady_clock;
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    corvane::bench::RequestWriter writer(options.style);
    const auto request = writer.write(corvane::bench::Kind::kGetVolume, {});
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = htons(options.port);
    server.sin_addr.s_addr = htonl(options.address);
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (connect(socket, reinterpret_cast<const sockaddr*>(&server), sizeof server) != 0) return 0;

    const auto start = Clock::now();
    const pid_t child = fork();
    if (child == 0) {
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    std::vector<char> reply(65536);
    ssize_t received = -1;
    // A refused datagram comes back at once as an error, so this asks about as often as it can.
    while (received <= 0 && Clock::now() - start < std::chrono::seconds(options.limit_s)) {
        (void)!send(socket, request.data(), request.size(), MSG_NOSIGNAL);
        for (int i = 0; i < 20 && received <= 0; ++i) {
            received = recv(socket, reply.data(), reply.size(), MSG_DONTWAIT);
            if (received < 0 && errno == ECONNREFUSED) break;
        }
    }
    const auto elapsed = Clock::now() - start;
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    close(socket);
    if (received <= 0) throw std::runtime_error("the server did not answer");
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed).count());
}

}  // namespace

int main(int argc, char** argv)
try {
    Options options;
    std::string address = "127.0.0.1";
    std::string mix = "pair";
    std::vector<std::string> command;
    CLI::App app("Sends metadata requests in a closed loop to a server on this machine.");
    app.add_option("--address", address, "server, in 127.0.0.0/8 only");
    app.add_option("--port", options.port, "UDP port")->check(CLI::Range(1, 65535));
    app.add_option("--sockets", options.sockets, "clients")->check(CLI::Range(1, 64));
    app.add_option("--mix", mix, "volume, initial, extended, setsize, close, pair or all");
    app.add_option("--requests", options.requests, "stop after so many")
        ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{100'000'000}));
    app.add_option("--seconds", options.limit_s, "stop after so long")->check(CLI::Range(1, 3600));
    app.add_option("--repeat", options.repeat, "send each request so many times more")
        ->check(CLI::Range(0, 100));
    app.add_option("--window-ms", options.window_ms, "report the worst window of this length too")
        ->check(CLI::Range(0, 60'000));
    app.add_option("--first-file", options.first_file, "number of the first file");
    app.add_option("--lease-ms", options.style.lease_ms, "lease to ask for; 0 for the default")
        ->check(CLI::Range(0, 0x7FFFFFFF));
    app.add_flag("--tracked", options.style.is_tracked, "ask for duplicate detection");
    app.add_flag("--foreign", options.style.is_foreign, "use the other byte order");
    app.add_flag("--echo", options.is_echo, "the server only echoes: do not judge its replies");
    app.add_option("command", command,
                   "behind \"--\": start this instead, and tell how long its first answer took")
        ->expected(0, 16);
    CLI11_PARSE(app, argc, argv);
    const auto known_mix = corvane::bench::mix_by_name(mix);
    if (!known_mix || !parse_loopback(address, options.address)) {
        std::fputs("load_generator: --mix must name a mix, and --address one of 127.0.0.0/8.\n",
                   stderr);
        return 2;
    }
    options.mix = *known_mix;
    if (!command.empty()) {
        std::puts(nlohmann::json{{"first_answer_ns", time_to_first_answer(options, command)}}
                      .dump()
                      .c_str());
        return 0;
    }
    const Report report = corvane::bench::run_load(options);
    std::puts(figures(report).dump().c_str());
    return report.failures == 0 ? 0 : 1;
} catch (const std::exception& error) {
    std::fprintf(stderr, "load_generator: %s\n", error.what());
    return 1;
}

// Starting, watching and stopping the daemon inside a world.
#include "tests/harness/daemon.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <sstream>

namespace corvane::harness {

namespace {

namespace stdfs = std::filesystem;

std::vector<std::string> split_lines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

std::string contents(int fd)
{
    std::string all;
    std::array<char, 4096> part{};
    off_t at = 0;
    for (ssize_t got = 0; (got = ::pread(fd, part.data(), part.size(), at)) > 0; at += got) {
        all.append(part.data(), static_cast<std::size_t>(got));
    }
    return all;
}

bool is_sanitizer_report(const std::string& text)
{
    static constexpr std::array kMarks{"ERROR: AddressSanitizer", "ERROR: LeakSanitizer",
                                       "WARNING: ThreadSanitizer", "runtime error:"};
    return std::any_of(kMarks.begin(), kMarks.end(),
                       [&text](const char* mark) { return text.find(mark) != std::string::npos; });
}

}  // namespace

UdpClient::UdpClient(World& world, Network network, std::uint16_t port)
    : socket_(world.socket(network, AF_INET, SOCK_DGRAM))
{
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    ::inet_pton(AF_INET, network == Network::kMain ? "127.0.0.1" : kMainAddress, &to.sin_addr);
    if (::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) {
        throw WorldError("cannot reach the daemon's network");
    }
}

void UdpClient::send(std::string_view datagram)
{
    // A refusal that an earlier datagram met comes up here: send once more.
    for (int i = 0; i < 2; ++i) {
        if (::send(socket_.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL) >= 0) return;
    }
}

std::optional<std::string> UdpClient::receive(milliseconds limit)
{
    pollfd ready{socket_.get(), POLLIN, 0};
    if (::poll(&ready, 1, static_cast<int>(limit.count())) <= 0) return std::nullopt;
    std::string datagram(65536, '\0');
    const ssize_t got = ::recv(socket_.get(), datagram.data(), datagram.size(), 0);
    if (got < 0) return std::nullopt;
    datagram.resize(static_cast<std::size_t>(got));
    return datagram;
}

codec::Bytes UdpClient::ask(const codec::Bytes& request)
{
    send(request.data());
    auto reply = receive();
    EXPECT_TRUE(reply.has_value()) << "no reply";
    // The daemon answers in its own order, and the test runs on the same machine.
    return codec::Bytes(reply.value_or(std::string(65536, '\0')), codec::Order::kLittle);
}

void DaemonTest::SetUp()
{
    try {
        world_ = std::make_unique<World>();
    } catch (const NoWorld& error) {
        GTEST_SKIP() << "no private world on this machine: " << error.what();
    }
    environment_ = {"ASAN_OPTIONS=log_path=/tmp/sanitizer:detect_odr_violation=0",
                    "UBSAN_OPTIONS=print_stacktrace=1", "TSAN_OPTIONS=log_path=/tmp/sanitizer",
                    "TZ=UTC", "CORKELDIR=/usr/Corvane"};
    // Whatever the machine's environment says: the daemon's own settings are the test's.
    for (const char* name : {"CORVANEVOLS", "CORVANEFIFO", "CORVANE_SMBPATH", "MAXDGRAM",
                             "TRACK_MESSAGES", "MAX_TRACKED_MESSAGES", "CORVANE_VOLUMES_FILE",
                             "KEL_CODESET", "BINDIR", "LC_ALL", "LC_MESSAGES", "LC_CTYPE",
                             "LC_COLLATE", "LC_TIME", "LC_NUMERIC", "LC_MONETARY", "LANG"}) {
        environment_.emplace_back(name);
    }
    install_catalogues();
    output_ = Fd(::memfd_create("daemon", MFD_CLOEXEC));
}

void DaemonTest::TearDown()
{
    if (!world_) return;
    stop();
    check_sanitizers();
    const auto left = world().processes();
    EXPECT_TRUE(left.empty()) << left.size() << " processes left running";
    if (HasFailure()) {
        std::string tail = log();
        if (tail.size() > 6000) tail = "[...]" + tail.substr(tail.size() - 6000);
        std::fprintf(stderr, "--- the daemon's output\n%s--- its log\n%s---\n",
                     what_daemon_said().c_str(), tail.c_str());
    }
}

void DaemonTest::check_sanitizers()
{
    EXPECT_FALSE(is_sanitizer_report(what_daemon_said())) << what_daemon_said();
    for (const auto& entry : stdfs::directory_iterator(world().path("/tmp"))) {
        const std::string name = entry.path().filename().string();
        if (name.rfind("sanitizer.", 0) != 0) continue;
        ADD_FAILURE() << world().read_file("/tmp/" + name);
    }
}

std::string DaemonTest::what_daemon_said() const
{
    return contents(output_.get());
}

Command DaemonTest::daemon_command(const std::vector<std::string>& options) const
{
    Command command;
    command.arguments = {CORVANE_BUILD_DIR "/bin/corvaned"};
    command.arguments.insert(command.arguments.end(), options.begin(), options.end());
    command.environment = environment_;
    command.output = output_.get();
    command.errors = output_.get();
    return command;
}

pid_t DaemonTest::launch(const std::vector<std::string>& options)
{
    return world().spawn(daemon_command(options));
}

void DaemonTest::start(const std::vector<std::string>& options)
{
    pid_ = launch(options);
    ASSERT_TRUE(eventually([this] { return is_ready() || world().wait(pid_, milliseconds(0)); }));
    ASSERT_TRUE(is_ready()) << "the daemon ended at once";
}

void DaemonTest::make_segment()
{
    start();
    stop();
    clear_log();
}

void DaemonTest::stop(int signal)
{
    if (pid_ < 0) return;
    if (world().is_running(pid_)) world().kill(pid_, signal);
    EXPECT_TRUE(world().wait(pid_).has_value()) << "the daemon does not end";
    pid_ = -1;
}

// The descriptor service comes up last; its socket then stands in the kernel's list as accepting.
bool DaemonTest::is_ready()
{
    for (const auto& line : split_lines(world().read_inside("/proc/net/unix"))) {
        const bool accepts = line.find(" 00010000 ") != std::string::npos;
        if (accepts && line.find(".fifo") != std::string::npos) return true;
    }
    return false;
}

void DaemonTest::set_level(std::int32_t level)
{
    world().set_word(segment::kLogLevel, level);
}

std::vector<std::string> DaemonTest::log_lines()
{
    std::vector<std::string> lines;
    for (std::string line : split_lines(log())) {
        // "MM/DD|hh:mm:ss " or "PID " stands in front of a message's first line.
        const auto blank = line.find(' ');
        const bool has_prefix = blank != std::string::npos && blank > 0 &&
                                line.find_first_not_of("0123456789/|:") == blank;
        if (has_prefix) line.erase(0, blank + 1);
        if (line.rfind("corvaned: ", 0) == 0) line.erase(0, 10);
        lines.push_back(line);
    }
    return lines;
}

bool DaemonTest::logged(const std::string& text, milliseconds limit)
{
    return eventually([&] { return log().find(text) != std::string::npos; }, limit);
}

void DaemonTest::install_plugin(const std::string& built, const std::string& as)
{
    stdfs::copy_file(built, world().path("/usr/Corvane/lib/" + as),
                     stdfs::copy_options::overwrite_existing);
}

void DaemonTest::install_recorder(const std::string& as, const std::string& variant)
{
    install_plugin(CORVANE_BUILD_DIR "/test_plugins/" + variant + ".so", as);
    stdfs::create_directories(world().path("/tmp/recorder"));
}

void DaemonTest::script(const std::string& lines, const std::string& plugin)
{
    world().write_file("/tmp/recorder/" + plugin + ".script", lines);
}

std::vector<std::string> DaemonTest::calls()
{
    std::vector<std::string> calls;
    for (const auto& line : split_lines(world().read_file("/tmp/recorder/calls"))) {
        const bool is_start = line.find(" FS_Init") != std::string::npos ||
                              line.find(" FS_GetVersion") != std::string::npos;
        if (!is_start) calls.push_back(line);
    }
    return calls;
}

void DaemonTest::forget_calls()
{
    world().write_file("/tmp/recorder/calls", "");
}

void DaemonTest::install_catalogues()
{
    constexpr const char* kName = "corvanecat.cat";
    for (const auto& language : stdfs::directory_iterator(CORVANE_BUILD_DIR "/nls")) {
        if (!stdfs::exists(language.path() / kName)) continue;
        const auto to = world().path("/usr/Corvane/nls") / language.path().filename();
        stdfs::create_directories(to);
        stdfs::copy_file(language.path() / kName, to / kName);
    }
}

UdpClient DaemonTest::client(Network network)
{
    return UdpClient(world(), network, kPort);
}

}  // namespace corvane::harness

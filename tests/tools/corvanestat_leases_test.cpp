// corvanestat leases and release: who holds what is listed as it is, root alone ends a lease, and
// nothing that a local process does to the socket holds anybody up.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <regex>
#include <set>

#include "osl/admin_protocol.hpp"
#include "tests/tools/tool_test.hpp"

namespace corvane::harness {
namespace {

using nlohmann::json;

constexpr std::int32_t kInvalidKey = 407;
constexpr std::int32_t kLease_ms = 600000;
constexpr std::size_t kPeerBytes = 200000;  // more than a reply has

std::string text_hex(const std::string& text)
{
    return codec::hex(text + '\0');
}

std::string other_file()
{
    return cookie(0x60);
}

class Leases : public ToolTest {
protected:
    // Two files, in turns; the plug-in knows one name, which fits both.
    static Script two_files()
    {
        Script answers;
        const std::string volume = "result=0 volume=" + volume_hex() + " file=";
        answers.cookies = volume + file_hex() + "\nFS_GetCookies " + volume +
                          codec::hex(other_file()) + "\nFS_GetCookies " + volume + file_hex();
        answers.leases = "result=1\nFS_GetPath result=0 path=" + text_hex("/vol/dir/film") +
                         " mount=" + text_hex("/vol");
        return answers;
    }
    static codec::InitialMap writing()
    {
        codec::InitialMap map = map_of();
        map.intention = 2;
        map.lease = kLease_ms;
        return map;
    }
    static codec::InitialMap reading()
    {
        codec::InitialMap map = map_of();
        map.lease = kLease_ms / 2;
        return map;
    }
    // Key 0: a reader on this host. Key 1: a writer on another one, with another file.
    void open_two(UdpClient& reader, UdpClient& writer)
    {
        EXPECT_EQ(open_key(reader, reading()), 0U);
        EXPECT_EQ(open_key(writer, writing()), 1U);
    }

    json leases(std::vector<std::string> options = {})
    {
        options.insert(options.begin(), {"leases", "--json"});
        return json_of("corvanestat", options)["leases"];
    }
    std::vector<std::uint32_t> keys(const std::vector<std::string>& options)
    {
        std::vector<std::uint32_t> found;
        for (const auto& lease : leases(options)) found.push_back(lease["key"]);
        return found;
    }
    Outcome run_as_nobody(const std::vector<std::string>& arguments)
    {
        Command command = tool_command("corvanestat", arguments);
        command.arguments.insert(command.arguments.begin(),
                                 {"setpriv", "--reuid=65534", "--clear-groups"});
        return world().run(command);
    }

    // A local process's own end of the administration socket.
    Fd connect_raw()
    {
        Fd socket = world().socket(Network::kMain, AF_UNIX, SOCK_SEQPACKET);
        const admin::Address address(kPort);
        EXPECT_EQ(::connect(socket.get(), address.get(), address.bytes), 0) << std::strerror(errno);
        const timeval patience{.tv_sec = 20, .tv_usec = 0};
        ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        return socket;
    }
    static void send_raw(const Fd& socket, const std::string& bytes)
    {
        EXPECT_EQ(::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }
    static std::string receive_raw(const Fd& socket)
    {
        std::string bytes(kPeerBytes, '\0');
        const ssize_t got = ::recv(socket.get(), bytes.data(), bytes.size(), 0);
        EXPECT_GE(got, 0) << std::strerror(errno);
        bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        return bytes;
    }
    static std::string request(std::uint32_t operation, std::uint32_t number = 0)
    {
        const admin::Request request{admin::kMagic, admin::kVersion, operation, number};
        return {reinterpret_cast<const char*>(&request), sizeof request};
    }
    static admin::ReplyHead head_of(const std::string& reply)
    {
        admin::ReplyHead head{};
        EXPECT_GE(reply.size(), sizeof head);
        std::memcpy(&head, reply.data(), std::min(reply.size(), sizeof head));
        return head;
    }
};

TEST_F(Leases, WhoHoldsWhatSinceWhenUntilWhen)
{
    start_with(two_files());
    world().join_networks();
    UdpClient reader = client();
    UdpClient writer = client(Network::kClient);
    open_two(reader, writer);
    EXPECT_EQ(writer.ask(codec::set_size(header(), 1, 9000, kLease_ms)).i32(48), 0);

    const json all = leases();

    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0]["key"], 0);
    EXPECT_EQ(all[0]["mode"], "read");
    EXPECT_EQ(all[0]["client"], "127.0.0.1");
    EXPECT_EQ(all[0]["requests"], 1);
    EXPECT_EQ(all[0]["file_cookie"], file_hex());
    EXPECT_EQ(all[0]["until"].get<std::int64_t>() - all[0]["renewed"].get<std::int64_t>(), 300);
    EXPECT_EQ(all[1]["key"], 1);
    EXPECT_EQ(all[1]["mode"], "write");
    EXPECT_EQ(all[1]["client"], kClientAddress);
    EXPECT_GT(all[1]["client_port"], 0);
    EXPECT_EQ(all[1]["requests"], 2);
    EXPECT_EQ(all[1]["slot"], 0);
    EXPECT_EQ(all[1]["volume"], "/vol");
    EXPECT_EQ(all[1]["file"], "/vol/dir/film");
    EXPECT_EQ(all[1]["volume_cookie"], volume_hex());
    EXPECT_EQ(all[1]["file_cookie"], codec::hex(other_file()));
    EXPECT_EQ(all[1]["until"].get<std::int64_t>() - all[1]["renewed"].get<std::int64_t>(), 600);
    EXPECT_LE(std::abs(all[1]["since"].get<std::int64_t>() - std::time(nullptr)), 20);
    EXPECT_GE(all[1]["renewed"], all[1]["since"]);
}

TEST_F(Leases, SortedAndFiltered)
{
    start_with(two_files());
    world().join_networks();
    UdpClient reader = client();
    UdpClient writer = client(Network::kClient);
    open_two(reader, writer);
    EXPECT_EQ(open_key(reader, reading()), 2U);
    EXPECT_EQ(reader.ask(codec::set_size(header(), 2, 9000, kLease_ms * 2)).i32(48), 0);

    using Keys = std::vector<std::uint32_t>;
    EXPECT_EQ(keys({}), (Keys{0, 1, 2}));
    EXPECT_EQ(keys({"--reverse"}), (Keys{2, 1, 0}));
    EXPECT_EQ(keys({"--sort", "until"}), (Keys{0, 1, 2}));
    EXPECT_EQ(keys({"--sort", "requests"}), (Keys{2, 0, 1}));
    EXPECT_EQ(keys({"--sort", "client"}), (Keys{1, 0, 2})) << "10.77.0.2 before 127.0.0.1";
    EXPECT_EQ(keys({"--sort", "file"}), (Keys{1, 0, 2})) << "one name, so by cookie";
    EXPECT_EQ(keys({"--sort", "requests", "--limit", "1"}), (Keys{2}));
    EXPECT_EQ(keys({"--mode", "write"}), (Keys{1}));
    EXPECT_EQ(keys({"--client", kClientAddress}), (Keys{1}));
    EXPECT_EQ(keys({"--client", "10.77.0"}), (Keys{}));
    const int port = leases()[1]["client_port"];
    EXPECT_EQ(keys({"--client", std::string(kClientAddress) + ":" + std::to_string(port)}),
              (Keys{1}));
    EXPECT_EQ(keys({"--client", std::string(kClientAddress) + ":1"}), (Keys{}));
    EXPECT_EQ(keys({"--file", "dir/fi"}), (Keys{0, 1, 2}));
    EXPECT_EQ(keys({"--file", codec::hex(other_file())}), (Keys{1}));
    EXPECT_EQ(keys({"--volume", "/vol", "--mode", "read"}), (Keys{0, 2}));
    EXPECT_EQ(keys({"--volume", "/elsewhere"}), (Keys{}));
}

TEST_F(Leases, TheTableShowsNothingThatATerminalObeys)
{
    Script answers = two_files();
    answers.leases = "result=1\nFS_GetPath result=0 path=" +
                     text_hex(
                         "/vol/\x1B[2Ja\nb\xC3\xA4\xFF\xC2\x9B"
                         "c\x7F") +
                     " mount=" + text_hex("/vol");
    start_with(answers);
    UdpClient asker = client();
    (void)open_key(asker, reading());

    const std::string text = output_of("corvanestat", {"leases"});

    const std::regex row(
        "0          read  127\\.0\\.0\\.1:[0-9]{4,5} +"
        "[0-9-]{5} [0-9:]{8} [0-9-]{5} [0-9:]{8}        1 (.*)");
    const std::size_t second_line = text.find('\n') + 1;
    EXPECT_EQ(text.substr(0, second_line),
              "KEY        MODE  CLIENT                SINCE          UNTIL          REQUESTS "
              "FILE\n");
    std::smatch parts;
    const std::string line = text.substr(second_line, text.size() - second_line - 1);
    ASSERT_TRUE(std::regex_match(line, parts, row)) << text;
    EXPECT_EQ(parts[1], "/vol/?[2Ja?b\xC3\xA4???c?");
}

TEST_F(Leases, APluginThatCannotTell)
{
    start_with({});
    (void)open_key();

    EXPECT_TRUE(leases()[0]["file"].is_null());
    EXPECT_TRUE(leases()[0]["volume"].is_null());
    EXPECT_NE(output_of("corvanestat", {"leases"}).find(" cookie " + file_hex() + "\n"),
              std::string::npos);
}

TEST_F(Leases, RootEndsALeaseAndTheLogSaysWho)
{
    start_with(two_files());
    UdpClient reader = client();
    UdpClient writer = client();
    open_two(reader, writer);
    EXPECT_EQ(open_key(writer, reading()), 2U) << "the first file once more";
    forget_calls();

    EXPECT_EQ(output_of("corvanestat", {"release", "2"}), "");

    EXPECT_THAT(calls(), ::testing::Not(::testing::Contains(unlock_call()))) << "the reader has it";
    EXPECT_EQ(output_of("corvanestat", {"release", "0"}), "");
    EXPECT_THAT(calls(), ::testing::Contains(unlock_call()));
    const std::regex line(
        "FTX2029I Lease 0 released by user 0, process [0-9]+: client "
        "127\\.0\\.0\\.1:[0-9]+, file /vol/dir/film");
    std::size_t written = 0;
    for (const std::string& logged : log_lines()) written += std::regex_match(logged, line) ? 1 : 0;
    EXPECT_EQ(written, 1U) << log();
    EXPECT_EQ(keys({}), std::vector<std::uint32_t>{1});
    EXPECT_EQ(reader.ask(codec::close_file(header(), 0)).i32(48), kInvalidKey);
    EXPECT_EQ(writer.ask(codec::close_file(header(), 1)).i32(48), 0);
    const json counted = json_of("corvanestat", {"--json"});
    EXPECT_EQ(counted["leases_released"], 2);
    EXPECT_EQ(counted["leases_closed"], 1);
    EXPECT_EQ(counted["live_leases"], 0);
    EXPECT_EQ(counted["live_files"], 0);
}

TEST_F(Leases, OthersThanRootSeeNoNamesAndEndNothing)
{
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
    start_with(two_files());
    UdpClient asker = client();
    (void)open_key(asker, reading());

    const Outcome listed = run_as_nobody({"leases"});
    expect_failure(run_as_nobody({"release", "0"}), 1,
                   "corvanestat: only root may release a lease: run this as root");

    EXPECT_EQ(listed.status, 0) << listed.errors;
    EXPECT_EQ(listed.output.find("film"), std::string::npos) << listed.output;
    EXPECT_NE(listed.output.find("\nThe names of files are shown to root only.\n"),
              std::string::npos);
    const json hidden = json::parse(run_as_nobody({"leases", "--json"}).output);
    EXPECT_EQ(hidden["names_hidden"], true);
    EXPECT_TRUE(hidden["leases"][0]["file"].is_null());
    EXPECT_EQ(keys({}), std::vector<std::uint32_t>{0});
}

TEST_F(Leases, WhatCannotBeDone)
{
    const std::string no_daemon =
        "corvanestat: no daemon answers on port 5501: start corvaned, or name its --port";
    expect_failure(run_tool("corvanestat", {"leases"}), 1, no_daemon);
    expect_failure(run_tool("corvanestat", {"release", "1"}), 1, no_daemon);
    start_with({});
    EXPECT_EQ(keys({}), std::vector<std::uint32_t>{});
    expect_failure(run_tool("corvanestat", {"release", "4294967295"}), 1,
                   "corvanestat: no lease has the key 4294967295: 'corvanestat leases' lists them");
    for (const auto& arguments :
         std::vector<std::vector<std::string>>{{"release"},
                                               {"release", "x"},
                                               {"release", "4294967296"},
                                               {"release", "1", "--json"},
                                               {"leases", "--watch"},
                                               {"leases", "--prometheus"},
                                               {"leases", "--sort", "colour"},
                                               {"leases", "--mode", "append"},
                                               {"leases", "release", "1"}}) {
        expect_wrong_usage(run_tool("corvanestat", arguments));
    }
}

// More than a reply holds, and some of them end while the list is being read.
TEST_F(Leases, MoreThanOneReply)
{
    constexpr std::uint32_t kCount = 600;
    start_with({});
    UdpClient asker = client();
    for (std::uint32_t i = 0; i < kCount; ++i) ASSERT_EQ(open_key(asker, reading()), i);

    std::vector<std::uint32_t> all = keys({});
    ASSERT_EQ(all.size(), kCount);
    for (std::uint32_t i = 0; i < kCount; ++i) EXPECT_EQ(all[i], i);

    const Fd socket = connect_raw();
    send_raw(socket, request(admin::kFirstLeases));
    const admin::ReplyHead first = head_of(receive_raw(socket));
    ASSERT_NE(first.flags & admin::kMore, 0U);
    // The next one would be this lease: it goes, and so does the one behind it.
    const std::uint32_t next = kCount - 1 - first.count;
    for (const std::uint32_t key : {next, next - 1}) {
        EXPECT_EQ(asker.ask(codec::close_file(header(), key)).i32(48), 0);
    }
    send_raw(socket, request(admin::kNextLeases));
    const std::string reply = receive_raw(socket);
    admin::LeaseEntry entry{};
    ASSERT_GE(reply.size(), sizeof(admin::ReplyHead) + sizeof entry);
    std::memcpy(&entry, reply.data() + sizeof(admin::ReplyHead), sizeof entry);
    EXPECT_EQ(entry.key, next - 2);
}

TEST_F(Leases, RequestsThatAreNone)
{
    start_with({});
    (void)open_key();
    std::string other_magic = request(admin::kFirstLeases);
    other_magic[0] = 'X';
    std::string other_version = request(admin::kFirstLeases);
    other_version[4] = '\x7F';
    struct Case {
        std::string bytes;
        std::uint32_t result;
    };
    for (const auto& [bytes, result] :
         {Case{"x", admin::kMalformed}, Case{request(1).substr(0, 15), admin::kMalformed},
          Case{request(1) + "y", admin::kMalformed},
          Case{std::string(60000, 'z'), admin::kMalformed}, Case{other_magic, admin::kMalformed},
          Case{other_version, admin::kOtherVersion}, Case{request(0), admin::kMalformed},
          Case{request(99), admin::kMalformed}}) {
        const Fd socket = connect_raw();
        send_raw(socket, bytes);
        EXPECT_EQ(head_of(receive_raw(socket)).result, result) << bytes.size();
        EXPECT_EQ(receive_raw(socket), "") << "and the connection ends";
    }
    const Fd socket = connect_raw();
    send_raw(socket, request(admin::kNextLeases));
    EXPECT_EQ(head_of(receive_raw(socket)).count, 0U) << "of a list that was not begun";
    send_raw(socket, request(admin::kFileName, 0));
    EXPECT_EQ(head_of(receive_raw(socket)).result, admin::kUnknownNumber);
    EXPECT_EQ(keys({}), std::vector<std::uint32_t>{0});
}

// Some say nothing, some begin a list and leave it, some ask and never read.
TEST_F(Leases, SilentClientsHoldNobodyUp)
{
    start_with({});
    UdpClient asker = client();
    for (int i = 0; i < 30; ++i) (void)open_key(asker, reading());
    std::vector<Fd> silent;
    for (int i = 0; i < 20; ++i) {
        silent.push_back(connect_raw());
        if (i % 2 == 0) send_raw(silent.back(), request(admin::kFirstLeases));
    }
    const Fd greedy = connect_raw();
    for (int i = 0; i < 100; ++i) {
        const std::string bytes = request(admin::kFirstLeases);
        if (::send(greedy.get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0)
            break;
    }

    EXPECT_EQ(keys({}).size(), 30U);
    EXPECT_EQ(asker.ask(codec::close_file(header(), 29)).i32(48), 0);
    EXPECT_EQ(output_of("corvanestat", {"release", "28"}), "");
    EXPECT_EQ(keys({}).size(), 28U);
}

TEST_F(Leases, AKilledDaemonLeavesNothingInTheWay)
{
    start_with({});
    (void)open_key();
    const Fd socket = connect_raw();
    stop(SIGKILL);
    expect_failure(run_tool("corvanestat", {"leases"}), 1,
                   "corvanestat: no daemon answers on port 5501: start corvaned, or name its "
                   "--port");

    start();

    EXPECT_EQ(keys({}), std::vector<std::uint32_t>{});
}

// The full screen, on a terminal of our own: the file that is asked for shows with its name.
TEST_F(Leases, WatchShowsTheBusiestFiles)
{
    start_with(two_files());
    UdpClient asker = client();
    const std::uint32_t key = open_key(asker, reading());
    const Fd terminal(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    ASSERT_TRUE(terminal.is_open() && ::grantpt(terminal.get()) == 0 &&
                ::unlockpt(terminal.get()) == 0);
    const winsize size{.ws_row = 24, .ws_col = 80, .ws_xpixel = 0, .ws_ypixel = 0};
    ASSERT_EQ(::ioctl(terminal.get(), TIOCSWINSZ, &size), 0);
    const Fd screen(::ioctl(terminal.get(), TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC));
    ASSERT_TRUE(screen.is_open()) << std::strerror(errno);
    Command command = tool_command("corvanestat", {"--watch", "--interval", "0.1"});
    command.environment.emplace_back("TERM=xterm");
    command.input = command.output = screen.get();
    const pid_t watching = world().spawn(command);

    std::string seen;
    const bool shown = eventually([&] {
        EXPECT_EQ(asker.ask(codec::set_size(header(), key, 9000)).i32(48), 0);
        pollfd ready{terminal.get(), POLLIN, 0};
        std::array<char, 4096> part{};
        if (::poll(&ready, 1, 50) > 0) {
            const ssize_t got = ::read(terminal.get(), part.data(), part.size());
            seen.append(part.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
        }
        return seen.find("/s /vol/dir/film") != std::string::npos;
    });

    EXPECT_TRUE(shown) << seen;
    EXPECT_NE(seen.find("busiest files"), std::string::npos);
    ASSERT_EQ(::write(terminal.get(), "q", 1), 1);
    EXPECT_EQ(world().wait(watching), 0);
}

// Somebody else has the name: the daemon serves all the same, and its log says nothing of it.
TEST_F(Leases, ATakenSocketCostsTheAdministrationOnly)
{
    start();
    const std::size_t lines = log_lines().size();
    stop();
    const Fd squatter = world().socket(Network::kMain, AF_UNIX, SOCK_SEQPACKET);
    const admin::Address address(kPort);
    ASSERT_EQ(::bind(squatter.get(), address.get(), address.bytes), 0);
    clear_log();

    start();

    // Less the lines of the first start, which made the segment.
    EXPECT_LE(log_lines().size(), lines) << log();
    stop();
    set_level(3);
    start();
    EXPECT_TRUE(logged("corvaned: No administration socket: Address already in use"));
}

}  // namespace
}  // namespace corvane::harness

// The descriptor-passing server: one request a connection, over a real socket.
#include "mdcmain/descriptor_server.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <random>
#include <string>
#include <string_view>

#include "mdcmain/segment.h"
#include "tests/mdcmain/private_machine.hpp"

namespace {

using corvane::test::in_private_machine;
using corvane::test::permissions_of;
using corvane::test::read_file;
using corvane::test::status_of_child;
using corvane::test::write_file;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr char kLog[] = "/usr/Corvane/mclog0";
constexpr int kAborted = 128 + SIGABRT;

// What a client sees of its connection.
struct Answer {
    ssize_t bytes = -1;  // 0: the connection was closed
    std::string data;
    int file = -1;
};

Answer take_answer(int connection)
{
    Answer answer;
    std::array<char, 512> data{};
    iovec part{.iov_base = data.data(), .iov_len = data.size()};
    alignas(cmsghdr) std::array<char, 256> control{};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    answer.bytes = recvmsg(connection, &message, 0);
    if (answer.bytes <= 0) return answer;
    answer.data.assign(data.data(), static_cast<std::size_t>(answer.bytes));
    const cmsghdr* const header = CMSG_FIRSTHDR(&message);
    if (header == nullptr) return answer;
    EXPECT_EQ(header->cmsg_level, SOL_SOCKET);
    EXPECT_EQ(header->cmsg_type, SCM_RIGHTS);
    EXPECT_EQ(header->cmsg_len, CMSG_LEN(sizeof(int)));
    std::memcpy(&answer.file, CMSG_DATA(header), sizeof answer.file);
    return answer;
}

// Serves one request in this process over a socket pair; the client's side ends after it.
Answer ask(std::string_view request)
{
    std::array<int, 2> ends{};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    EXPECT_EQ(write(ends[0], request.data(), request.size()), static_cast<ssize_t>(request.size()));
    if (request.empty()) shutdown(ends[0], SHUT_WR);
    EXPECT_EQ(fd_thread_server(ends[1]), 0);
    EXPECT_EQ(fcntl(ends[1], F_GETFD), -1) << "the connection is closed";
    Answer answer = take_answer(ends[0]);
    close(ends[0]);
    return answer;
}

std::string tag()
{
    return "[" + std::to_string(getpid()) + "-" + std::to_string(gettid()) + "]";
}

void with_segment(const std::function<void()>& body)
{
    in_private_machine([&body] {
        fused_mapShared();
        loadSocketName();
        body();
    });
}

TEST(SocketName, ComesFromTheEnvironmentOrTheDefault)
{
    in_private_machine([] {
        std::memset(socket_file, '#', sizeof socket_file);
        EXPECT_EQ(loadSocketName(), socket_file);
        EXPECT_EQ(std::string_view(socket_file, 256),
                  std::string("/tmp/corvane_fd.fifo") + std::string(236, '\0'));
        setenv("CORVANEFIFO", "/tmp/other.sock", 1);
        loadSocketName();
        EXPECT_EQ(std::string_view(socket_file, 256),
                  std::string("/tmp/other.sock") + std::string(241, '\0'));
        setenv("CORVANEFIFO", std::string(300, 'x').c_str(), 1);
        loadSocketName();
        EXPECT_EQ(std::string_view(socket_file, 256), std::string(255, 'x') + std::string(1, '\0'));
    });
}

TEST(DescriptorRequest, APathGivesAReadWriteDescriptor)
{
    with_segment([] {
        write_file("/tmp/data", "before");
        const Answer answer = ask("/tmp/data");

        EXPECT_EQ(answer.bytes, 256);
        EXPECT_EQ(answer.data, std::string(socket_file, 256));
        EXPECT_EQ(fcntl(answer.file, F_GETFL) & (O_ACCMODE | O_APPEND), O_RDWR);
        ASSERT_EQ(write(answer.file, "BE", 2), 2);
        EXPECT_EQ(read_file("/tmp/data"), "BEfore");
    });
}

TEST(DescriptorRequest, TheServerKeepsNoDescriptor)
{
    with_segment([] {
        write_file("/tmp/data", "x");
        const int next = dup(0);
        close(next);
        for (const char* request : {"/tmp/data", "logop/tmp/x.log", "/tmp/missing", "hello", ""}) {
            close(ask(request).file);
        }
        EXPECT_EQ(dup(0), next);
    });
}

TEST(DescriptorRequest, AMissingFileIsNotCreated)
{
    with_segment([] {
        const Answer answer = ask("/tmp/missing");
        EXPECT_EQ(answer.bytes, 0);
        EXPECT_EQ(answer.file, -1);
        EXPECT_FALSE(std::filesystem::exists("/tmp/missing"));
        EXPECT_THAT(read_file(kLog),
                    EndsWith("FTX1536I " + tag() +
                             " Open failed for: \"/tmp/missing\": No such file or directory\n"));
    });
}

TEST(DescriptorRequest, APathIsTakenAsItStandsUpToAZero)
{
    with_segment([] {
        write_file("/tmp/data\n", "x");
        EXPECT_NE(ask("/tmp/data\n").file, -1);
        EXPECT_EQ(ask("/tmp/data").file, -1);
        EXPECT_NE(ask(std::string_view("/tmp/data\n\0more", 15)).file, -1);
    });
}

TEST(DescriptorRequest, OneReadOf4095BytesIsTheRequest)
{
    with_segment([] {
        // Slashes may be repeated: the path ends within the read, the rest is cut.
        const std::string path = std::string(4086, '/') + "tmp/data";
        ASSERT_EQ(path.size(), 4094U);
        write_file("/tmp/data", "x");
        write_file("/tmp/dataX", "x");
        EXPECT_NE(ask(path).file, -1);
        EXPECT_NE(ask(path + "X").file, -1);
        EXPECT_NE(ask(path + "Xmore").file, -1);
    });
}

TEST(DescriptorRequest, LogopCreatesAndAppendsWhateverTheUmask)
{
    with_segment([] {
        umask(077);
        Answer answer = ask("logop/tmp/x.log");
        EXPECT_EQ(answer.bytes, 256);
        EXPECT_EQ(fcntl(answer.file, F_GETFL) & (O_ACCMODE | O_APPEND), O_RDWR | O_APPEND);
        EXPECT_EQ(permissions_of("/tmp/x.log"), 0666U);
        ASSERT_EQ(write(answer.file, "one\n", 4), 4);

        answer = ask("logop/tmp/x.log");
        ASSERT_EQ(write(answer.file, "two\n", 4), 4);
        EXPECT_EQ(read_file("/tmp/x.log"), "one\ntwo\n");
    });
}

TEST(DescriptorRequest, PrivateLogFilesAreTheOwnersOnly)
{
    with_segment([] {
        fs->logopPrivate = 5;
        umask(0);
        EXPECT_NE(ask("logop/tmp/x.log").file, -1);
        EXPECT_EQ(permissions_of("/tmp/x.log"), 0600U);
        write_file("/tmp/open.log", "");
        std::filesystem::permissions("/tmp/open.log", std::filesystem::perms(0644));
        EXPECT_NE(ask("logop/tmp/open.log").file, -1);
        EXPECT_EQ(permissions_of("/tmp/open.log"), 0644U);
    });
}

TEST(DescriptorRequest, AFailedLogopShowsTheErrorOfTheLastCall)
{
    with_segment([] {
        EXPECT_EQ(ask("logop/no/such/file").bytes, 0);
        EXPECT_THAT(read_file(kLog), EndsWith("FTX1536I " + tag() +
                                              " Open failed for: \"logop/no/such/file\": Bad file "
                                              "descriptor\n"));
        fs->logopPrivate = 1;
        EXPECT_EQ(ask("logop/no/such/file").bytes, 0);
        EXPECT_THAT(read_file(kLog),
                    EndsWith("\"logop/no/such/file\": No such file or directory\n"));
        EXPECT_EQ(ask("logop").bytes, 0);
    });
}

TEST(DescriptorRequest, LogrmDeletesAndSendsNothing)
{
    with_segment([] {
        write_file("/tmp/x.log", "x");
        EXPECT_EQ(ask("logrm/tmp/x.log").bytes, 0);
        EXPECT_FALSE(std::filesystem::exists("/tmp/x.log"));
        EXPECT_EQ(ask("logrm/tmp/x.log").bytes, 0);
        EXPECT_EQ(ask("logrm").bytes, 0);
        EXPECT_THAT(read_file(kLog), Not(HasSubstr("FTX1536I")));
    });
}

TEST(DescriptorRequest, AnythingElseIsRefused)
{
    with_segment([] {
        for (const std::string request :
             {"hello", "", "log", "logo", "LOGOP/tmp/x", " /tmp/x", "logxx/tmp/x"}) {
            errno = ENOTTY;
            const Answer answer = ask(request);
            EXPECT_EQ(answer.bytes, 0) << request;
            EXPECT_THAT(read_file(kLog),
                        HasSubstr("FTX1536I " + tag() + " Open failed for: \"" + request + "\": "));
        }
        EXPECT_FALSE(std::filesystem::exists("/tmp/x"));
    });
}

TEST(DescriptorRequest, PercentSignsAreLoggedAsTheyStand)
{
    with_segment([] {
        EXPECT_EQ(ask("%s%n%%").bytes, 0);
        EXPECT_THAT(read_file(kLog), HasSubstr("Open failed for: \"%s%n%%\": "));
    });
}

// Bytes of any kind, behind each of the beginnings that mean something.
TEST(DescriptorRequest, HostileBytesCostOnlyTheirConnection)
{
    with_segment([] {
        fs->logLevel = 3;
        fs->logMode = 2;  // into the ring
        std::mt19937 random(20260101);
        write_file("/tmp/data", "x");
        for (int round = 0; round < 500; ++round) {
            std::string request =
                std::array{"", "/tmp/", "logop/tmp/", "logrm/tmp/", "log", "/"}[random() % 6];
            const std::size_t length = random() % (random() % 8 == 0 ? 5000 : 40);
            while (request.size() < length) request += static_cast<char>(random() & 0xFFU);
            const Answer answer = ask(request);
            // Bytes behind the one read turn the end of file into a reset.
            EXPECT_TRUE(answer.bytes <= 0 || (answer.bytes == 256 && answer.file >= 0)) << round;
            if (answer.file >= 0) close(answer.file);
        }
        EXPECT_NE(ask("/tmp/data").file, -1);
        EXPECT_EQ(fs->other22, 0) << "the word behind the log's ring";
    });
}

TEST(DescriptorRequest, AClientThatWentAwayCostsOnlyItsConnection)
{
    with_segment([] {
        signal(SIGPIPE, SIG_IGN);  // as the server does
        write_file("/tmp/data", "x");
        std::array<int, 2> ends{};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
        ASSERT_EQ(write(ends[0], "/tmp/data", 9), 9);
        close(ends[0]);

        EXPECT_EQ(fd_thread_server(ends[1]), 0);

        constexpr char kText[] =
            "sendmsg(fd_conn...) failed at \"mdcmain/fifoserver\":259: Broken pipe\n";
        EXPECT_THAT(read_file(kLog), EndsWith(kText));
        EXPECT_STREQ(san_errmsg, kText);
    });
}

TEST(DescriptorRequest, OnlyPathsAreLoggedAtLevelThree)
{
    with_segment([] {
        fs->logLevel = 3;
        write_file("/tmp/data", "x");
        std::filesystem::remove(kLog);
        EXPECT_NE(ask("/tmp/data").file, -1);
        EXPECT_NE(ask("logop/tmp/x.log").file, -1);
        EXPECT_EQ(ask("logrm/tmp/x.log").bytes, 0);
        EXPECT_EQ(read_file(kLog), std::to_string(getpid()) + " FTX1535I " + tag() +
                                       " Here is some data from client: \"/tmp/data\"\n");
        fs->logLevel = 2;
        EXPECT_NE(ask("/tmp/data").file, -1);
        EXPECT_THAT(read_file(kLog), EndsWith("/tmp/data\"\n"));
    });
}

TEST(DescriptorRequest, TheSwitchLogsEveryStep)
{
    with_segment([] {
        g_logging = 1;
        EXPECT_NE(ask("logop/tmp/x.log").file, -1);
        EXPECT_THAT(read_file(kLog), Not(HasSubstr("FTX153")));
        fs->logLevel = 3;
        std::filesystem::remove(kLog);
        EXPECT_NE(ask("logop/tmp/x.log").file, -1);
        EXPECT_EQ(ask("logrm/tmp/x.log").bytes, 0);
        const std::string log = read_file(kLog);
        EXPECT_THAT(log, HasSubstr("FTX1534I " + tag() + " socket fd_conn = "));
        EXPECT_THAT(log, HasSubstr("FTX1535I " + tag() +
                                   " Here is some data from client: \"/tmp/x.log\"\n"));
        EXPECT_THAT(log, EndsWith("FTX1535I " + tag() +
                                  " Here is some data from client: remove \"/tmp/x.log\"\n"));
    });
}

// A server in a process of its own; ends with this object.
class Server {
public:
    explicit Server(int backlog = 5, const char* path = "/tmp/corvane_fd.fifo") : path_(path)
    {
        pid_ = fork();
        if (pid_ == 0) {
            umask(077);
            fifoGetHandleServer(backlog);
            _exit(corvane::test::kFailed);
        }
    }
    ~Server()
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    [[nodiscard]] pid_t pid() const { return pid_; }

    // A connection, once the server listens; -1 when it ended instead.
    [[nodiscard]] int connect_to() const
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path_, sizeof address.sun_path);
        for (;;) {
            const int connection = socket(AF_UNIX, SOCK_STREAM, 0);
            if (connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
                0) {
                return connection;
            }
            close(connection);
            if (waitpid(pid_, nullptr, WNOHANG) != 0) return -1;
            usleep(1000);
        }
    }
    [[nodiscard]] Answer ask_over_socket(std::string_view request) const
    {
        const int connection = connect_to();
        EXPECT_EQ(write(connection, request.data(), request.size()),
                  static_cast<ssize_t>(request.size()));
        Answer answer = take_answer(connection);
        close(connection);
        return answer;
    }

private:
    const char* path_;
    pid_t pid_ = -1;
};

TEST(DescriptorServer, ReplacesAStaleSocketAndLetsEveryoneConnect)
{
    with_segment([] {
        write_file("/tmp/corvane_fd.fifo", "stale");
        write_file("/tmp/data", "x");
        const Server server;
        EXPECT_NE(server.ask_over_socket("/tmp/data").file, -1);
        EXPECT_EQ(permissions_of("/tmp/corvane_fd.fifo"), 0666U);
    });
}

TEST(DescriptorServer, ServesOneClientAfterAnother)
{
    with_segment([] {
        write_file("/tmp/data", "x");
        const Server server;
        const int idle = server.connect_to();
        const int waiting = server.connect_to();
        ASSERT_EQ(write(waiting, "/tmp/data", 9), 9);
        pollfd early{.fd = waiting, .events = POLLIN, .revents = 0};
        EXPECT_EQ(poll(&early, 1, 50), 0) << "the idle client comes first";

        close(idle);

        EXPECT_NE(take_answer(waiting).file, -1);
        EXPECT_NE(server.ask_over_socket("/tmp/data").file, -1);
    });
}

TEST(DescriptorServer, AcceptsAgainAfterAnInterruption)
{
    with_segment([] {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, nullptr);
        write_file("/tmp/data", "x");
        const Server server;
        EXPECT_NE(server.ask_over_socket("/tmp/data").file, -1);
        kill(server.pid(), SIGUSR1);
        EXPECT_NE(server.ask_over_socket("/tmp/data").file, -1);
    });
}

TEST(DescriptorServer, APathOf108BytesIsTheLongest)
{
    with_segment([] {
        const std::string longest = "/tmp/" + std::string(103, 's');
        setenv("CORVANEFIFO", longest.c_str(), 1);
        write_file("/tmp/data", "x");
        {
            const Server server(5, longest.c_str());
            EXPECT_NE(server.ask_over_socket("/tmp/data").file, -1);
            EXPECT_EQ(permissions_of(longest), 0666U);
        }
        setenv("CORVANEFIFO", (longest + "s").c_str(), 1);
        EXPECT_EQ(status_of_child([] { fifoGetHandleServer(5); }), kAborted);
        EXPECT_THAT(read_file(kLog), HasSubstr("the limit is 108\n"));
        EXPECT_THAT(read_file(kLog),
                    EndsWith("bind() failed at \"mdcmain/fifoserver\":104: File name too long\n"));
        EXPECT_TRUE(std::filesystem::exists(longest)) << "no other file was touched";
    });
}

TEST(DescriptorServer, ASocketThatCannotBeMadeEndsTheProcessWithAbort)
{
    with_segment([] {
        setenv("CORVANEFIFO", "/no/such/folder/sock", 1);
        EXPECT_EQ(status_of_child([] { fifoGetHandleServer(5); }), kAborted);
        EXPECT_THAT(
            read_file(kLog),
            EndsWith("bind() failed at \"mdcmain/fifoserver\":104: No such file or directory\n"));
    });
}

TEST(DescriptorServer, NoDescriptorLeftIsFatalForSocketAndAccept)
{
    with_segment([] {
        const std::string tail = "Too many open files\n";
        EXPECT_EQ(status_of_child([] {
                      const rlimit none{3, 3};
                      setrlimit(RLIMIT_NOFILE, &none);
                      fs->logLevel = 1;  // into the ring: no descriptor is left for a file
                      fs->logMode = 2;
                      fifoGetHandleServer(5);
                  }),
                  kAborted);
        EXPECT_THAT(std::string(fs->shmLog),
                    EndsWith("socket() failed at \"mdcmain/fifoserver\":98: " + tail));
    });
}

}  // namespace

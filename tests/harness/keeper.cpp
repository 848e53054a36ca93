// The keeper's loop. It is process 1 of its namespace, so orphans (a daemon that went into the
// background) become its children, and it learns how they ended.
#include "tests/harness/keeper.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/shm.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <stdexcept>

#include "tests/harness/wire.hpp"

namespace corvane::harness {

namespace {

constexpr key_t kSegmentKey = 1124;

// A view of the shared segment for one access.
class SegmentView {
public:
    SegmentView() : id_(::shmget(kSegmentKey, 0, 0))
    {
        if (id_ < 0) return;
        shmid_ds status{};
        if (::shmctl(id_, IPC_STAT, &status) == 0) bytes_ = status.shm_segsz;
        void* at = ::shmat(id_, nullptr, 0);
        // shmat says (void*)-1 for failure.
        if (reinterpret_cast<std::intptr_t>(at) != -1) at_ = static_cast<char*>(at);
    }
    ~SegmentView()
    {
        if (at_ != nullptr) ::shmdt(at_);
    }
    SegmentView(const SegmentView&) = delete;
    SegmentView& operator=(const SegmentView&) = delete;

    [[nodiscard]] bool has(std::int64_t offset, std::int64_t count) const
    {
        return at_ != nullptr && offset >= 0 && count >= 0 &&
               offset + count <= static_cast<std::int64_t>(bytes_);
    }
    [[nodiscard]] char* at(std::int64_t offset) const { return at_ + offset; }
    [[nodiscard]] std::size_t bytes() const { return bytes_; }
    [[nodiscard]] int id() const { return id_; }

private:
    int id_;
    std::size_t bytes_ = 0;
    char* at_ = nullptr;
};

class Keeper {
public:
    explicit Keeper(int control) : control_(control)
    {
        sigset_t set;
        ::sigemptyset(&set);
        ::sigaddset(&set, SIGCHLD);
        ::sigprocmask(SIG_BLOCK, &set, nullptr);
        signals_ = Fd(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
        main_network_ = Fd(::open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC));
        const rlimit no_core{0, 0};
        ::setrlimit(RLIMIT_CORE, &no_core);
    }

    void serve()
    {
        Packet request;
        while (wait_for_control(-1) && receive_packet(control_, request)) {
            Packet reply;
            std::vector<int> fds;
            try {
                reply = answer(request, fds);
            } catch (const std::exception& error) {
                reply.code = EIO;
                reply.payload = error.what();
            }
            if (!send_packet(control_, reply, fds)) break;
            opened_.reset();
        }
    }

private:
    static Packet error_reply(int code)
    {
        Packet reply;
        reply.code = code;
        reply.payload = std::strerror(code);
        return reply;
    }

    static Packet value_reply(std::int64_t value)
    {
        Packet reply;
        reply.a = value;
        return reply;
    }

    Packet answer(const Packet& request, std::vector<int>& fds)
    {
        switch (static_cast<Op>(request.code)) {
            case Op::kSpawn:
                return spawn(request);
            case Op::kWait:
                return wait(request.a, request.b);
            case Op::kKill:
                return kill(request);
            case Op::kList:
                return list();
            case Op::kSocket:
                return open_socket(request, fds);
            case Op::kPeek:
                return peek(request);
            case Op::kPoke:
                return poke(request);
            case Op::kSegmentSize:
                return segment_size();
            case Op::kSegmentRemove:
                return segment_remove();
            case Op::kReadFile:
                return read_file(request.payload);
            case Op::kJoinNetworks:
                return join_networks();
        }
        return error_reply(EINVAL);
    }

    // Takes the statuses of all children that ended.
    void reap()
    {
        signalfd_siginfo info{};
        while (::read(signals_.get(), &info, sizeof info) > 0) continue;
        int status = 0;
        for (pid_t pid = 0; (pid = ::waitpid(-1, &status, WNOHANG)) > 0;) ended_[pid] = status;
    }

    // Waits until the test says something; reaps meanwhile. False after `timeout_ms` without it.
    bool wait_for_control(int timeout_ms)
    {
        for (;;) {
            pollfd both[2] = {{control_, POLLIN, 0}, {signals_.get(), POLLIN, 0}};
            const int ready = ::poll(both, 2, timeout_ms);
            if (ready < 0 && errno == EINTR) continue;
            if (both[1].revents != 0) reap();
            if (both[0].revents != 0) return true;
            if (timeout_ms >= 0) return false;
        }
    }

    // a: 0 = in the main network, 1 = in the client's. Payload: arguments, then NAME=value to set
    // in (or NAME to take out of) the environment. Descriptors: standard input, output and error.
    Packet spawn(const Packet& request)
    {
        if (request.fds.size() != 3 || (request.a != 0 && !client_network_.is_open())) {
            return error_reply(EINVAL);
        }
        std::string_view rest = request.payload;
        const std::vector<std::string> arguments = take_list(rest);
        const std::vector<std::string> environment = take_list(rest);
        const pid_t pid = ::fork();
        if (pid < 0) return error_reply(errno);
        if (pid == 0) run_child(request, arguments, environment);
        highest_pid_ = std::max(highest_pid_, pid);
        return value_reply(pid);
    }

    [[noreturn]] void run_child(const Packet& request, const std::vector<std::string>& arguments,
                                const std::vector<std::string>& environment)
    {
        sigset_t none;
        ::sigemptyset(&none);
        ::sigprocmask(SIG_SETMASK, &none, nullptr);
        if (request.a != 0) ::setns(client_network_.get(), CLONE_NEWNET);
        for (int fd = 0; fd < 3; ++fd) ::dup2(request.fds[static_cast<std::size_t>(fd)].get(), fd);
        ::close_range(3, ~0U, 0);
        for (const auto& setting : environment) {
            const auto equals = setting.find('=');
            if (equals == std::string::npos) {
                ::unsetenv(setting.c_str());
            } else {
                ::setenv(setting.substr(0, equals).c_str(), setting.c_str() + equals + 1, 1);
            }
        }
        std::vector<char*> pointers;
        pointers.reserve(arguments.size() + 1);
        for (const auto& argument : arguments)
            pointers.push_back(const_cast<char*>(argument.c_str()));
        pointers.push_back(nullptr);
        if (!arguments.empty()) ::execvp(pointers[0], pointers.data());
        std::fprintf(stderr, "cannot run %s: %s\n", arguments.empty() ? "" : pointers[0],
                     std::strerror(errno));
        ::_exit(127);
    }

    // Waits up to `timeout_ms` for the process to end; it must be a child by now.
    Packet wait(std::int64_t pid, std::int64_t timeout_ms)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
        for (;;) {
            reap();
            const auto found = ended_.find(static_cast<pid_t>(pid));
            if (found != ended_.end()) return value_reply(found->second);
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                end - std::chrono::steady_clock::now());
            if (left.count() <= 0) return error_reply(ETIMEDOUT);
            pollfd both[2] = {{signals_.get(), POLLIN, 0}, {control_, 0, 0}};
            ::poll(both, 2, static_cast<int>(left.count()));
            if ((both[1].revents & POLLHUP) != 0) ::_exit(0);
        }
    }

    static Packet kill(const Packet& request)
    {
        const int result = ::kill(static_cast<pid_t>(request.a), static_cast<int>(request.b));
        return result == 0 ? value_reply(0) : error_reply(errno);
    }

    // The processes of the world besides the keeper. Process ids are few here, so trying them is
    // quick.
    Packet list()
    {
        reap();
        std::vector<std::string> found;
        found.reserve(8);
        const pid_t end = std::max(highest_pid_, newest_pid()) + 1;
        for (pid_t pid = 2; pid < end; ++pid) {
            if (::syscall(SYS_tgkill, pid, pid, 0) == 0) found.push_back(std::to_string(pid));
        }
        Packet reply;
        append_list(reply.payload, found);
        return reply;
    }

    // A process made now has a higher id than all before it.
    pid_t newest_pid()
    {
        const pid_t pid = ::fork();
        if (pid == 0) ::_exit(0);
        int status = 0;
        ::waitpid(pid, &status, 0);
        return pid;
    }

    // Does `body` inside one of the two networks.
    template <class Body>
    void in_network(std::int64_t network, Body body)
    {
        if (network != 0 && !client_network_.is_open())
            throw std::runtime_error("networks not joined");
        if (network != 0) ::setns(client_network_.get(), CLONE_NEWNET);
        body();
        if (network != 0) ::setns(main_network_.get(), CLONE_NEWNET);
    }

    // a: network, b: domain, c: type. A socket stays in the network that it was made in.
    Packet open_socket(const Packet& request, std::vector<int>& fds)
    {
        in_network(request.a, [&] {
            opened_ = Fd(::socket(static_cast<int>(request.b),
                                  static_cast<int>(request.c) | SOCK_CLOEXEC, 0));
        });
        if (!opened_.is_open()) return error_reply(EIO);
        fds.push_back(opened_.get());
        return value_reply(0);
    }

    static Packet peek(const Packet& request)
    {
        const SegmentView segment;
        if (!segment.has(request.a, request.b)) return error_reply(ENOENT);
        Packet reply;
        reply.payload.assign(segment.at(request.a), static_cast<std::size_t>(request.b));
        return reply;
    }

    static Packet poke(const Packet& request)
    {
        const SegmentView segment;
        if (!segment.has(request.a, static_cast<std::int64_t>(request.payload.size()))) {
            return error_reply(ENOENT);
        }
        std::memcpy(segment.at(request.a), request.payload.data(), request.payload.size());
        return value_reply(0);
    }

    // a: bytes, b: permission bits.
    static Packet segment_size()
    {
        const SegmentView segment;
        if (segment.id() < 0) return error_reply(ENOENT);
        shmid_ds status{};
        ::shmctl(segment.id(), IPC_STAT, &status);
        Packet reply = value_reply(static_cast<std::int64_t>(segment.bytes()));
        reply.b = status.shm_perm.mode & 0777;
        return reply;
    }

    static Packet segment_remove()
    {
        const int id = ::shmget(kSegmentKey, 0, 0);
        if (id < 0 || ::shmctl(id, IPC_RMID, nullptr) != 0) return error_reply(ENOENT);
        return value_reply(0);
    }

    // For files of /proc, whose contents depend on who reads.
    static Packet read_file(const std::string& path)
    {
        const Fd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
        if (!file.is_open()) return error_reply(errno);
        Packet reply;
        reply.payload.resize(kMaxPayloadBytes);
        std::size_t used = 0;
        for (ssize_t got = 1; got > 0 && used < kMaxPayloadBytes;
             used += static_cast<std::size_t>(got)) {
            got = ::read(file.get(), reply.payload.data() + used, kMaxPayloadBytes - used);
            if (got < 0) return error_reply(errno);
        }
        reply.payload.resize(used);
        return reply;
    }

    static void run_tool(const std::string& command)
    {
        if (std::system(command.c_str()) != 0) throw std::runtime_error("failed: " + command);
    }

    // Makes the client's network and a cable to it: 10.77.0.1 is our end, 10.77.0.2 the client's.
    Packet join_networks()
    {
        if (client_network_.is_open()) return value_reply(0);
        if (::unshare(CLONE_NEWNET) != 0) return error_reply(errno);
        client_network_ = Fd(::open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC));
        raise_loopback();
        // The far end is made here, where the keeper is now, and its peer is handed over by process
        // id.
        run_tool("ip link add corvane1 type veth peer name corvane0");
        run_tool("ip address add 10.77.0.2/24 dev corvane1");
        const pid_t holder = ::fork();  // stays in the main network until the cable end has arrived
        if (holder == 0) {
            ::setns(main_network_.get(), CLONE_NEWNET);
            ::pause();
            ::_exit(0);
        }
        wait_until_apart(holder);
        run_tool("ip link set corvane0 netns " + std::to_string(holder));
        run_tool("ip link set corvane1 up");
        ::setns(main_network_.get(), CLONE_NEWNET);
        ::kill(holder, SIGKILL);
        int status = 0;
        ::waitpid(holder, &status, 0);
        run_tool("ip address add 10.77.0.1/24 dev corvane0");
        run_tool("ip link set corvane0 up");
        return value_reply(0);
    }

    // Returns once the child has left the keeper's present network.
    static void wait_until_apart(pid_t child)
    {
        char mine[64] = "";
        char its[64] = "";
        const std::string link = "/proc/" + std::to_string(child) + "/ns/net";
        for (int i = 0; i < 2000; ++i) {
            std::memset(mine, 0, sizeof mine);
            std::memset(its, 0, sizeof its);
            if (::readlink("/proc/self/ns/net", mine, sizeof mine - 1) > 0 &&
                ::readlink(link.c_str(), its, sizeof its - 1) > 0 && std::strcmp(mine, its) != 0) {
                return;
            }
            ::usleep(1000);
        }
        throw std::runtime_error("the two networks do not part");
    }

    int control_;
    Fd signals_;
    Fd main_network_;
    Fd client_network_;
    Fd opened_;
    std::map<pid_t, int> ended_;
    pid_t highest_pid_ = 1;
};

[[noreturn]] void run_inside(int control, const RootOptions& options)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    Packet hello;
    Fd root;
    try {
        build_root(options);
        raise_loopback();
        root = Fd(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    } catch (const std::exception& error) {
        hello.code = EPERM;
        hello.payload = error.what();
    }
    std::vector<int> fds;
    if (root.is_open()) fds.push_back(root.get());
    if (send_packet(control, hello, fds) && hello.code == 0) {
        root.reset();
        Keeper(control).serve();
    }
    ::_exit(hello.code == 0 ? 0 : 1);
}

}  // namespace

void run_keeper(int control, const RootOptions& options)
{
    try {
        enter_namespaces();
    } catch (const std::exception& error) {
        Packet hello;
        hello.code = EPERM;
        hello.payload = error.what();
        (void)send_packet(control, hello);  // the test sees the end of the socket otherwise
        ::_exit(1);
    }
    const pid_t first = ::fork();
    if (first == 0) run_inside(control, options);
    ::close(control);
    int status = 0;
    while (::waitpid(first, &status, 0) < 0 && errno == EINTR) continue;
    ::_exit(first > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : 1);
}

}  // namespace corvane::harness

// The test's side of a world: asks the keeper, and reaches files through the descriptor of its
// root.
#include "tests/harness/world.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include "tests/harness/keeper.hpp"

namespace corvane::harness {

namespace {

std::string read_all(int fd)
{
    std::string all;
    char part[4096];
    off_t at = 0;
    for (ssize_t got = 0; (got = ::pread(fd, part, sizeof part, at)) > 0; at += got) {
        all.append(part, static_cast<std::size_t>(got));
    }
    return all;
}

}  // namespace

bool eventually(const std::function<bool()>& condition, milliseconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    for (;;) {
        if (condition()) return true;
        if (std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(milliseconds(3));
    }
}

World::World(RootOptions options)
{
#ifdef CORVANE_SOURCE_DIR
    options.keep_paths.emplace_back(CORVANE_SOURCE_DIR);
    options.keep_paths.emplace_back(CORVANE_BUILD_DIR);
#endif
    int pair[2] = {-1, -1};
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair) != 0) {
        throw WorldError("no socket pair");
    }
    control_ = Fd(pair[0]);
    Fd theirs(pair[1]);
    keeper_ = ::fork();
    if (keeper_ == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        control_.reset();
        run_keeper(theirs.get(), options);
    }
    theirs.reset();
    Packet hello;
    const bool answered = receive_packet(control_.get(), hello);
    if (answered && hello.code == 0 && hello.fds.size() == 1) {
        root_ = std::move(hello.fds[0]);
        return;
    }
    int status = 0;
    ::waitpid(keeper_, &status, 0);
    throw NoWorld(answered ? hello.payload : "the world's first process ended");
}

World::~World()
{
    control_.reset();
    root_.reset();
    int status = 0;
    while (::waitpid(keeper_, &status, 0) < 0 && errno == EINTR) continue;
}

std::filesystem::path World::path(const std::string& inside) const
{
    return "/proc/self/fd/" + std::to_string(root_.get()) + inside;
}

void World::write_file(const std::string& inside, const std::string& contents)
{
    const auto target = path(inside);
    std::filesystem::create_directories(target.parent_path());
    if (std::filesystem::is_symlink(target)) std::filesystem::remove(target);
    std::ofstream file(target, std::ios::binary);
    if (!(file << contents).flush()) throw WorldError("cannot write " + inside);
}

std::string World::read_file(const std::string& inside) const
{
    std::ifstream file(path(inside), std::ios::binary);
    std::ostringstream all;
    all << file.rdbuf();
    return all.str();
}

std::string World::read_inside(const std::string& inside)
{
    return ask(Op::kReadFile, 0, 0, 0, inside).payload;
}

Packet World::ask(Op op, std::int64_t a, std::int64_t b, std::int64_t c, std::string payload,
                  const std::vector<int>& fds)
{
    Packet request;
    request.code = static_cast<std::int32_t>(op);
    request.a = a;
    request.b = b;
    request.c = c;
    request.payload = std::move(payload);
    Packet reply;
    if (!send_packet(control_.get(), request, fds) || !receive_packet(control_.get(), reply)) {
        throw WorldError("the world's first process is gone");
    }
    if (reply.code != 0 && reply.code != ETIMEDOUT) throw WorldError(reply.payload);
    return reply;
}

pid_t World::spawn(const Command& command)
{
    const Fd null(::open("/dev/null", O_RDWR | O_CLOEXEC));
    const auto or_null = [&null](int fd) { return fd >= 0 ? fd : null.get(); };
    std::string payload;
    append_list(payload, command.arguments);
    append_list(payload, command.environment);
    const Packet reply =
        ask(Op::kSpawn, command.network == Network::kClient ? 1 : 0, 0, 0, std::move(payload),
            {or_null(command.input), or_null(command.output), or_null(command.errors)});
    return static_cast<pid_t>(reply.a);
}

std::optional<int> World::wait(pid_t pid, milliseconds limit)
{
    const Packet reply = ask(Op::kWait, pid, limit.count());
    if (reply.code == ETIMEDOUT) return std::nullopt;
    const auto status = static_cast<int>(reply.a);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

Outcome World::run(Command command, milliseconds limit)
{
    const Fd output(::memfd_create("output", MFD_CLOEXEC));
    const Fd errors(::memfd_create("errors", MFD_CLOEXEC));
    command.output = output.get();
    command.errors = errors.get();
    const pid_t pid = spawn(command);
    const auto status = wait(pid, limit);
    if (!status) kill(pid, SIGKILL);
    return Outcome{status.value_or(-1), read_all(output.get()), read_all(errors.get())};
}

void World::kill(pid_t pid, int signal)
{
    (void)ask(Op::kKill, pid, signal);
}

bool World::is_running(pid_t pid)
{
    for (const pid_t other : processes()) {
        if (other == pid) return true;
    }
    return false;
}

std::vector<pid_t> World::processes()
{
    const Packet reply = ask(Op::kList);
    std::string_view rest = reply.payload;
    std::vector<pid_t> pids;
    for (const auto& text : take_list(rest)) pids.push_back(std::stoi(text));
    return pids;
}

Fd World::socket(Network network, int domain, int type)
{
    Packet reply = ask(Op::kSocket, network == Network::kClient ? 1 : 0, domain, type);
    if (reply.fds.size() != 1) throw WorldError("no socket");
    return std::move(reply.fds[0]);
}

void World::join_networks()
{
    (void)ask(Op::kJoinNetworks);
}

bool World::has_segment()
{
    try {
        return ask(Op::kSegmentSize).a > 0;
    } catch (const WorldError&) {
        return false;
    }
}

std::int64_t World::segment_bytes()
{
    return ask(Op::kSegmentSize).a;
}

int World::segment_mode()
{
    return static_cast<int>(ask(Op::kSegmentSize).b);
}

std::string World::peek(std::int64_t offset, std::int64_t count)
{
    std::string all;
    constexpr std::int64_t kPiece = 65536;
    for (std::int64_t at = 0; at < count; at += kPiece) {
        all += ask(Op::kPeek, offset + at, std::min(kPiece, count - at)).payload;
    }
    return all;
}

void World::poke(std::int64_t offset, const std::string& bytes)
{
    (void)ask(Op::kPoke, offset, 0, 0, bytes);
}

std::int32_t World::word(std::int64_t offset)
{
    const std::string bytes = peek(offset, 4);
    std::int32_t value = 0;
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

void World::set_word(std::int64_t offset, std::int32_t value)
{
    std::string bytes(sizeof value, '\0');
    std::memcpy(bytes.data(), &value, sizeof value);
    poke(offset, bytes);
}

std::string World::text(std::int64_t offset, std::int64_t room)
{
    const std::string bytes = peek(offset, room);
    return bytes.substr(0, bytes.find('\0'));
}

void World::remove_segment()
{
    (void)ask(Op::kSegmentRemove);
}

}  // namespace corvane::harness

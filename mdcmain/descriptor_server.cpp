// The descriptor-passing server: its socket, its requests, its replies.
#include "mdcmain/descriptor_server.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "mdcmain/log.h"
#include "mdcmain/log_format.hpp"
#include "mdcmain/segment.hpp"
#include "osl/counters.hpp"
#include "osl/descriptor.hpp"

char socket_file[CORVANE_SOCKET_NAME_BYTES] = {};
char san_errmsg[128] = {};
int32_t g_logging = 0;

namespace corvane {
namespace {

constexpr char kDefaultSocket[] = "/tmp/corvane_fd.fifo";
constexpr size_t kRequestBytes = 4096;
constexpr std::string_view kAppendPrefix = "logop";
constexpr std::string_view kRemovePrefix = "logrm";
constexpr mode_t kEveryone = 0666;
constexpr mode_t kOwnerOnly = 0600;
static_assert(sizeof(sockaddr_un) == 110 && sizeof(sockaddr_un::sun_path) == 108);

// A socket operation that can fail: what the log says of it, and the number by which operators know
// the place.
struct Operation {
    const char* text;
    int line;
};
constexpr Operation kSocket{.text = "socket() failed", .line = 98};
constexpr Operation kBind{.text = "bind() failed", .line = 104};
constexpr Operation kListen{.text = "listen(sock...) failed", .line = 109};
constexpr Operation kAccept{.text = "accept(sock...) failed", .line = 120};
constexpr Operation kSend{.text = "sendmsg(fd_conn...) failed", .line = 259};

// The steps are logged only for a developer who set the switch in this very process.
bool steps_logged() noexcept
{
    return g_logging != 0 && log_level() > 2;
}

void report(const Operation& operation) noexcept
{
    (void)std::snprintf(san_errmsg, sizeof san_errmsg, "%s at \"%s\":%d: %s\n", operation.text,
                        "mdcmain/fifoserver", operation.line, std::strerror(errno));
    char line[sizeof san_errmsg];
    std::memcpy(line, san_errmsg, sizeof line);
    interpret_again(line);
    sanos_log("%s", line);
}

[[noreturn]] void fail(const Operation& operation) noexcept
{
    report(operation);
    std::abort();
}

// A longer path than the address holds would be another file's name when cut.
void refuse_long_path() noexcept
{
    const size_t length = std::strlen(socket_file);
    if (length <= sizeof(sockaddr_un::sun_path)) return;
    sanos_log(
        "corvaned: the socket path \"%s\" (CORVANEFIFO) has %zu bytes or more, the limit is %zu\n",
        socket_file, length, sizeof(sockaddr_un::sun_path));
    errno = ENAMETOOLONG;
    fail(kBind);
}

// Binds `listener` to socket_file and opens it to every local user.
void bind_socket(int listener, int32_t backlog) noexcept
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, socket_file, sizeof address.sun_path);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        fail(kBind);
    (void)chmod(socket_file, kEveryone);  // the socket is ours: we have just made it
    if (listen(listener, backlog) != 0) fail(kListen);
}

int accept_connection(int listener) noexcept
{
    for (;;) {
        const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection >= 0) return connection;
        if (errno != EINTR) fail(kAccept);
    }
}

int open_existing(const char* path) noexcept
{
    if (log_level() > 2) {
        sanos_log("FTX1535I [%d-%d] Here is some data from client: \"%s\"\n", getpid(), gettid(),
                  path);
    }
    return open(path, O_RDWR | O_NOCTTY | O_CLOEXEC);
}

int open_for_append(const char* path) noexcept
{
    if (steps_logged()) {
        sanos_log("FTX1535I [%d-%d] Here is some data from client: \"%s\"\n", getpid(), gettid(),
                  path);
    }
    const bool is_private = load_shared(fs->logopPrivate) != 0;
    const int file = open(path, O_RDWR | O_CREAT | O_APPEND | O_NOCTTY | O_CLOEXEC,
                          is_private ? kOwnerOnly : kEveryone);
    // Past the umask. After a failed open this sets the errno that the log shows; that is meant.
    if (!is_private) (void)fchmod(file, kEveryone);
    return file;
}

void remove_file(const char* path) noexcept
{
    if (steps_logged()) {
        sanos_log("FTX1535I [%d-%d] Here is some data from client: remove \"%s\"\n", getpid(),
                  gettid(), path);
    }
    (void)unlink(path);  // the client is told nothing either way
}

int open_requested(const char* request) noexcept
{
    if (request[0] == '/') return open_existing(request);
    if (std::string_view(request).starts_with(kAppendPrefix)) {
        return open_for_append(request + kAppendPrefix.size());
    }
    return -1;
}

// One message: the socket's path, which clients skip, and the descriptor beside it.
bool send_descriptor(int connection, int file) noexcept
{
    iovec data{.iov_base = socket_file, .iov_len = sizeof socket_file};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof file)] = {};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_len = CMSG_LEN(sizeof file);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    std::memcpy(CMSG_DATA(header), &file, sizeof file);
    return sendmsg(connection, &message, 0) >= 0;
}

}  // namespace
}  // namespace corvane

char* loadSocketName(void) noexcept
{
    const char* const wanted = std::getenv("CORVANEFIFO");
    std::memset(socket_file, 0, sizeof socket_file);
    corvane::set_text(socket_file, wanted == nullptr ? corvane::kDefaultSocket : wanted);
    return socket_file;
}

void fifoGetHandleServer(int32_t backlog) noexcept
{
    loadSocketName();
    (void)std::signal(SIGPIPE, SIG_IGN);  // a client that goes away costs its connection only
    fused_mapShared();
    corvane::refuse_long_path();
    (void)unlink(socket_file);  // of an earlier run; there may be none
    const corvane::Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!listener.is_open()) corvane::fail(corvane::kSocket);
    corvane::bind_socket(listener.get(), backlog);
    for (;;) {
        if (corvane::steps_logged()) {
            sanos_log("FTX1531I [%d-%d] accepting socket connections...\n\n", getpid(), gettid());
        }
        const int connection = corvane::accept_connection(listener.get());
        if (corvane::steps_logged()) {
            sanos_log("FTX1532I [%d-%d] received connection\n", getpid(), gettid());
        }
        (void)fd_thread_server(connection);  // always 0
    }
}

int32_t fd_thread_server(int32_t connection) noexcept
{
    fused_mapShared();
    corvane::count_event(COUNTERS_EVENT_DESCRIPTOR_REQUEST);
    const corvane::Descriptor owner(connection);
    if (corvane::steps_logged()) {
        sanos_log("FTX1534I [%d-%d] socket fd_conn = %d\n", getpid(), gettid(), connection);
    }
    char request[corvane::kRequestBytes] = {};
    (void)read(connection, request, sizeof request - 1);  // nothing read is an unknown request
    if (std::string_view(request).starts_with(corvane::kRemovePrefix)) {
        corvane::remove_file(request + corvane::kRemovePrefix.size());
        return 0;
    }
    const corvane::Descriptor file(corvane::open_requested(request));
    if (!file.is_open()) {
        const int reason = errno;
        sanos_log("FTX1536I [%d-%d] Open failed for: \"%s\": %s\n", getpid(), gettid(), request,
                  std::strerror(reason));
        return 0;
    }
    if (!corvane::send_descriptor(connection, file.get())) corvane::report(corvane::kSend);
    return 0;
}

// Requests to the daemon, and what its replies say. Every length is checked before it is believed.
#include "tools/corvanestat/administration.hpp"

#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <span>

#include "osl/bytes.hpp"

namespace corvane::stat {
namespace {

constexpr time_t kPatience_s = 10;

template <std::size_t Size>
Cookie cookie_of(const std::uint8_t (&bytes)[Size])
{
    return std::to_array(bytes);
}

}  // namespace

std::string address_text(const Lease& lease)
{
    const std::uint32_t address = lease.client_address;
    return std::to_string(address >> 24) + "." + std::to_string(address >> 16 & 0xFF) + "." +
           std::to_string(address >> 8 & 0xFF) + "." + std::to_string(address & 0xFF);
}

// Reads a reply from front to back.
class Administration::Reply {
public:
    explicit Reply(std::span<const std::byte> bytes) : rest_(bytes)
    {
        head_ = take<admin::ReplyHead>();
    }

    [[nodiscard]] const admin::ReplyHead& head() const { return head_; }
    [[nodiscard]] bool has(std::uint32_t flag) const { return (head_.flags & flag) != 0; }

    template <class Entry>
    [[nodiscard]] Entry take()
    {
        need(sizeof(Entry));
        const auto entry = load<Entry>(rest_.data());
        rest_ = rest_.subspan(sizeof(Entry));
        return entry;
    }
    [[nodiscard]] std::string take_text(std::size_t count)
    {
        need(count);
        std::string text(reinterpret_cast<const char*>(rest_.data()), count);
        rest_ = rest_.subspan(count);
        return text;
    }
    [[nodiscard]] std::string take_rest() { return take_text(rest_.size()); }

private:
    void need(std::size_t count) const
    {
        if (count > rest_.size()) throw Refusal("the daemon's answer is cut short");
    }

    std::span<const std::byte> rest_;
    admin::ReplyHead head_{};
};

Administration::Administration(std::uint32_t port)
    : port_(port),
      socket_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)),
      room_(admin::kReplyBytes)
{
    const timeval patience{.tv_sec = kPatience_s, .tv_usec = 0};
    const admin::Address address(port);
    if (!socket_.is_open() ||
        setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) != 0 ||
        setsockopt(socket_.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience) != 0 ||
        connect(socket_.get(), address.get(), address.bytes) != 0) {
        give_up();
    }
    check_peer();
}

void Administration::give_up() const
{
    const std::string where = "port " + std::to_string(port_);
    if (errno == ECONNREFUSED || errno == ENOENT) {
        throw Refusal("no daemon answers on " + where + ": start corvaned, or name its --port");
    }
    throw Refusal("the daemon on " + where + " does not answer: " + std::strerror(errno));
}

// Any local user can take a socket's name before the daemon does: believe root, ourselves, and the
// process that counts on this port.
void Administration::check_peer() const
{
    ucred peer{};
    socklen_t peer_bytes = sizeof peer;
    if (getsockopt(socket_.get(), SOL_SOCKET, SO_PEERCRED, &peer, &peer_bytes) != 0) give_up();
    if (peer.uid == 0 || peer.uid == geteuid() || peer.pid == Page(port_).pid()) return;
    throw Refusal("process " + std::to_string(peer.pid) + " of user " + std::to_string(peer.uid) +
                  " answers on port " + std::to_string(port_) + ", but is not the daemon");
}

Administration::Reply Administration::ask(admin::Operation operation, std::uint32_t number)
{
    const admin::Request request{admin::kMagic, admin::kVersion, operation, number};
    if (send(socket_.get(), &request, sizeof request, MSG_NOSIGNAL) != sizeof request) give_up();
    const ssize_t got = recv(socket_.get(), room_.data(), room_.size(), 0);
    if (got < 0) give_up();
    if (got == 0) throw Refusal("the daemon ended the connection: try again");
    const std::span<const std::byte> bytes(room_);
    Reply reply(bytes.first(static_cast<std::size_t>(got)));
    if (reply.head().magic != admin::kMagic || reply.head().version != admin::kVersion) {
        throw Refusal("the daemon on port " + std::to_string(port_) +
                      " is another version: use the corvanestat that came with it");
    }
    if (reply.head().result == admin::kMalformed) {
        throw Refusal("the daemon did not understand the request");
    }
    return reply;
}

bool Administration::list(const std::function<void(Lease&&)>& take)
{
    bool more = true;
    bool hidden = false;
    for (auto operation = admin::kFirstLeases; more; operation = admin::kNextLeases) {
        Reply reply = ask(operation, 0);
        for (std::uint32_t i = 0; i < reply.head().count; ++i) {
            const auto entry = reply.take<admin::LeaseEntry>();
            Lease lease;
            lease.key = entry.key;
            lease.reads = entry.intention == 1;
            lease.granted_s = entry.granted_s;
            lease.renewed_s = entry.renewed_s;
            lease.until_s = entry.until_s;
            lease.requests = entry.requests;
            lease.slot = entry.slot;
            for (const std::uint8_t part : entry.client_address) {
                lease.client_address = lease.client_address << 8 | part;
            }
            lease.client_port = entry.client_port;
            lease.volume_cookie = cookie_of(entry.volume_cookie);
            lease.file_cookie = cookie_of(entry.file_cookie);
            lease.volume = reply.take_text(entry.volume_name_bytes);
            lease.file = reply.take_text(entry.file_name_bytes);
            take(std::move(lease));
        }
        more = reply.has(admin::kMore);
        hidden = reply.has(admin::kNamesHidden);
    }
    return hidden;
}

void Administration::release(std::uint32_t key)
{
    const Reply reply = ask(admin::kRelease, key);
    switch (reply.head().result) {
        case admin::kDone:
            return;
        case admin::kNotPermitted:
            throw Refusal("only root may release a lease: run this as root");
        case admin::kUnknownNumber:
            throw Refusal("no lease has the key " + std::to_string(key) +
                          ": 'corvanestat leases' lists them");
        default:
            throw Refusal("the lease could not be released");
    }
}

std::vector<BusyFile> Administration::busy_files()
{
    Reply reply = ask(admin::kBusyFiles, 0);
    std::vector<BusyFile> files;
    for (std::uint32_t i = 0; i < reply.head().count; ++i) {
        const auto entry = reply.take<admin::BusyEntry>();
        files.push_back({entry.number, entry.requests, cookie_of(entry.volume_cookie),
                         cookie_of(entry.file_cookie)});
    }
    return files;
}

std::string Administration::name_of(const BusyFile& file)
{
    Reply reply = ask(admin::kFileName, file.number);
    return reply.head().result == admin::kDone ? reply.take_rest() : "";
}

}  // namespace corvane::stat

// Packets over a SOCK_SEQPACKET pair: a fixed head, the payload, descriptors as ancillary data.
#include "tests/harness/wire.hpp"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace corvane::harness {

namespace {

constexpr std::size_t kMaxFds = 4;

struct Head {
    std::int64_t a;
    std::int64_t b;
    std::int64_t c;
    std::int32_t code;
    std::int32_t payload_bytes;
};

}  // namespace

void Fd::reset() noexcept
{
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
}

bool send_packet(int socket, const Packet& packet, const std::vector<int>& fds)
{
    Head head{packet.a, packet.b, packet.c, packet.code,
              static_cast<std::int32_t>(packet.payload.size())};
    std::array<iovec, 2> parts{
        {{&head, sizeof head}, {const_cast<char*>(packet.payload.data()), packet.payload.size()}}};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int) * kMaxFds)> control{};
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    if (!fds.empty()) {
        message.msg_control = control.data();
        message.msg_controllen = CMSG_SPACE(sizeof(int) * fds.size());
        cmsghdr* rights = CMSG_FIRSTHDR(&message);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(sizeof(int) * fds.size());
        std::memcpy(CMSG_DATA(rights), fds.data(), sizeof(int) * fds.size());
    }
    ssize_t sent = 0;
    do {
        sent = ::sendmsg(socket, &message, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent >= 0;
}

bool receive_packet(int socket, Packet& packet)
{
    Head head{};
    std::string payload(kMaxPayloadBytes, '\0');
    std::array<iovec, 2> parts{{{&head, sizeof head}, {payload.data(), payload.size()}}};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int) * kMaxFds)> control{};
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    ssize_t got = 0;
    do {
        got = ::recvmsg(socket, &message, MSG_CMSG_CLOEXEC);
    } while (got < 0 && errno == EINTR);
    if (got < static_cast<ssize_t>(sizeof head)) return false;
    payload.resize(static_cast<std::size_t>(got) - sizeof head);
    packet = Packet{head.code, head.a, head.b, head.c, std::move(payload), {}};
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
         part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS) continue;
        const std::size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < count; ++i) {
            int fd = -1;
            std::memcpy(&fd, CMSG_DATA(part) + i * sizeof(int), sizeof fd);
            packet.fds.emplace_back(fd);
        }
    }
    return true;
}

void append_list(std::string& payload, const std::vector<std::string>& texts)
{
    for (const auto& text : texts) {
        payload += "+" + text;  // the mark keeps an empty text apart from the end
        payload += '\0';
    }
    payload += '\0';
}

std::vector<std::string> take_list(std::string_view& payload)
{
    std::vector<std::string> texts;
    while (!payload.empty()) {
        const std::string_view text = payload.substr(0, payload.find('\0'));
        payload.remove_prefix(std::min(payload.size(), text.size() + 1));
        if (text.empty()) break;
        texts.emplace_back(text.substr(1));
    }
    return texts;
}

}  // namespace corvane::harness

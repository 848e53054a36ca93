// A client of the descriptor service, one connection a request, and the fixture that tests of the
// service share.
#ifndef CORVANE_TESTS_DAEMON_DESCRIPTOR_WORLD_HPP
#define CORVANE_TESTS_DAEMON_DESCRIPTOR_WORLD_HPP

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <string>

#include "tests/harness/daemon.hpp"

namespace corvane::harness {

// What came back on one connection.
struct Answer {
    Fd descriptor;
    std::string data;
    std::size_t control_bytes = 0;
    int level = 0;
    int type = 0;
    bool ended = false;  // end of file follows
};

class DescriptorWorld : public DaemonTest {
protected:
    Fd connect_to(const std::string& socket_path)
    {
        Fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un to{};
        to.sun_family = AF_UNIX;
        std::strncpy(to.sun_path, world().path(socket_path).c_str(), sizeof to.sun_path - 1);
        EXPECT_EQ(::connect(socket.get(), reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
        return socket;
    }

    static Answer read_answer(const Fd& socket)
    {
        Answer answer;
        std::array<char, 1024> data{};
        alignas(cmsghdr) std::array<char, 256> control{};
        iovec part{data.data(), data.size()};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        pollfd ready{socket.get(), POLLIN, 0};
        if (::poll(&ready, 1, static_cast<int>(kPatience.count())) != 1) return answer;
        const ssize_t got = ::recvmsg(socket.get(), &message, MSG_CMSG_CLOEXEC);
        if (got < 0) {  // closed while part of the request lay unread
            answer.ended = true;
            return answer;
        }
        if (got > 0) answer.data.assign(data.data(), static_cast<std::size_t>(got));
        if (const cmsghdr* rights = CMSG_FIRSTHDR(&message); rights != nullptr) {
            answer.control_bytes = rights->cmsg_len - CMSG_LEN(0);
            answer.level = rights->cmsg_level;
            answer.type = rights->cmsg_type;
            int fd = -1;
            std::memcpy(&fd, CMSG_DATA(rights), sizeof fd);
            answer.descriptor = Fd(fd);
        }
        ready.revents = 0;
        answer.ended = got == 0 || (::poll(&ready, 1, static_cast<int>(kPatience.count())) == 1 &&
                                    ::recv(socket.get(), data.data(), data.size(), 0) == 0);
        return answer;
    }

    Answer ask(const std::string& request, const std::string& socket_path = kSocketPath)
    {
        const Fd socket = connect_to(socket_path);
        EXPECT_EQ(::send(socket.get(), request.data(), request.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(request.size()));
        return read_answer(socket);
    }

    static std::string read_descriptor(const Fd& file)
    {
        std::array<char, 100> data{};
        const ssize_t got = ::pread(file.get(), data.data(), data.size(), 0);
        return {data.data(), static_cast<std::size_t>(got > 0 ? got : 0)};
    }

    // The daemon's descriptors, as a list.
    std::string open_descriptors()
    {
        return world().run({{"ls", "/proc/" + std::to_string(daemon_pid()) + "/fd"}, {}}).output;
    }
};

}  // namespace corvane::harness

#endif

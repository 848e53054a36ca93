// A descriptor service in a thread: answers one connection after another as it is told.
#ifndef CORVANE_TESTS_CLIENT_FAKE_DESCRIPTOR_SERVICE_HPP
#define CORVANE_TESTS_CLIENT_FAKE_DESCRIPTOR_SERVICE_HPP

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

#include "client/descriptor_owner.hpp"
#include "tests/client/fake_controller.hpp"

namespace corvane::test {

// Listens on a socket of its own, which CORVANEFIFO names while it lives. `serve` gets the
// request's text and the connection.
class FakeDescriptorService {
public:
    using Serve = std::function<void(const std::string& request, int connection)>;

    explicit FakeDescriptorService(Serve serve, int connection_count = 1)
        : path_(name_.path() + ".sock"), listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path_.copy(address.sun_path, sizeof address.sun_path - 1);
        if (bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
            listen(listener_.get(), 8) != 0 || setenv("CORVANEFIFO", path_.c_str(), 1) != 0) {
            throw std::runtime_error("no local socket");
        }
        thread_ = std::thread([this, serve = std::move(serve), connection_count] {
            for (int i = 0; i < connection_count; ++i) serve_one(serve);
        });
    }
    ~FakeDescriptorService()
    {
        (void)shutdown(listener_.get(), SHUT_RDWR);  // ends an accept that nobody will meet
        thread_.join();
        (void)unsetenv("CORVANEFIFO");
        (void)unlink(path_.c_str());
    }
    FakeDescriptorService(const FakeDescriptorService&) = delete;
    FakeDescriptorService& operator=(const FakeDescriptorService&) = delete;

    [[nodiscard]] const std::string& path() const { return path_; }

private:
    void serve_one(const Serve& serve) const
    {
        const Descriptor connection(accept(listener_.get(), nullptr, nullptr));
        if (!connection.is_open()) return;
        std::array<char, 4096> request{};
        const ssize_t count = read(connection.get(), request.data(), request.size() - 1);
        if (count > 0) serve(request.data(), connection.get());
    }

    TemporaryFile name_;
    std::string path_;
    Descriptor listener_;
    std::thread thread_;
};

// Sends descriptors as the daemon does: 256 bytes of data and one control message.
inline void send_descriptors(int connection, const std::vector<int>& descriptors)
{
    std::array<char, 256> data{};
    iovec part{data.data(), data.size()};
    std::vector<char> control(CMSG_SPACE(descriptors.size() * sizeof(int)));
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* const head = CMSG_FIRSTHDR(&message);
    head->cmsg_level = SOL_SOCKET;
    head->cmsg_type = SCM_RIGHTS;
    head->cmsg_len = CMSG_LEN(descriptors.size() * sizeof(int));
    std::memcpy(CMSG_DATA(head), descriptors.data(), descriptors.size() * sizeof(int));
    (void)sendmsg(connection, &message, MSG_NOSIGNAL);
}

}  // namespace corvane::test
#endif

// Messages between a test and the keeper of its world: one packet each, with descriptors beside it.
#ifndef CORVANE_TESTS_HARNESS_WIRE_HPP
#define CORVANE_TESTS_HARNESS_WIRE_HPP

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvane::harness {

// Owns a descriptor.
class Fd {
public:
    Fd() = default;
    explicit Fd(int fd) noexcept : fd_(fd) {}
    Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Fd& operator=(Fd&& other) noexcept
    {
        if (this != &other) {
            reset();
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    ~Fd() { reset(); }

    [[nodiscard]] int get() const noexcept { return fd_; }
    [[nodiscard]] bool is_open() const noexcept { return fd_ >= 0; }
    void reset() noexcept;

private:
    int fd_ = -1;
};

enum class Op : std::int32_t {
    kSpawn,
    kWait,
    kKill,
    kList,
    kSocket,
    kPeek,
    kPoke,
    kSegmentSize,
    kSegmentRemove,
    kReadFile,
    kJoinNetworks,
};

// A packet's payload stays below what a socket pair takes in one piece.
inline constexpr std::size_t kMaxPayloadBytes = 96 * 1024;

struct Packet {
    std::int32_t code = 0;  // a request's Op, a reply's errno
    std::int64_t a = 0;
    std::int64_t b = 0;
    std::int64_t c = 0;
    std::string payload;
    std::vector<Fd> fds;  // received ones, owned
};

// Sends `packet` with `fds` beside it. Returns false when the other side is gone.
[[nodiscard]] bool send_packet(int socket, const Packet& packet, const std::vector<int>& fds = {});

// Receives one packet; waits for it. Returns false when the other side is gone.
[[nodiscard]] bool receive_packet(int socket, Packet& packet);

// Lists of texts inside a payload, each ended by a zero byte, the list by an empty text.
void append_list(std::string& payload, const std::vector<std::string>& texts);
[[nodiscard]] std::vector<std::string> take_list(std::string_view& payload);

}  // namespace corvane::harness

#endif

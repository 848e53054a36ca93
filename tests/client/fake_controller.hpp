// A metadata controller in a thread: answers on a loopback port as its script says, in either byte
// order, and remembers what it was asked. It builds its replies with the test harness's own codec.
#ifndef CORVANE_TESTS_CLIENT_FAKE_CONTROLLER_HPP
#define CORVANE_TESTS_CLIENT_FAKE_CONTROLLER_HPP

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "client/exchange.hpp"
#include "tests/harness/codec.hpp"

namespace corvane::test {

using harness::codec::Bytes;
using harness::codec::Disk;
using harness::codec::Extent;
using harness::codec::Order;

constexpr std::uint32_t kFakeKey = 0x01020304;

struct Script {
    Order order = Order::kLittle;
    std::int32_t block_bytes = 4096;
    std::vector<Disk> disks;
    std::int64_t file_size = 0;
    std::int64_t allocation = 0;
    std::vector<Extent> extents;           // verbose, of the whole file
    std::size_t extents_per_reply = 1000;  // more are sent in partial replies
    std::int32_t lease_ms = 60000;
    int requests_to_drop = 0;     // this many get no answer
    std::uint32_t open_code = 0;  // the result of each kind of request; 0 = done
    std::uint32_t map_code = 0;
    std::uint32_t size_code = 0;
    std::uint32_t close_code = 0;
    bool sends_bare_errors = false;  // answers with a header alone, result 8
    bool hides_long_maps = false;    // a partial extended map comes without a record
    std::function<void(Script&, std::int64_t bytes)> on_allocate;
    std::function<void(Bytes& reply)> tamper;  // the last hand on every reply
    std::function<void(int function)> on_request;
};

// A request as it came.
struct Asked {
    int function = 0;
    std::string share;
    std::string file;
    std::uint32_t key = 0;
    std::int64_t start = 0;
    std::int64_t length = 0;
    std::int64_t file_size = -1;
    std::int64_t allocation = -1;
    std::int32_t intention = 0;
    std::uint32_t flags = 0;
    std::string message_id;
    std::string volume_cookie;
};

class FakeController {
public:
    explicit FakeController(Script script);
    ~FakeController();
    FakeController(const FakeController&) = delete;
    FakeController& operator=(const FakeController&) = delete;

    [[nodiscard]] Endpoint endpoint() const { return {"127.0.0.1", port_, 5, 3}; }
    [[nodiscard]] std::vector<Asked> asked() const;
    [[nodiscard]] std::vector<Asked> asked(int function) const;

    // Waits until `count` requests of `function` came; false after 20 seconds.
    [[nodiscard]] bool wait_for(int function, std::size_t count);

    void change(const std::function<void(Script&)>& change);

private:
    void serve();
    [[nodiscard]] Bytes answer(const Asked& request, const Bytes& message);
    [[nodiscard]] Bytes reply(const Bytes& message, std::size_t size, std::uint32_t result) const;
    void put_map(Bytes& reply, std::size_t at, std::int64_t start, std::int64_t length);

    mutable std::mutex mutex_;
    std::condition_variable came_;
    Script script_;
    std::vector<Asked> asked_;
    std::atomic<bool> is_stopped_{false};
    int socket_ = -1;
    int port_ = 0;
    std::thread thread_;
};

// A temporary file with contents, gone with its object.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& contents = {});
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] std::string contents() const;

private:
    std::string path_;
};

// `count` bytes that differ from place to place, by `seed`.
[[nodiscard]] std::string pattern(std::size_t count, unsigned seed);

// An image with a signature at byte 100 and `text` at `offset`, filled up to `size` with "x".
[[nodiscard]] std::string image_with(
    const std::string& signature, std::size_t size,
    const std::vector<std::pair<std::size_t, std::string>>& pieces);

// A script for one disk: signature "SIGNATURE-000001" at byte 100, blocks 2 to 101 are the slice.
[[nodiscard]] Script one_disk_script();
constexpr char kSignature[] = "SIGNATURE-000001";
constexpr std::size_t kSliceStart = 2 * 4096;
constexpr std::size_t kImageBytes = 102 * 4096;

}  // namespace corvane::test
#endif

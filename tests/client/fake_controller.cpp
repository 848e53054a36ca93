// Serves scripted replies on a loopback socket.
#include "tests/client/fake_controller.hpp"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace corvane::test {
namespace {

constexpr std::size_t kVolumeRecord = 88;
constexpr std::size_t kInitialRecord = 160;
constexpr std::size_t kExtendedRecord = 88;

Asked decode(const Bytes& message)
{
    Asked asked;
    asked.function = message.i32(24);
    asked.flags = message.u32(32);
    asked.message_id = message.slice(8, 16);
    switch (asked.function) {
        case 1:
            asked.share = message.text(180);
            asked.volume_cookie = message.slice(84, 32);
            break;
        case 2:
            asked.file_size = message.i64(48);
            asked.allocation = message.i64(56);
            asked.intention = message.i32(68);
            asked.share = message.text(112);
            asked.file = message.text(112 + 2 * (asked.share.size() + 1));
            break;
        case 3:
            asked.file_size = message.i64(48);
            asked.allocation = message.i64(56);
            asked.start = message.i64(64);
            asked.length = message.i64(72);
            asked.key = message.u32(84);
            break;
        case 4:
            asked.file_size = message.i64(48);
            asked.key = message.u32(60);
            break;
        default:
            asked.file_size = message.i64(48);
            asked.key = message.u32(56);
            break;
    }
    return asked;
}

}  // namespace

FakeController::FakeController(Script script) : script_(std::move(script))
{
    socket_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    const timeval poll{0, 20000};
    if (socket_ < 0 || bind(socket_, generic, length) != 0 ||
        getsockname(socket_, generic, &length) != 0 ||
        setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &poll, sizeof poll) != 0) {
        throw std::runtime_error("no loopback socket");
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
}

FakeController::~FakeController()
{
    is_stopped_ = true;
    thread_.join();
    close(socket_);
}

std::vector<Asked> FakeController::asked() const
{
    const std::scoped_lock lock(mutex_);
    return asked_;
}

std::vector<Asked> FakeController::asked(int function) const
{
    auto all = asked();
    std::erase_if(all, [function](const Asked& one) { return one.function != function; });
    return all;
}

bool FakeController::wait_for(int function, std::size_t count)
{
    std::unique_lock lock(mutex_);
    return came_.wait_for(lock, std::chrono::seconds(20), [&] {
        const auto seen = std::ranges::count(asked_, function, &Asked::function);
        return static_cast<std::size_t>(seen) >= count;
    });
}

void FakeController::change(const std::function<void(Script&)>& change)
{
    const std::scoped_lock lock(mutex_);
    change(script_);
}

void FakeController::serve()
{
    std::array<char, 65536> buffer{};
    while (!is_stopped_) {
        sockaddr_in sender{};
        socklen_t length = sizeof sender;
        auto* const generic = reinterpret_cast<sockaddr*>(&sender);
        const ssize_t count = recvfrom(socket_, buffer.data(), buffer.size(), 0, generic, &length);
        if (count <= 0) continue;
        const Bytes message(std::string(buffer.data(), static_cast<std::size_t>(count)),
                            Order::kLittle);
        const Asked request = decode(message);
        Bytes reply;
        {
            const std::scoped_lock lock(mutex_);
            asked_.push_back(request);
            if (script_.on_request) script_.on_request(request.function);
            if (script_.requests_to_drop-- <= 0) reply = answer(request, message);
        }
        if (reply.size() != 0) {
            (void)sendto(socket_, reply.data().data(), reply.size(), 0, generic, length);
        }
        came_.notify_all();
    }
}

Bytes FakeController::reply(const Bytes& message, std::size_t size, std::uint32_t result) const
{
    Bytes out(size, script_.order);
    out.put32(0, 1);
    out.put_bytes(8, message.slice(8, 16));
    out.put32(24, -message.i32(24));
    out.put(28, 4, size);
    if (size > 48) out.put(48, 4, result);
    return out;
}

// The extents of [start, start + length) as one record; more than fit make it partial.
void FakeController::put_map(Bytes& out, std::size_t at, std::int64_t start, std::int64_t length)
{
    const std::int64_t end = length <= 0 ? INT64_MAX : start + length;
    std::vector<Extent> chosen;
    std::int64_t covered = std::min(end, script_.file_size);
    bool is_partial = false;
    for (Extent extent : script_.extents) {
        if (extent.logical + extent.bytes <= start || extent.logical >= end) continue;
        if (chosen.size() == script_.extents_per_reply) {
            covered = extent.logical;
            is_partial = true;
            break;
        }
        const std::int64_t skipped = std::max<std::int64_t>(start - extent.logical, 0);
        extent.logical += skipped;
        if (extent.validity != 1) extent.physical += skipped;
        extent.bytes = std::min(extent.bytes - skipped, end - extent.logical);
        chosen.push_back(extent);
    }
    const std::size_t bytes = 64 + 32 * chosen.size();
    if (is_partial && script_.hides_long_maps && start != 0 && length <= 0) {
        out.put(48, 4, 1);
        return;
    }
    out.resize(at + bytes + 2);
    out.put(28, 4, out.size());
    out.put(48, 4, is_partial ? 1 : 0);
    out.put64(at, script_.file_size);
    out.put64(at + 8, script_.allocation);
    out.put(at + 16, 4, bytes);
    out.put(at + 24, 4, chosen.size());
    out.put32(at + 28, 1);
    out.put64(at + 32, start);
    out.put64(at + 40, std::max<std::int64_t>(covered - start, 0));
    for (std::size_t i = 0; i < chosen.size(); ++i) {
        const std::size_t place = at + 64 + 32 * i;
        out.put64(place, chosen[i].logical);
        out.put64(place + 8, chosen[i].physical);
        out.put64(place + 16, chosen[i].bytes);
        out.put32(place + 24, chosen[i].ordinal);
        out.put32(place + 28, chosen[i].validity);
    }
}

Bytes FakeController::answer(const Asked& request, const Bytes& message)
{
    Bytes out;
    if (script_.sends_bare_errors) {
        out = reply(message, 48, 0);
        out.put(36, 4, 8);
        out.put_bytes(0, message.slice(0, 4));  // such a reply keeps the request's marker
    } else if (request.function == 1) {
        out = reply(message, kVolumeRecord + 104 + 80 * script_.disks.size(), 0);
        out.put(kVolumeRecord + 20, 4, script_.disks.size());
        out.put32(kVolumeRecord + 24, script_.block_bytes);
        for (std::size_t i = 0; i < script_.disks.size(); ++i) {
            const std::size_t at = kVolumeRecord + 104 + 80 * i;
            out.put_bytes(at, script_.disks[i].id);
            out.put64(at + 16, script_.disks[i].id_offset);
            out.put64(at + 24, script_.disks[i].block_offset);
            out.put64(at + 32, script_.disks[i].block_count);
            out.put(at + 40, 4, script_.disks[i].id.size());
        }
    } else if (request.function == 2) {
        out = reply(message, 256, script_.open_code);
        out.put32(52, script_.lease_ms);
        out.put(56, 4, kFakeKey);
        out.put_bytes(128, std::string(32, 'v'));
        if (script_.open_code == 0) put_map(out, kInitialRecord, 0, 0);
    } else if (request.function == 3) {
        out = reply(message, 184, script_.map_code);
        if (request.allocation != -1 && script_.on_allocate) {
            script_.on_allocate(script_, request.allocation);
        }
        if (script_.map_code == 0) put_map(out, kExtendedRecord, request.start, request.length);
        out.put32(52, out.u32(48) == 0 ? script_.lease_ms : 0);
    } else if (request.function == 4) {
        out = reply(message, 72, script_.size_code);
        out.put32(52, script_.lease_ms);
    } else {
        out = reply(message, 88, script_.close_code);
    }
    if (script_.tamper) script_.tamper(out);
    return out;
}

TemporaryFile::TemporaryFile(const std::string& contents)
{
    const char* const directory = std::getenv("TMPDIR");
    path_ = std::string(directory != nullptr ? directory : "/tmp") + "/corvane-client-test.XXXXXX";
    const int descriptor = mkstemp(path_.data());
    if (descriptor < 0) throw std::runtime_error("no temporary file");
    close(descriptor);
    std::ofstream(path_, std::ios::binary) << contents;
}

TemporaryFile::~TemporaryFile()
{
    (void)unlink(path_.c_str());
}

std::string TemporaryFile::contents() const
{
    std::ostringstream text;
    text << std::ifstream(path_, std::ios::binary).rdbuf();
    return text.str();
}

std::string pattern(std::size_t count, unsigned seed)
{
    std::string bytes(count, '\0');
    std::uint32_t state = seed * 2654435761U + 1;
    for (char& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24U);
    }
    return bytes;
}

std::string image_with(const std::string& signature, std::size_t size,
                       const std::vector<std::pair<std::size_t, std::string>>& pieces)
{
    std::string image(size, 'x');
    image.replace(100, signature.size(), signature);
    for (const auto& [offset, text] : pieces) image.replace(offset, text.size(), text);
    return image;
}

Script one_disk_script()
{
    Script script;
    script.disks = {Disk{kSignature, 100, 2, 100}};
    return script;
}

}  // namespace corvane::test

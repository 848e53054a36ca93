// Listing leases, ending them, and naming busy files.
#include "fsmdc/admin_session.hpp"

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "fsmdc/file_names.hpp"
#include "fsmdc/plugin_calls.hpp"
#include "lan/dgram.h"
#include "mdcmain/log.h"
#include "osl/bytes.hpp"
#include "osl/counters.hpp"
#include "osl/thread.h"

namespace corvane {
namespace {

// Leases copied under one hold of the lock.
constexpr std::size_t kLeasesPerHold = 8;
// What they can take in a reply, however long their names are.
constexpr std::size_t kBatchBytes =
    kLeasesPerHold * (sizeof(admin::LeaseEntry) + 2 * admin::kNameBytes);
static_assert(sizeof(admin::ReplyHead) + kBatchBytes <= admin::kReplyBytes);
static_assert(sizeof(admin::ReplyHead) +
                  BusyFiles::kSets * BusyFiles::kPlaces * sizeof(admin::BusyEntry) <=
              admin::kReplyBytes);

// The client's address in the communication cookie, which begins like a DgramReplyAddr.
struct Client {
    explicit Client(const LeaseRecord& record) noexcept
    {
        const std::uint8_t* const from = record.commCookie + offsetof(DgramReplyAddr, sender);
        port = ntohs(load<std::uint16_t>(from + offsetof(sockaddr_in, sin_port)));
        std::memcpy(address, from + offsetof(sockaddr_in, sin_addr), sizeof address);
    }
    std::uint8_t address[4];
    std::uint16_t port;
};

struct Name {
    Name(const FsLibrary* library, const void* volume_cookie, const void* file_cookie) noexcept
        : bytes(file_name(library, volume_cookie, file_cookie, std::span(text, admin::kNameBytes)))
    {
        text[bytes] = '\0';
    }
    char text[admin::kNameBytes + 1];
    std::size_t bytes;
};

// Who ended a lease must not get lost where two messages meet: a lost one is written again.
template <class Write>
void log_for_certain(Write write) noexcept
{
    constexpr int kAttempts = 50;
    const auto lost = [] { return counter_seat().block->events[COUNTERS_EVENT_LOG_LOST]; };
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const std::uint64_t before = lost();
        write();
        if (counter_seat().is_shared || lost() == before) return;
        OSL_Sleep(1);
    }
}

void log_release(const LeaseView& view, const AdminPeer& peer) noexcept
{
    const LeaseRecord& record = view.record;
    Name file(record.library, record.volumeCookie, record.fileCookie);
    // A name is the clients' choice: it must not look like another line of the log.
    std::replace_if(
        file.text, file.text + file.bytes,
        [](char c) { return (c >= '\0' && c < ' ') || c == '\x7F'; }, '?');
    const Client client(record);
    char address[INET_ADDRSTRLEN] = {};
    (void)inet_ntop(AF_INET, client.address, address, sizeof address);  // there is room
    log_for_certain([&]() noexcept {
        sanos_log("FTX2029I Lease %u released by user %u, process %d: client %s:%u, file %s\n",
                  record.key, peer.uid, peer.pid, address, client.port,
                  file.bytes > 0 ? file.text : "unknown");
    });
}

}  // namespace

// What is written stays inside the room: who appends has looked at it.
class AdminSession::Reply {
public:
    Reply(std::span<std::byte> room, std::uint32_t operation) noexcept : room_(room)
    {
        head_.magic = admin::kMagic;
        head_.version = admin::kVersion;
        head_.operation = operation;
    }

    void refuse(std::uint32_t result) noexcept { head_.result = result; }
    void set(std::uint32_t flag) noexcept { head_.flags |= flag; }
    void append(const void* bytes, std::size_t count) noexcept
    {
        if (count == 0) return;
        std::memcpy(&room_[used_], bytes, count);
        used_ += count;
    }
    template <class Entry>
    void append_entry(const Entry& entry) noexcept
    {
        append(&entry, sizeof entry);
        ++head_.count;
    }
    [[nodiscard]] std::size_t left() const noexcept { return room_.size() - used_; }
    [[nodiscard]] std::size_t finish() const noexcept
    {
        store(room_.data(), head_);
        return used_;
    }

private:
    std::span<std::byte> room_;
    std::size_t used_ = sizeof(admin::ReplyHead);
    admin::ReplyHead head_{};
};

std::size_t AdminSession::answer(std::span<const std::byte> bytes, std::span<std::byte> room,
                                 bool& ends) noexcept
{
    admin::Request request{};
    const bool is_whole = bytes.size() == sizeof request;
    if (is_whole) request = load<admin::Request>(bytes.data());
    Reply reply(room, request.operation);
    ends = true;
    if (!is_whole || request.magic != admin::kMagic) {
        reply.refuse(admin::kMalformed);
        return reply.finish();
    }
    if (request.version != admin::kVersion) {
        reply.refuse(admin::kOtherVersion);
        return reply.finish();
    }
    ends = false;
    switch (request.operation) {
        case admin::kFirstLeases:
            cursor_.start();
            answer_leases(reply);
            break;
        case admin::kNextLeases:
            answer_leases(reply);
            break;
        case admin::kRelease:
            answer_release(request.number, reply);
            break;
        case admin::kBusyFiles:
            answer_busy_files(reply);
            break;
        case admin::kFileName:
            answer_file_name(request.number, reply);
            break;
        default:
            reply.refuse(admin::kMalformed);
            ends = true;
    }
    return reply.finish();
}

bool AdminSession::may_see_names() const noexcept
{
    return peer_.uid == 0 || peer_.uid == geteuid();
}

void AdminSession::answer_leases(Reply& reply) noexcept
{
    if (!may_see_names()) reply.set(admin::kNamesHidden);
    while (reply.left() >= kBatchBytes) {
        std::array<LeaseView, kLeasesPerHold> views;
        const std::size_t count = cursor_.next(views);
        if (count == 0) return;
        for (const LeaseView& view : std::span(views).first(count)) append_lease(view, reply);
    }
    reply.set(admin::kMore);
}

void AdminSession::append_lease(const LeaseView& view, Reply& reply) const noexcept
{
    const LeaseRecord& record = view.record;
    const FsLibrary* const asked = may_see_names() ? record.library : nullptr;
    const Name volume(asked, record.volumeCookie, nullptr);
    const Name file(asked, record.volumeCookie, record.fileCookie);
    const Client client(record);
    admin::LeaseEntry entry{};
    entry.key = record.key;
    entry.intention = record.intention;
    entry.granted_s = view.granted_s;
    entry.renewed_s = view.renewed_s;
    entry.until_s = view.until_s;
    entry.requests = view.requests;
    entry.slot = slot_of(record.library);
    std::memcpy(entry.client_address, client.address, sizeof entry.client_address);
    entry.client_port = client.port;
    entry.volume_name_bytes = static_cast<std::uint16_t>(volume.bytes);
    entry.file_name_bytes = static_cast<std::uint16_t>(file.bytes);
    std::memcpy(entry.volume_cookie, record.volumeCookie, sizeof entry.volume_cookie);
    std::memcpy(entry.file_cookie, record.fileCookie, sizeof entry.file_cookie);
    reply.append_entry(entry);
    reply.append(volume.text, volume.bytes);
    reply.append(file.text, file.bytes);
}

void AdminSession::answer_busy_files(Reply& reply) noexcept
{
    static_assert(sizeof(BusyFile) * BusyFiles::kSets * BusyFiles::kPlaces <= 65536, "stack");
    std::array<BusyFile, BusyFiles::kSets * BusyFiles::kPlaces> files;
    const std::size_t count = busy_files(files);
    for (const BusyFile& file : std::span(files).first(count)) {
        admin::BusyEntry entry{};
        entry.number = file.number;
        entry.requests = file.requests;
        std::memcpy(entry.volume_cookie, file.volume_cookie, sizeof entry.volume_cookie);
        std::memcpy(entry.file_cookie, file.file_cookie, sizeof entry.file_cookie);
        reply.append_entry(entry);
    }
}

void AdminSession::answer_file_name(std::uint32_t number, Reply& reply) noexcept
{
    const auto file = busy_file(number);
    if (!file) return reply.refuse(admin::kUnknownNumber);
    if (!may_see_names()) return reply.set(admin::kNamesHidden);
    const Name name(file->library, file->volume_cookie, file->file_cookie);
    reply.append(name.text, name.bytes);
}

void AdminSession::answer_release(std::uint32_t key, Reply& reply) noexcept
{
    if (!may_release()) return reply.refuse(admin::kNotPermitted);
    const auto released = release_lease(key);
    if (!released) return reply.refuse(admin::kUnknownNumber);
    log_release(*released, peer_);
}

}  // namespace corvane

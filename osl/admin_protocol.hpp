// What an administrator's program and the daemon say to each other: packets on a local socket, a
// reply to each request. Fields are in host order: both sides run on one machine and come from one
// release, which the version holds.
#ifndef CORVANE_OSL_ADMIN_PROTOCOL_HPP
#define CORVANE_OSL_ADMIN_PROTOCOL_HPP

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <type_traits>

#include <sys/socket.h>
#include <sys/un.h>

namespace corvane::admin {

inline constexpr std::uint32_t kMagic = 0x4D444143U;  // "CADM" in memory order
inline constexpr std::uint32_t kVersion = 1;
inline constexpr std::size_t kReplyBytes = 131072;  // the longest reply
inline constexpr std::size_t kNameBytes = 4096;     // the longest name of a file, zero included
inline constexpr std::size_t kCookieBytes = 32;

enum Operation : std::uint32_t {
    kFirstLeases = 1,  // leases from the newest on; the connection remembers how far it came
    kNextLeases = 2,   // those behind the last ones
    kRelease = 3,      // ends the lease `number`; root only
    kBusyFiles = 4,    // the files that are asked for most, in no order
    kFileName = 5,     // the name of the busy file `number`
};

enum Result : std::uint32_t {
    kDone = 0,
    kMalformed = 1,      // no request; the connection ends
    kOtherVersion = 2,   // of another release; the connection ends
    kNotPermitted = 3,   // for root only
    kUnknownNumber = 4,  // no such lease, or no such file any more
};

// Flags of a reply.
inline constexpr std::uint32_t kMore = 1;         // there are more leases
inline constexpr std::uint32_t kNamesHidden = 2;  // names are told to root and the daemon's user

struct Request {
    std::uint32_t magic;
    std::uint32_t version;
    std::uint32_t operation;
    std::uint32_t number;
};
static_assert(sizeof(Request) == 16 && std::has_unique_object_representations_v<Request>);

// Begins every reply; `count` entries follow.
struct ReplyHead {
    std::uint32_t magic;
    std::uint32_t version;
    std::uint32_t operation;
    std::uint32_t result;
    std::uint32_t flags;
    std::uint32_t count;
};
static_assert(sizeof(ReplyHead) == 24 && std::has_unique_object_representations_v<ReplyHead>);

// One lease; the names of its volume and of its file follow, without zeros. The next entry begins
// right behind them, at any address.
struct LeaseEntry {
    std::uint32_t key;
    std::int32_t intention;           // 1 = read, other = write
    std::int64_t granted_s;           // seconds since 1970
    std::int64_t renewed_s;           // the same
    std::int64_t until_s;             // the same
    std::uint32_t requests;           // that named the lease
    std::uint32_t slot;               // of the plug-in
    std::uint8_t client_address[4];   // IPv4
    std::uint16_t client_port;        // host order
    std::uint16_t volume_name_bytes;  // 0: the plug-in cannot tell, or it is hidden
    std::uint16_t file_name_bytes;    // the same
    std::uint16_t reserved;
    std::uint32_t reserved2;
    std::uint8_t volume_cookie[kCookieBytes];
    std::uint8_t file_cookie[kCookieBytes];
};
static_assert(sizeof(LeaseEntry) == 120 && std::has_unique_object_representations_v<LeaseEntry>);

// One file that is asked for often.
struct BusyEntry {
    std::uint32_t number;    // for kFileName; never another file's
    std::uint32_t requests;  // counted since it has this number, modulo 2^32
    std::uint8_t volume_cookie[kCookieBytes];
    std::uint8_t file_cookie[kCookieBytes];
};
static_assert(sizeof(BusyEntry) == 72 && std::has_unique_object_representations_v<BusyEntry>);

// The socket of the daemon on `port`: a name without a file, which goes with its process.
struct Address {
    explicit Address(std::uint32_t port) noexcept
    {
        name.sun_family = AF_UNIX;
        const int length = std::snprintf(name.sun_path + 1, sizeof name.sun_path - 1,
                                         "corvaned.%u.admin", static_cast<unsigned>(port));
        bytes = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 +
                                       static_cast<std::size_t>(length));
    }
    [[nodiscard]] const sockaddr* get() const noexcept
    {
        return reinterpret_cast<const sockaddr*>(&name);
    }
    sockaddr_un name{};
    socklen_t bytes = 0;
};

}  // namespace corvane::admin
#endif

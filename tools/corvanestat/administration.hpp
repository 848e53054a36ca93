// The other end of the daemon's administration socket.
#ifndef CORVANE_TOOLS_CORVANESTAT_ADMINISTRATION_HPP
#define CORVANE_TOOLS_CORVANESTAT_ADMINISTRATION_HPP

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "osl/admin_protocol.hpp"
#include "osl/descriptor.hpp"
#include "tools/corvanestat/statistics.hpp"

namespace corvane::stat {

using Cookie = std::array<std::uint8_t, admin::kCookieBytes>;

// One lease. Times are seconds since 1970; empty names: the plug-in cannot tell, or they are
// hidden.
struct Lease {
    std::uint32_t key = 0;
    bool reads = false;  // else it writes
    std::int64_t granted_s = 0;
    std::int64_t renewed_s = 0;
    std::int64_t until_s = 0;
    std::uint32_t requests = 0;
    std::uint32_t slot = 0;
    std::uint32_t client_address = 0;  // IPv4, host order
    std::uint16_t client_port = 0;
    Cookie volume_cookie{};
    Cookie file_cookie{};
    std::string volume;
    std::string file;
};

// "10.77.0.2".
[[nodiscard]] std::string address_text(const Lease& lease);

// A file that is asked for often; the number is never another file's.
struct BusyFile {
    std::uint32_t number = 0;
    std::uint32_t requests = 0;  // modulo 2^32
    Cookie volume_cookie{};
    Cookie file_cookie{};
};

// A connection to the daemon, as long as this lives. Every call throws Refusal when the daemon
// refuses or does not answer.
class Administration {
public:
    explicit Administration(std::uint32_t port);

    // Calls `take` for each lease, the newest first. Returns true when the daemon hides the names
    // of files from this user.
    bool list(const std::function<void(Lease&&)>& take);
    void release(std::uint32_t key);
    [[nodiscard]] std::vector<BusyFile> busy_files();
    // The file's name; empty when it is not known.
    [[nodiscard]] std::string name_of(const BusyFile& file);

private:
    class Reply;
    [[nodiscard]] Reply ask(admin::Operation operation, std::uint32_t number);
    void check_peer() const;
    [[noreturn]] void give_up() const;

    std::uint32_t port_;
    Descriptor socket_;
    std::vector<std::byte> room_;
};

}  // namespace corvane::stat
#endif

// One administrator's connection: answers its requests, one reply each.
#ifndef CORVANE_FSMDC_ADMIN_SESSION_HPP
#define CORVANE_FSMDC_ADMIN_SESSION_HPP

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <span>

#include "fsmdc/lease_list.hpp"
#include "osl/admin_protocol.hpp"

namespace corvane {

// Who is at the other end, as the kernel says.
struct AdminPeer {
    uid_t uid;
    pid_t pid;
};

class AdminSession {
public:
    explicit AdminSession(AdminPeer peer) noexcept : peer_(peer) {}

    // Answers the bytes of one request in `reply`, which has room for admin::kReplyBytes. Returns
    // the reply's length. `ends` becomes true when nothing sensible can follow.
    [[nodiscard]] std::size_t answer(std::span<const std::byte> request, std::span<std::byte> reply,
                                     bool& ends) noexcept;

private:
    class Reply;

    void answer_leases(Reply& reply) noexcept;
    void answer_busy_files(Reply& reply) noexcept;
    void answer_file_name(std::uint32_t number, Reply& reply) noexcept;
    void answer_release(std::uint32_t key, Reply& reply) noexcept;
    void append_lease(const LeaseView& view, Reply& reply) const noexcept;

    [[nodiscard]] bool may_see_names() const noexcept;
    [[nodiscard]] bool may_release() const noexcept { return peer_.uid == 0; }

    AdminPeer peer_;
    LeaseCursor cursor_;
};

}  // namespace corvane
#endif

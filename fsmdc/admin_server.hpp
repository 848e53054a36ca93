// The administration socket: lets corvanestat list leases and root end one.
#ifndef CORVANE_FSMDC_ADMIN_SERVER_HPP
#define CORVANE_FSMDC_ADMIN_SERVER_HPP

#include <cstdint>

namespace corvane {

// Serves administrators of the daemon on `port`, on a thread of its own, for the life of the
// process. When it cannot, a trace says so and the daemon goes on without. After the port is bound.
void start_administration(std::uint32_t port) noexcept;

}  // namespace corvane
#endif

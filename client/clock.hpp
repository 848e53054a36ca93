// The clock that leases are measured by.
#ifndef CORVANE_CLIENT_CLOCK_HPP
#define CORVANE_CLIENT_CLOCK_HPP

#include <ctime>

#include <chrono>

namespace corvane {

// Goes on while this host sleeps: the controller's clock does, and a host that wakes up must find
// its leases ended, not as fresh as they were when it fell asleep. Never set back or forward by
// anyone.
struct Clock {
    using duration = std::chrono::nanoseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<Clock>;
    static constexpr bool is_steady = true;

    static time_point now() noexcept
    {
        timespec now{};
        (void)clock_gettime(CLOCK_BOOTTIME, &now);  // cannot fail: every kernel we run on has it
        return time_point(std::chrono::seconds(now.tv_sec) + duration(now.tv_nsec));
    }
};

}  // namespace corvane
#endif

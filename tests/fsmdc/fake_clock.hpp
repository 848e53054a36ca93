// The time of day as a test sets it, for the whole program. One source file of a test includes it.
#ifndef CORVANE_TESTS_FSMDC_FAKE_CLOCK_HPP
#define CORVANE_TESTS_FSMDC_FAKE_CLOCK_HPP

#include <sys/time.h>

#include <atomic>
#include <cstdint>

namespace fsmdc_test {

// OSL_GetClock returns it in milliseconds, modulo 2^32.
inline std::atomic<std::int64_t> g_clock_s = 1000;

}  // namespace fsmdc_test

extern "C" int gettimeofday(timeval* now, void*) noexcept
{
    now->tv_sec = fsmdc_test::g_clock_s;
    now->tv_usec = 0;
    return 0;
}
#endif

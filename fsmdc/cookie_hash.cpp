// The secret seed of the hashes.
#include "fsmdc/cookie_hash.hpp"

#include <sys/random.h>

#include "osl/thread.h"

namespace corvane {
namespace {

[[nodiscard]] HashSeed draw_seed() noexcept
{
    HashSeed seed{};
    if (getrandom(&seed, sizeof seed, GRND_NONBLOCK) == static_cast<ssize_t>(sizeof seed))
        return seed;
    // No entropy this early: the clock and our own place in memory are at least not the same
    // everywhere.
    std::uint64_t state =
        OSL_GetClock() ^ static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(&seed));
    for (std::uint64_t& word : seed.words) {
        state += 0x9E3779B97F4A7C15U;
        word = mix(state, 0xBF58476D1CE4E5B9U);
    }
    return seed;
}

}  // namespace

const HashSeed& hash_seed() noexcept
{
    static const HashSeed seed = draw_seed();
    return seed;
}

}  // namespace corvane

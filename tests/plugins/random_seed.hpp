// The seed of a random test: CORVANE_TEST_SEED replays one, otherwise each run takes its own.
#ifndef CORVANE_TESTS_PLUGINS_RANDOM_SEED_HPP
#define CORVANE_TESTS_PLUGINS_RANDOM_SEED_HPP

#include <cstdlib>
#include <random>

namespace corvane::test {

// The same for the whole run.
inline unsigned seed()
{
    const char* const given = std::getenv("CORVANE_TEST_SEED");
    static const unsigned chosen = given != nullptr
                                       ? static_cast<unsigned>(std::strtoul(given, nullptr, 10))
                                       : std::random_device{}();
    return chosen;
}

}  // namespace corvane::test

#endif

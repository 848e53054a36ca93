// The host's log function as a plug-in finds it: keeps the lines for the test to read.
#ifndef CORVANE_TESTS_PLUGINS_HOST_LOG_HPP
#define CORVANE_TESTS_PLUGINS_HOST_LOG_HPP

#include <string>

namespace corvane::test {

// Returns what was logged since the last call.
std::string take_log();

}  // namespace corvane::test

#endif

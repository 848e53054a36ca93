// What ends a command with status 1: one line that says what to do next.
#ifndef CORVANE_TOOLS_CORVANEMSG_FAILURE_HPP
#define CORVANE_TOOLS_CORVANEMSG_FAILURE_HPP

#include <stdexcept>

namespace corvane::msg {

struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace corvane::msg
#endif

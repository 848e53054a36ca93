// The first process of a world: runs programs for the test and answers for what only the inside can
// see.
#ifndef CORVANE_TESTS_HARNESS_KEEPER_HPP
#define CORVANE_TESTS_HARNESS_KEEPER_HPP

#include "tests/harness/namespaces.hpp"

namespace corvane::harness {

// Enters the namespaces, builds the root and serves `control` until it closes; then every process
// of the world ends with this one. Its first packet carries 0 and the root's descriptor, or the
// reason why there is no world. Never returns.
[[noreturn]] void run_keeper(int control, const RootOptions& options);

}  // namespace corvane::harness

#endif

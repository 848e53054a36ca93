// The private machine that a test's daemon runs in: fresh namespaces and a root directory of its
// own.
#ifndef CORVANE_TESTS_HARNESS_NAMESPACES_HPP
#define CORVANE_TESTS_HARNESS_NAMESPACES_HPP

#include <string>
#include <vector>

namespace corvane::harness {

struct RootOptions {
    std::vector<std::string>
        keep_paths;             // stay visible where they are, even below a replaced folder
    bool real_devices = false;  // /dev is the machine's, not a small one of its own
};

// Moves the calling, single-threaded process into fresh mount, IPC, network and (for its children)
// PID namespaces, with a user namespace when it may not otherwise. Throws std::runtime_error saying
// what failed.
void enter_namespaces();

// In the first process of the PID namespace: makes a root of our own, with the machine's folders
// bound into it, an own /tmp, /etc, /dev and /usr/Corvane, and moves into it. Throws like
// enter_namespaces.
void build_root(const RootOptions& options);

// Raises the loopback interface of the network namespace that the caller is in.
void raise_loopback();

}  // namespace corvane::harness

#endif

// Ctrl-C and TERM: the first asks for an orderly end, the second ends at once.
#ifndef CORVANE_CLIENT_INTERRUPT_HPP
#define CORVANE_CLIENT_INTERRUPT_HPP

#include <atomic>

namespace corvane {

// Takes INT, TERM and HUP, and lets a closed pipe be an error instead of a signal.
void install_interrupt_handlers();

// True once one of the signals came.
[[nodiscard]] const std::atomic<bool>& interrupt_flag();

}  // namespace corvane
#endif

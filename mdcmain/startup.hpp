// Start-up steps that only `main` calls.
#ifndef CORVANE_MDCMAIN_STARTUP_HPP
#define CORVANE_MDCMAIN_STARTUP_HPP

namespace corvane {

// Points the three debug slots at the daemon's handlers and gives them their level bands. The
// segment is mapped by now, and no other thread runs.
void install_log_handlers() noexcept;

}  // namespace corvane
#endif

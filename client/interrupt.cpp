// Turns signals into a flag.
#include "client/interrupt.hpp"

#include <array>
#include <csignal>

namespace corvane {
namespace {

std::atomic<bool> g_is_interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler writes it");

// The default action is back in force for the next signal (SA_RESETHAND), for each kind of signal;
// a second one of another kind is caught here.
extern "C" void on_signal(int number)
{
    if (g_is_interrupted.exchange(true)) {
        (void)std::signal(number, SIG_DFL);
        (void)std::raise(number);
    }
}

}  // namespace

void install_interrupt_handlers()
{
    struct sigaction action {};
    action.sa_handler = on_signal;
    action.sa_flags = static_cast<int>(SA_RESETHAND);  // no SA_RESTART: blocked calls must return
    (void)sigemptyset(&action.sa_mask);
    for (const int number : std::array{SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before {};
        (void)sigaction(number, nullptr, &before);
        // What was ignored when we were started (nohup, a background job) stays ignored.
        if (before.sa_handler != SIG_IGN) (void)sigaction(number, &action, nullptr);
    }
    (void)std::signal(SIGPIPE, SIG_IGN);
}

const std::atomic<bool>& interrupt_flag()
{
    return g_is_interrupted;
}

}  // namespace corvane

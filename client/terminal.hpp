// What the terminal can show, and the progress line on it.
#ifndef CORVANE_CLIENT_TERMINAL_HPP
#define CORVANE_CLIENT_TERMINAL_HPP

#include <chrono>
#include <cstdint>
#include <string>

#include "client/bar.hpp"

namespace corvane {

// The style for standard output: its width (COLUMNS, else the terminal's, else 80), UTF-8 when the
// locale says so, colours when it is a terminal that has them and NO_COLOR is unset.
[[nodiscard]] DrawStyle standard_output_style();

// One line such as "45%  123 MiB of 1 GiB  95 MiB/s  0:08 left".
[[nodiscard]] std::string progress_line(std::int64_t done, std::int64_t total, double elapsed_s);

// Rewrites one line on standard error while that is a terminal, a few times a second.
class ProgressLine {
public:
    ProgressLine();
    ~ProgressLine();  // leaves an empty line
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    void show(std::int64_t done, std::int64_t total);

private:
    using Clock = std::chrono::steady_clock;
    bool is_shown_;
    Clock::time_point started_;
    Clock::time_point last_shown_;
};

}  // namespace corvane
#endif

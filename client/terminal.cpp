// Looks at the terminal and writes progress to it.
#include "client/terminal.hpp"

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "client/text.hpp"

namespace corvane {
namespace {

constexpr std::size_t kDefaultColumns = 80;
constexpr std::size_t kFewestColumns = 40;
constexpr std::size_t kMostColumns = 500;

std::size_t columns_of(int descriptor)
{
    const char* const chosen = std::getenv("COLUMNS");
    std::size_t columns = chosen != nullptr ? std::strtoul(chosen, nullptr, 10) : 0;
    winsize size{};
    if (columns == 0 && ioctl(descriptor, TIOCGWINSZ, &size) == 0) columns = size.ws_col;
    if (columns == 0) columns = kDefaultColumns;
    return std::clamp(columns, kFewestColumns, kMostColumns);
}

bool has_colours(int descriptor)
{
    const char* const refused = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return isatty(descriptor) == 1 && (refused == nullptr || *refused == 0) &&
           terminal != nullptr && std::string_view(terminal) != "dumb";
}

std::string duration_text(double seconds)
{
    constexpr double kLongest = 359999;  // 99:59:59
    const auto whole = static_cast<int>(std::clamp(seconds, 0.0, kLongest));
    std::array<char, 32> text{};
    if (whole >= 3600) {
        (void)std::snprintf(text.data(), text.size(), "%d:%02d:%02d", whole / 3600, whole / 60 % 60,
                            whole % 60);
    } else {
        (void)std::snprintf(text.data(), text.size(), "%d:%02d", whole / 60, whole % 60);
    }
    return text.data();
}

}  // namespace

DrawStyle standard_output_style()
{
    DrawStyle style;
    style.width = columns_of(STDOUT_FILENO);
    style.is_utf8 = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
    style.has_colour = has_colours(STDOUT_FILENO);
    return style;
}

std::string progress_line(std::int64_t done, std::int64_t total, double elapsed_s)
{
    const double share = total > 0 ? static_cast<double>(done) / static_cast<double>(total) : 1.0;
    std::array<char, 8> percent{};
    (void)std::snprintf(percent.data(), percent.size(), "%3.0f%%",
                        std::clamp(share, 0.0, 1.0) * 100);
    std::string line =
        std::string(percent.data()) + "  " + size_text(done) + " of " + size_text(total);
    if (elapsed_s <= 0 || done <= 0) return line;
    const double rate = static_cast<double>(done) / elapsed_s;
    line += "  " + size_text(static_cast<std::int64_t>(rate)) + "/s";
    const double left_s = static_cast<double>(total - done) / rate;
    return line + "  " + duration_text(left_s) + " left";
}

ProgressLine::ProgressLine()
    : is_shown_(isatty(STDERR_FILENO) == 1), started_(Clock::now()), last_shown_(started_)
{
}

ProgressLine::~ProgressLine()
{
    if (is_shown_) (void)std::fputs("\r\033[K", stderr);
}

void ProgressLine::show(std::int64_t done, std::int64_t total)
{
    constexpr std::chrono::milliseconds kInterval{200};
    const auto now = Clock::now();
    if (!is_shown_ || (now - last_shown_ < kInterval && done != total)) return;
    last_shown_ = now;
    const std::chrono::duration<double> elapsed = now - started_;
    (void)std::fprintf(stderr, "\r%s\033[K", progress_line(done, total, elapsed.count()).c_str());
}

}  // namespace corvane

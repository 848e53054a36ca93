// Draws with ncurses; readable in 80 columns, and in 24 rows but for the refusals.
#include "tools/corvanestat/watch.hpp"

#include <curses.h>

#include <algorithm>
#include <chrono>
#include <clocale>
#include <string>

#include "tools/corvanestat/busy_view.hpp"
#include "tools/corvanestat/names.hpp"
#include "tools/corvanestat/report.hpp"

namespace corvane::stat {
namespace {

using Clock = std::chrono::steady_clock;

// The terminal belongs to curses for as long as this lives.
class Screen {
public:
    explicit Screen(double interval_s)
    {
        (void)std::setlocale(LC_ALL, "");
        if (initscr() == nullptr)
            throw Refusal("this terminal cannot show a full screen: set TERM");
        cbreak();
        noecho();
        curs_set(0);
        timeout(static_cast<int>(interval_s * 1000));
    }
    ~Screen() { endwin(); }
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;
};

std::string rate_text(double rate)
{
    char text[32];
    if (rate >= 1e6) {
        (void)std::snprintf(text, sizeof text, "%.2f M/s", rate / 1e6);
    } else if (rate >= 1e4) {
        (void)std::snprintf(text, sizeof text, "%.1f k/s", rate / 1e3);
    } else {
        (void)std::snprintf(text, sizeof text, "%.1f /s", rate);
    }
    return text;
}

void draw_requests(const CountersBlock& interval, double seconds, double busiest, int& row)
{
    attron(A_BOLD);
    mvprintw(row++, 0, "%-15s %11s %-20s %9s %9s %9s", "", "rate", "", "50%", "99%", "99.9%");
    attroff(A_BOLD);
    for (unsigned f = 0; f < COUNTERS_FUNCTIONS; ++f) {
        const double rate = static_cast<double>(requests_of(interval, f)) / seconds;
        const auto stars = static_cast<int>(busiest > 0 ? 20 * rate / busiest + 0.5 : 0);
        mvprintw(row++, 0, "%-15s %11s %-20s %9s %9s %9s", std::string(function_name(f)).c_str(),
                 rate_text(rate).c_str(), std::string(static_cast<unsigned>(stars), '#').c_str(),
                 time_text(latency_percentile(interval, f, 0.5)).c_str(),
                 time_text(latency_percentile(interval, f, 0.99)).c_str(),
                 time_text(latency_percentile(interval, f, 0.999)).c_str());
    }
}

constexpr std::size_t kBusyFiles = 5;

void draw_busy_files(const BusyView& busy, double seconds, int& row)
{
    attron(A_BOLD);
    mvprintw(row++, 0, "%-15s %11s", "busiest files", "rate");
    attroff(A_BOLD);
    constexpr std::size_t kNameColumns = 52;
    for (std::size_t i = 0; i < kBusyFiles; ++i, ++row) {
        if (i >= busy.rows().size()) continue;
        const BusyView::Row& file = busy.rows()[i];
        mvprintw(row, 16, "%11s %s", rate_text(file.requests / seconds).c_str(),
                 end_of(file.name, kNameColumns).c_str());
    }
    if (!busy.problem().empty()) mvprintw(row - 1, 0, "%.79s", busy.problem().c_str());
}

// Ten columns at the most.
std::string total_text(std::uint64_t total)
{
    if (total < 100'000'000) return std::to_string(total);
    char text[32];
    (void)std::snprintf(text, sizeof text, "%.3g M", static_cast<double>(total) / 1e6);
    return text;
}

// Two beside each other.
void draw_events(const CountersBlock& now, const CountersBlock& interval, double seconds, int& row)
{
    std::size_t count = 0;
    const EventName* names = event_names(count);
    const std::size_t rows = (count + 1) / 2;
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned event = names[i].event;
        std::string label(names[i].name);
        std::ranges::replace(label, '_', ' ');
        mvprintw(row + static_cast<int>(i % rows), i < rows ? 0 : 41, "%-19s %8s %10s",
                 label.c_str(), total_text(now.events[event]).c_str(),
                 rate_text(static_cast<double>(interval.events[event]) / seconds).c_str());
    }
    row += static_cast<int>(rows);
}

void draw_refusals(const CountersBlock& interval, int& row)
{
    for (unsigned f = 0; f < COUNTERS_FUNCTIONS; ++f) {
        for (unsigned r = 1; r < COUNTERS_RESULTS; ++r) {
            if (interval.requests[f][r] == 0) continue;
            mvprintw(row++, 0, "%-15s %-46s %12llu", std::string(function_name(f)).c_str(),
                     result_text(r).substr(0, 46).c_str(),
                     static_cast<unsigned long long>(interval.requests[f][r]));
        }
    }
}

void draw(const Page& page, const CountersBlock& now, const CountersBlock& interval,
          const BusyView& busy, double seconds)
{
    double busiest = 0;
    for (unsigned f = 0; f < COUNTERS_FUNCTIONS; ++f) {
        busiest = std::max(busiest, static_cast<double>(requests_of(interval, f)) / seconds);
    }
    erase();
    attron(A_REVERSE);
    mvprintw(0, 0, " corvaned %-8d %-8s %10llu leases on %9llu files %13s ", page.pid(),
             page.daemon_runs() ? "running" : "GONE",
             static_cast<unsigned long long>(live_leases(now)),
             static_cast<unsigned long long>(live_files(now)), "q ends");
    attroff(A_REVERSE);
    int row = 2;
    draw_requests(interval, seconds, busiest, row);
    ++row;
    draw_busy_files(busy, seconds, row);
    ++row;
    draw_events(now, interval, seconds, row);
    ++row;
    draw_refusals(interval, row);
    refresh();
}

}  // namespace

void watch(const Page& page, std::uint32_t port, double interval_s)
{
    const Screen screen(interval_s);
    BusyView busy(port);
    busy.read(kBusyFiles);
    CountersBlock before = page.read();
    auto then = Clock::now();
    draw(page, before, difference(before, before), busy, interval_s);
    for (int key = getch(); key != 'q' && key != 'Q'; key = getch()) {
        const CountersBlock now = page.read();
        const auto moment = Clock::now();
        const double seconds = std::chrono::duration<double>(moment - then).count();
        if (key != ERR && seconds < interval_s / 2) continue;  // some other key: not a new interval
        busy.read(kBusyFiles);
        draw(page, now, difference(now, before), busy, seconds);
        before = now;
        then = moment;
    }
}

}  // namespace corvane::stat

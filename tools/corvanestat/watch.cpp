// Draws with ncurses; readable in 80 columns.
#include "tools/corvanestat/watch.hpp"

#include <curses.h>

#include <chrono>
#include <clocale>
#include <string>

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

void draw_events(const CountersBlock& now, const CountersBlock& interval, double seconds, int& row)
{
    std::size_t count = 0;
    const EventName* names = event_names(count);
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned event = names[i].event;
        mvprintw(row++, 0, "%-52s %14llu %11s", std::string(names[i].meaning).c_str(),
                 static_cast<unsigned long long>(now.events[event]),
                 rate_text(static_cast<double>(interval.events[event]) / seconds).c_str());
    }
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

void draw(const Page& page, const CountersBlock& now, const CountersBlock& interval, double seconds)
{
    double busiest = 0;
    for (unsigned f = 0; f < COUNTERS_FUNCTIONS; ++f) {
        busiest = std::max(busiest, static_cast<double>(requests_of(interval, f)) / seconds);
    }
    erase();
    attron(A_REVERSE);
    mvprintw(0, 0, " corvaned %-8d %-8s %12llu leases on %10llu files %14s ", page.pid(),
             page.daemon_runs() ? "running" : "GONE",
             static_cast<unsigned long long>(live_leases(now)),
             static_cast<unsigned long long>(live_files(now)), "q ends");
    attroff(A_REVERSE);
    int row = 2;
    draw_requests(interval, seconds, busiest, row);
    ++row;
    draw_events(now, interval, seconds, row);
    ++row;
    draw_refusals(interval, row);
    refresh();
}

}  // namespace

void watch(const Page& page, double interval_s)
{
    const Screen screen(interval_s);
    CountersBlock before = page.read();
    auto then = Clock::now();
    draw(page, before, difference(before, before), interval_s);
    for (int key = getch(); key != 'q' && key != 'Q'; key = getch()) {
        const CountersBlock now = page.read();
        const auto moment = Clock::now();
        const double seconds = std::chrono::duration<double>(moment - then).count();
        if (key != ERR && seconds < interval_s / 2) continue;  // some other key: not a new interval
        draw(page, now, difference(now, before), seconds);
        before = now;
        then = moment;
    }
}

}  // namespace corvane::stat

// corvanestat: the daemon's counters on the command line.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>

#include "tools/corvanestat/report.hpp"
#include "tools/corvanestat/watch.hpp"

namespace {

using namespace corvane::stat;

struct Arguments {
    std::uint32_t port = 5501;
    bool json = false;
    bool prometheus = false;
    bool watch = false;
    double interval_s = 1;
};

void run(const Arguments& arguments)
{
    const Page page(arguments.port);
    if (arguments.watch) {
        if (isatty(STDOUT_FILENO) == 0)
            throw Refusal("--watch needs a terminal: leave it out here");
        watch(page, arguments.interval_s);
        return;
    }
    const CountersBlock block = page.read();
    if (arguments.json) {
        std::cout << json(page, block);
    } else if (arguments.prometheus) {
        std::cout << prometheus(page, block);
    } else {
        std::cout << table(page, block);
    }
}

int parse_and_run(int argc, char** argv)
{
    CLI::App app{"Shows what a running corvaned has counted."};
    Arguments arguments;
    app.set_version_flag("--version", "corvanestat " CORVANE_VERSION);
    app.add_option("--port", arguments.port, "UDP port of the daemon")->check(CLI::Range(1, 65535));
    auto* as_json = app.add_flag("--json", arguments.json, "print JSON");
    auto* as_metrics = app.add_flag("--prometheus", arguments.prometheus,
                                    "print metrics in the text exposition format");
    auto* as_screen = app.add_flag("--watch", arguments.watch, "show rates on the full screen");
    app.add_option("--interval", arguments.interval_s, "seconds between two pictures of --watch")
        ->check(CLI::Range(0.1, 3600.0));
    as_json->excludes(as_metrics)->excludes(as_screen);
    as_metrics->excludes(as_screen);
    try {
        app.parse(argc, argv);
        run(arguments);
        return 0;
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
        std::cerr << "corvanestat: " << error.what() << "; 'corvanestat --help' shows the usage\n";
        return 2;
    }
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return parse_and_run(argc, argv);
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "corvanestat: %s\n", error.what());
    }
    return 1;
}

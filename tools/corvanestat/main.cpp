// corvanestat: the daemon's counters on the command line.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>

#include "tools/corvanestat/leases.hpp"
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
    LeaseQuery query;
    std::uint32_t key = 0;
};

void show_leases(const Arguments& arguments)
{
    Administration daemon(arguments.port);
    std::cout << lease_report(daemon, arguments.query, arguments.json);
}

void release(const Arguments& arguments)
{
    Administration(arguments.port).release(arguments.key);
}

void show_counters(const Arguments& arguments)
{
    const Page page(arguments.port);
    if (arguments.watch) {
        if (isatty(STDOUT_FILENO) == 0)
            throw Refusal("--watch needs a terminal: leave it out here");
        watch(page, arguments.port, arguments.interval_s);
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

void add_counter_options(CLI::App& app, Arguments& arguments)
{
    app.add_option("--port", arguments.port, "UDP port of the daemon")->check(CLI::Range(1, 65535));
    auto* as_json = app.add_flag("--json", arguments.json, "print JSON");
    auto* as_metrics = app.add_flag("--prometheus", arguments.prometheus,
                                    "print metrics in the text exposition format");
    auto* as_screen = app.add_flag("--watch", arguments.watch,
                                   "show rates and the busiest files on the full screen");
    app.add_option("--interval", arguments.interval_s, "seconds between two pictures of --watch")
        ->check(CLI::Range(0.1, 3600.0));
    as_json->excludes(as_metrics)->excludes(as_screen);
    as_metrics->excludes(as_screen);
}

CLI::App* add_leases(CLI::App& app, LeaseQuery& query)
{
    auto* leases =
        app.add_subcommand("leases", "list who holds which file, since when, until when");
    leases->add_option("--volume", query.volume, "only volumes with this in their name or cookie");
    leases->add_option("--file", query.file, "only files with this in their path or cookie");
    leases->add_option("--client", query.client, "only this client: ADDRESS or ADDRESS:PORT");
    leases->add_option("--mode", query.mode, "only these leases")
        ->check(CLI::IsMember({"read", "write"}));
    leases->add_option("--sort", query.sort, "what to sort by")
        ->check(CLI::IsMember(lease_orders()));
    leases->add_flag("--reverse", query.reverse, "the other way round");
    leases->add_option("--limit", query.limit, "print no more than these, 0: all");
    return leases;
}

// Counters have more forms than the subcommands.
void refuse_forms(const Arguments& arguments, bool allows_json)
{
    const char* const wrong = arguments.prometheus             ? "--prometheus"
                              : arguments.watch                ? "--watch"
                              : arguments.json && !allows_json ? "--json"
                                                               : nullptr;
    if (wrong != nullptr) throw CLI::ExcludesError(wrong, "this subcommand");
}

int parse_and_run(int argc, char** argv)
{
    CLI::App app{"Shows what a running corvaned has counted, and its leases."};
    Arguments arguments;
    app.set_version_flag("--version", "corvanestat " CORVANE_VERSION);
    add_counter_options(app, arguments);
    app.fallthrough();  // --port and --json may stand behind the subcommand too
    app.require_subcommand(0, 1);
    const CLI::App* const leases = add_leases(app, arguments.query);
    auto* const ending = app.add_subcommand("release", "end one lease as its expiry would (root)");
    ending->add_option("KEY", arguments.key, "its key")->required();
    try {
        app.parse(argc, argv);
        const bool subcommand = leases->parsed() || ending->parsed();
        if (subcommand) refuse_forms(arguments, leases->parsed());
        if (leases->parsed()) {
            show_leases(arguments);
        } else if (ending->parsed()) {
            release(arguments);
        } else {
            show_counters(arguments);
        }
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

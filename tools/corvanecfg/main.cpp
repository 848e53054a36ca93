// corvanecfg: the settings of the shared segment on the command line.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>

#include "tools/corvanecfg/attach.hpp"
#include "tools/corvanecfg/commands.hpp"
#include "tools/corvanecfg/settings.hpp"

namespace {

using namespace corvane::cfg;

struct Arguments {
    bool create = false;
    bool json = false;
    bool follow = false;
    bool clear = false;
    std::string name;
    std::string value;
    std::string path;
};

void add_commands(CLI::App& app, Arguments& arguments)
{
    app.set_version_flag("--version", "corvanecfg " CORVANE_VERSION);
    app.add_flag("--create", arguments.create, "create the settings when there are none yet");
    app.add_flag("--json", arguments.json, "print JSON");
    app.fallthrough();  // --json and --create may stand behind the subcommand too
    app.require_subcommand(1);

    app.add_subcommand("show", "list all settings with value, default and meaning")->callback([&] {
        show(attach(arguments.create), arguments.json);
    });

    auto* get_command = app.add_subcommand("get", "print one setting");
    get_command->add_option("NAME", arguments.name, "its name")->required();
    get_command->callback([&] { get(attach(arguments.create), arguments.name, arguments.json); });

    auto* set_command = app.add_subcommand("set", "change one setting");
    set_command->add_option("NAME", arguments.name, "its name")->required();
    set_command->add_option("VALUE", arguments.value, "its new value")->required();
    set_command->callback([&] { set(attach(arguments.create), arguments.name, arguments.value); });

    app.add_subcommand("reset", "give every setting its default and empty the log ring")
        ->callback([&] {
            (void)attach(arguments.create);
            reset();
        });

    auto* log_command =
        app.add_subcommand("log", "print the log ring (logMode 2, logLevel 1 and up)");
    log_command->add_flag("--follow,-f", arguments.follow, "go on printing until interrupted");
    log_command->callback([&] { log_ring(attach(arguments.create), arguments.follow); });

    auto* language = app.add_subcommand("lang", "show the language settings, or force a catalogue");
    auto* path = language->add_option("--path", arguments.path,
                                      "write this catalogue path into /usr/Corvane/lang.txt");
    language->add_flag("--clear", arguments.clear, "remove /usr/Corvane/lang.txt")->excludes(path);
    language->callback([&arguments, path] {
        if (arguments.clear) {
            clear_language();
        } else if (path->count() > 0) {
            force_language(arguments.path);
        } else {
            show_language(attach(arguments.create), arguments.json);
        }
    });
}

int parse_and_run(int argc, char** argv)
{
    CLI::App app{"Shows and changes the settings that corvaned and the other programs share."};
    Arguments arguments;
    add_commands(app, arguments);
    try {
        app.parse(argc, argv);
        return 0;
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
        std::cerr << "corvanecfg: " << error.what() << "; 'corvanecfg --help' shows the usage\n";
        return 2;
    }
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return parse_and_run(argc, argv);
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "corvanecfg: %s\n", error.what());
    }
    return 1;
}

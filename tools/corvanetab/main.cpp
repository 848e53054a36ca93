// corvanetab: builds, shows and checks the table files of the code-set library.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <iostream>

#include "tools/corvanetab/commands.hpp"

namespace {

using namespace corvane::tab;

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

struct Arguments {
    bool json = false;
    bool is_sound = true;
    std::string name;
    std::string output;
    std::vector<std::string> aliases;
};

void add_commands(CLI::App& app, Arguments& arguments)
{
    app.set_version_flag("--version", "corvanetab " CORVANE_VERSION);
    app.add_flag("--json", arguments.json, "print JSON");
    app.fallthrough();  // --json may stand behind the subcommand too
    app.require_subcommand(1);

    auto* build_command = app.add_subcommand("build", "build a table from the C library's mapping");
    build_command->add_option("NAME", arguments.name, "code set, as iconv -l names it")->required();
    build_command->add_option("--output,-o", arguments.output,
                              "the file (default: the name that "
                              "the library looks for)");
    build_command->add_option("--alias", arguments.aliases, "write an alias file beside it");
    build_command->callback(
        [&] { build(arguments.name, arguments.output, arguments.aliases, arguments.json); });

    auto* show_command = app.add_subcommand("show", "print header, family, classes and coverage");
    show_command->add_option("FILE", arguments.name, "a table file")->required();
    show_command->callback([&] { show(arguments.name, arguments.json); });

    auto* check_command = app.add_subcommand("check", "verify every offset of a table file");
    check_command->add_option("FILE", arguments.name, "a table file")->required();
    check_command->callback([&] { arguments.is_sound = check(arguments.name, arguments.json); });
}

[[nodiscard]] int run(int argc, char** argv)
{
    CLI::App app("Builds, shows and checks code-set tables.", "corvanetab");
    Arguments arguments;
    add_commands(app, arguments);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);  // help and version
        std::cerr << "corvanetab: " << error.what() << "; see corvanetab --help\n";
        return kWrongUsage;
    }
    return arguments.is_sound ? kDone : kFailed;
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "corvanetab: %s\n", error.what());
        return kFailed;
    }
}

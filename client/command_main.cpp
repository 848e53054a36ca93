// Parses the command line of `corvane` and turns every outcome into an exit status.
#include <CLI/CLI.hpp>
#include <clocale>
#include <cstdio>
#include <exception>

#include "client/command.hpp"
#include "client/failure.hpp"
#include "client/interrupt.hpp"
#include "client/local_file.hpp"
#include "client/text.hpp"

namespace corvane {
namespace {

using Runner = void (*)(const CommandOptions&);

void report(const std::string& line)
{
    (void)std::fprintf(stderr, "corvane: %s\n", printable(line).c_str());
}

void add_common_options(CLI::App& app, CommandOptions& options)
{
    app.add_option("--host", options.endpoint.host, "Host of the metadata controller")
        ->envname("CORVANE_HOST")
        ->capture_default_str();
    app.add_option("--port", options.endpoint.port, "Its UDP port")
        ->check(CLI::Range(1, 65535))
        ->capture_default_str();
    app.add_option("--timeout", options.endpoint.timeout_s, "Seconds to wait for each reply")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
    app.add_option("--tries", options.endpoint.tries, "Attempts to get a reply")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    app.add_option("--disk", options.disks,
                   "A device or image that may be one of the volume's disks; may be given several "
                   "times (default: this host's block devices)")
        ->type_name("DEV");
    app.add_option("--chunk", options.sg_chunk_blocks,
                   "Blocks of 512 bytes in one command to a SCSI generic node")
        ->check(CLI::Range(1, 65535));
    app.add_flag("--json", options.is_json, "Print results as JSON");
    app.set_version_flag("--version", "corvane " CORVANE_VERSION);
}

CLI::App* add_command(CLI::App& app, const char* name, const char* description)
{
    CLI::App* const command = app.add_subcommand(name, description);
    command->fallthrough();
    return command;
}

void add_share(CLI::App* command, CommandOptions& options)
{
    command->add_option("SHARE", options.share, "Share name, or absolute path on the controller")
        ->required();
}

void add_share_and_path(CLI::App* command, CommandOptions& options)
{
    add_share(command, options);
    command->add_option("PATH", options.path, "File inside the share")->required();
}

void add_commands(CLI::App& app, CommandOptions& options, Runner& runner)
{
    const auto runs = [&runner](CLI::App* command, Runner chosen) {
        command->callback([&runner, chosen] { runner = chosen; });
        return command;
    };
    add_share(runs(add_command(app, "volume", "Show a volume's block size and disks"), run_volume),
              options);
    CLI::App* const map = runs(add_command(app, "map", "Show where a file's bytes lie"), run_map);
    add_share_and_path(map, options);
    map->add_flag("--draw", options.is_drawn, "Draw the map to scale");
    CLI::App* const cat =
        runs(add_command(app, "cat", "Read a file straight from its disks"), run_cat);
    add_share_and_path(cat, options);
    cat->add_option("-o", options.local_file, "Write to this file instead of standard output")
        ->type_name("FILE");
    CLI::App* const put =
        runs(add_command(app, "put", "Replace an existing file's contents on its disks"), run_put);
    add_share_and_path(put, options);
    put->add_option("-i", options.local_file, "Read this file instead of standard input")
        ->type_name("FILE");
    CLI::App* const size = runs(add_command(app, "size", "Change a file's size"), run_size);
    add_share_and_path(size, options);
    size->add_option("BYTES", options.size_bytes, "New size in bytes")
        ->required()
        ->check(CLI::NonNegativeNumber);
    runs(add_command(app, "ping", "Ask whether the controller answers"), run_ping);
    CLI::App* const open = runs(
        add_command(app, "open", "Have the local daemon open a file, and run a command with it"),
        run_open);
    open->add_option("PATH", options.path, "File to open")->required();
    open->add_option(
            "COMMAND", options.program,
            "Command and arguments, after \"--\"; the file is its standard input and output")
        ->required();
}

int run(Runner runner, const CommandOptions& options)
{
    try {
        install_interrupt_handlers();
        runner(options);
        return kExitDone;
    } catch (const OutputClosed&) {
        return kExitFailed;  // whoever read our output has gone and wants no message
    } catch (const std::exception& caught) {
        report(caught.what());
        return kExitFailed;
    }
}

int parse_and_run(int argc, char** argv)
{
    CommandOptions options;
    Runner runner = nullptr;
    CLI::App app("Reads and writes files of a shared volume by asking its metadata controller",
                 "corvane");
    app.require_subcommand(1);
    app.fallthrough();
    add_common_options(app, options);
    add_commands(app, options, runner);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& wanted) {
        return app.exit(wanted);  // --help and --version
    } catch (const CLI::ParseError& error) {
        std::string line = error.what();
        line.erase(std::min(line.find('\n'), line.size()));
        report(line + "; run 'corvane --help' for the usage");
        return kExitUsage;
    }
    return run(runner, options);
}

}  // namespace

void print_out(const std::string& text)
{
    DescriptorSink output(STDOUT_FILENO, "standard output", &interrupt_flag());
    output.write(std::as_bytes(std::span(text)));
}

}  // namespace corvane

int main(int argc, char** argv)
{
    (void)std::setlocale(LC_ALL, "");  // the C locale stays when this one is unknown
    try {
        return corvane::parse_and_run(argc, argv);
    } catch (const std::exception& caught) {
        corvane::report(caught.what());
        return corvane::kExitFailed;
    }
}

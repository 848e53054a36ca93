// corvanemsg: message catalogues on the command line.
#include <CLI/CLI.hpp>
#include <iostream>
#include <map>

#include "nls/catalogue_compiler.h"
#include "nls/compiler_diagnostics.hpp"
#include "tools/corvanemsg/commands.hpp"
#include "tools/corvanemsg/failure.hpp"

namespace {

using namespace corvane::msg;

struct Arguments {
    CompileOptions compile;
    std::vector<std::string> inputs;
    std::string source;
    std::string translation;
    std::string catalogue;
    std::int32_t set = 1;
    std::int32_t message = 0;
    bool json = false;
};

const std::map<std::string, std::int32_t> kLanguages = {
    {"c", MC_LANGUAGE_C}, {"c++", MC_LANGUAGE_CPP}, {"ansi", MC_LANGUAGE_ANSI}};

void add_compile(CLI::App& app, CompileOptions& options)
{
    auto* command = app.add_subcommand("compile", "compile message sources into a catalogue");
    command->add_option("SOURCE", options.sources, "message sources, in order; - is standard input")
        ->required();
    command
        ->add_option("-o,--output", options.output, "the catalogue to write; - is standard output")
        ->required();
    command->add_option("--merge", options.merge, "start from this compiled catalogue");
    auto* header = command->add_option("--header", options.header,
                                       "write constants for named sets and messages");
    command->add_option("--language", options.language, "language of the header: c, c++ or ansi")
        ->transform(CLI::CheckedTransformer(kLanguages, CLI::ignore_case))
        ->needs(header);
    command
        ->add_flag("--combined", options.combined, "constants of messages hold the set number too")
        ->needs(header);
    command->add_flag("--set2", options.set_one_is_two, "read '$set 1' as '$set 2'");
    command->callback([&options] { compile(options); });
}

void add_commands(CLI::App& app, Arguments& arguments, bool& good)
{
    app.set_version_flag("--version", "corvanemsg " CORVANE_VERSION);
    app.require_subcommand(1);
    add_compile(app, arguments.compile);

    auto* dump_command = app.add_subcommand("dump", "print catalogues or sources as one source");
    dump_command
        ->add_option("INPUT", arguments.inputs, "catalogues or sources; - is standard input")
        ->required();
    dump_command->add_flag("--json", arguments.json, "print JSON");
    dump_command->callback([&] { dump(arguments.inputs, arguments.json); });

    auto* skeleton_command =
        app.add_subcommand("skeleton", "print a source for a translator to fill in");
    skeleton_command->add_option("SOURCE", arguments.source, "the texts to translate")->required();
    skeleton_command->add_option("TRANSLATION", arguments.translation,
                                 "what is translated already, as set 2");
    skeleton_command->add_option("--set", arguments.set, "the set to translate")
        ->capture_default_str()
        ->check(CLI::NonNegativeNumber);
    skeleton_command->callback(
        [&] { skeleton(arguments.source, arguments.translation, arguments.set); });

    auto* check_command = app.add_subcommand("check", "compare translations with their source");
    check_command->add_option("SOURCE", arguments.source, "source or catalogue translated from")
        ->required();
    check_command->add_option("TRANSLATION", arguments.inputs, "sources or catalogues")->required();
    check_command->add_flag("--json", arguments.json, "print JSON");
    check_command->callback(
        [&] { good = check(arguments.source, arguments.inputs, arguments.json); });

    auto* get_command = app.add_subcommand("get", "print one text");
    get_command->add_option("SET", arguments.set, "set number")->required();
    get_command->add_option("MESSAGE", arguments.message, "message number")->required();
    get_command->add_option("--catalogue", arguments.catalogue,
                            "a compiled catalogue instead of the language's");
    get_command->add_flag("--json", arguments.json, "print JSON");
    get_command->callback(
        [&] { get(arguments.catalogue, arguments.set, arguments.message, arguments.json); });
}

int run(int argc, char** argv)
{
    CLI::App app{"Compiles, prints and checks message catalogues."};
    Arguments arguments;
    bool good = true;
    add_commands(app, arguments, good);
    try {
        app.parse(argc, argv);
        return good ? 0 : 1;
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
        std::cerr << "corvanemsg: " << error.what() << "; 'corvanemsg --help' shows the usage\n";
        return 2;
    }
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const corvane::CompileFailed&) {
        // its diagnostic is written
    } catch (const std::exception& error) {
        std::cerr << "corvanemsg: " << error.what() << '\n';
    }
    return 1;
}

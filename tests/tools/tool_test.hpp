// The fixture of the commands' tests: a daemon's world, and the commands run in it.
#ifndef CORVANE_TESTS_TOOLS_TOOL_TEST_HPP
#define CORVANE_TESTS_TOOLS_TOOL_TEST_HPP

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/daemon/recorder_world.hpp"

namespace corvane::harness {

class ToolTest : public RecorderWorld {
protected:
    Command tool_command(const std::string& program, const std::vector<std::string>& arguments)
    {
        Command command;
        command.arguments = {CORVANE_BUILD_DIR "/bin/" + program};
        command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
        command.environment = environment_;
        return command;
    }
    Outcome run_tool(const std::string& program, const std::vector<std::string>& arguments)
    {
        return world().run(tool_command(program, arguments));
    }

    // What the command prints; it must succeed without a word on standard error.
    std::string output_of(const std::string& program, const std::vector<std::string>& arguments)
    {
        const Outcome outcome = run_tool(program, arguments);
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        EXPECT_EQ(outcome.errors, "");
        return outcome.output;
    }
    nlohmann::json json_of(const std::string& program, const std::vector<std::string>& arguments)
    {
        const std::string text = output_of(program, arguments);
        const auto parsed = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
        EXPECT_FALSE(parsed.is_discarded()) << text;
        return parsed;
    }

    // One line on standard error, nothing on standard output, and this status.
    static void expect_failure(const Outcome& outcome, int status, const std::string& line)
    {
        EXPECT_EQ(outcome.status, status);
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(outcome.errors, line + "\n");
    }
    static void expect_wrong_usage(const Outcome& outcome)
    {
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1)
            << outcome.errors;
        EXPECT_NE(outcome.errors.find("--help' shows the usage\n"), std::string::npos)
            << outcome.errors;
    }
};

}  // namespace corvane::harness

#endif

// Makes and removes scratch directories, runs commands.
#include "tests/plugins/scratch.hpp"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>

namespace corvane::test {

Scratch::Scratch()
{
    std::string name = std::filesystem::temp_directory_path() / "corvane_plugin_XXXXXX";
    if (mkdtemp(name.data()) == nullptr) std::abort();
    directory_ = name;
}

Scratch::~Scratch()
{
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
}

std::string Scratch::write(const std::string& name, const std::string& content) const
{
    std::ofstream(path(name), std::ios::binary) << content;
    return path(name);
}

CommandResult run_command(const std::string& command)
{
    CommandResult result;
    FILE* const pipe = popen(("PATH=$PATH:/usr/sbin:/sbin; " + command + " 2>&1").c_str(), "re");
    if (pipe == nullptr) return result;
    char buffer[4096];
    for (std::size_t got; (got = fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
        result.output.append(buffer, got);
    }
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

std::string must_run(const std::string& command)
{
    auto result = run_command(command);
    EXPECT_EQ(result.status, 0) << command << "\n" << result.output;
    return std::move(result.output);
}

std::string read_whole_file(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::string pattern(std::size_t bytes, unsigned seed)
{
    std::mt19937 random(seed);
    std::string text(bytes, '\0');
    for (char& c : text) c = static_cast<char>('A' + random() % 26);
    return text;
}

}  // namespace corvane::test

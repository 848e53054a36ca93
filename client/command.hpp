// The `corvane` command: what its subcommands share.
#ifndef CORVANE_CLIENT_COMMAND_HPP
#define CORVANE_CLIENT_COMMAND_HPP

#include <string>
#include <vector>

#include "client/disk_finder.hpp"
#include "client/draw.hpp"
#include "client/exchange.hpp"

namespace corvane {

// The exit statuses of the command.
constexpr int kExitDone = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

struct CommandOptions {
    Endpoint endpoint;
    bool is_json = false;
    std::vector<std::string> disks;
    std::int32_t sg_chunk_blocks = 0;

    std::string share;
    std::string path;
    std::string local_file;  // -o or -i; empty = standard output or input
    std::int64_t size_bytes = 0;
    bool is_drawn = false;
    std::vector<std::string> program;  // of `open`: the command and its arguments
};

// Each runs one subcommand, prints to standard output, and throws Failure.
void run_volume(const CommandOptions& options);
void run_map(const CommandOptions& options);
void run_cat(const CommandOptions& options);
void run_put(const CommandOptions& options);
void run_size(const CommandOptions& options);
void run_ping(const CommandOptions& options);
void run_open(const CommandOptions& options);

// Writes `text` to standard output; throws Failure when that fails.
void print_out(const std::string& text);

}  // namespace corvane
#endif

// What the subcommands of corvanetab do. They throw std::runtime_error with a line for the user.
#ifndef CORVANE_TOOLS_CORVANETAB_COMMANDS_HPP
#define CORVANE_TOOLS_CORVANETAB_COMMANDS_HPP

#include <string>
#include <vector>

namespace corvane::tab {

// Builds the table of the code set that iconv calls `name` into `output` (empty: a file of the name
// that the library looks for), and alias files beside it. Prints what the table cannot do as the
// set does.
void build(const std::string& name, std::string output, const std::vector<std::string>& aliases,
           bool json);

// Prints a table's header, family, class map and coverage.
void show(const std::string& path, bool json);

// Prints what is wrong with a table. Returns false if anything is.
[[nodiscard]] bool check(const std::string& path, bool json);

}  // namespace corvane::tab
#endif

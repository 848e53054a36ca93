// The commands of corvanemsg. They throw Failure, or CompileFailed with its diagnostic written.
#ifndef CORVANE_TOOLS_CORVANEMSG_COMMANDS_HPP
#define CORVANE_TOOLS_CORVANEMSG_COMMANDS_HPP

#include <cstdint>
#include <string>
#include <vector>

namespace corvane::msg {

struct CompileOptions {
    std::vector<std::string> sources;
    std::string output;
    std::string merge;   // a compiled catalogue to start from; empty: none
    std::string header;  // where constants go; empty: nowhere
    std::int32_t language = 0;
    bool combined = false;
    bool set_one_is_two = false;
};
void compile(const CompileOptions& options);

// Prints catalogues or sources, taken together, as one source or as JSON.
void dump(const std::vector<std::string>& inputs, bool json);

// Prints what a translator starts from, as set 2: every message of `set` in `source`, in its
// translation where there is one. Translations are set 2 (or set 1 of a source) in `translation`
// (empty: none), or, when `set` is 1, set 2 of `source` itself.
void skeleton(const std::string& source, const std::string& translation, std::int32_t set);

// Prints what is wrong with each translation of `source`; true when nothing is.
[[nodiscard]] bool check(const std::string& source, const std::vector<std::string>& translations,
                         bool json);

// Prints one text in the terminal's code set, from `catalogue` (empty: that of the language).
void get(const std::string& catalogue, std::int32_t set, std::int32_t message, bool json);

}  // namespace corvane::msg
#endif

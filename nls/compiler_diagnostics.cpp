// Diagnostics of the catalogue compiler, on standard error.
#include "nls/compiler_diagnostics.hpp"

#include <cstdio>

#include "nls/catalogue_compiler.h"

namespace {

// A line with more diagnostics than this is not shown again with the rest of them: a line of many
// megabytes in which every character is wrong must not fill the disk.
constexpr int kTimesShown = 16;

struct {
    long line = -1;
    int times_shown = 0;
} g_last;

void show_line(std::size_t position) noexcept
{
    if (g_last.line != lineno) g_last = {lineno, 0};
    if (++g_last.times_shown > kTimesShown) return;
    std::fprintf(stderr, "%s\n", curline == nullptr ? "" : curline);
    if (position != corvane::kNoPosition) {
        std::fprintf(stderr, "%*s^\n", static_cast<int>(position), "");
    }
}

}  // namespace

namespace corvane {

void compile_warning(const char* text, std::size_t position) noexcept
{
    std::fprintf(stderr, "gencat: %s on line %ld\n", text, lineno);
    show_line(position);
}

void compile_error(const char* text, std::size_t position)
{
    compile_warning(text, position);
    throw CompileFailed{};
}

}  // namespace corvane

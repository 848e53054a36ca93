// Diagnostics of the catalogue compiler, on standard error.
#include "nls/compiler_diagnostics.hpp"

#include <cstdio>
#include <cstring>

#include "nls/catalogue_compiler.h"

namespace {

// A long line is not shown again and again: one of many megabytes in which every character is wrong
// must not fill the disk.
constexpr std::size_t kLongLineBytes = 128;
constexpr int kTimesShown = 16;

int g_times_shown = 0;

void show_line(std::size_t position) noexcept
{
    const char* const line = curline == nullptr ? "" : curline;
    if (strnlen(line, kLongLineBytes) == kLongLineBytes && ++g_times_shown > kTimesShown) return;
    std::fprintf(stderr, "%s\n", line);
    if (position != corvane::kNoPosition) {
        std::fprintf(stderr, "%*s^\n", static_cast<int>(position), "");
    }
}

}  // namespace

namespace corvane {

void begin_line() noexcept
{
    g_times_shown = 0;
}

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

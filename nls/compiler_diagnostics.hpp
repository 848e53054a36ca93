// Diagnostics of the catalogue compiler: a warning goes on, an error ends the run.
#ifndef CORVANE_NLS_COMPILER_DIAGNOSTICS_HPP
#define CORVANE_NLS_COMPILER_DIAGNOSTICS_HPP

#include <cstddef>
#include <cstdlib>
#include <new>

namespace corvane {

inline constexpr std::size_t kNoPosition = static_cast<std::size_t>(-1);

// Thrown once an error's diagnostic is written; the C border ends the process.
struct CompileFailed {};

// Writes the text with the line's number, the line, and a mark under `position` (bytes into the
// line).
void compile_warning(const char* text, std::size_t position = kNoPosition) noexcept;
[[noreturn]] void compile_error(const char* text, std::size_t position = kNoPosition);

// Says that `curline` holds another line.
void begin_line() noexcept;

// Runs `body` for a C caller: an error, its diagnostic written, ends the process with status 1.
template <class Body>
void compile_or_exit(Body body) noexcept
{
    try {
        try {
            body();
        } catch (const std::bad_alloc&) {
            compile_error("out of memory");
        }
    } catch (const CompileFailed&) {
        std::exit(1);
    }
}

}  // namespace corvane
#endif

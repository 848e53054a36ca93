// The catalogue compiler for callers that catch its errors: each operation throws CompileFailed,
// its diagnostic written, or std::bad_alloc.
#ifndef CORVANE_NLS_COMPILER_CORE_HPP
#define CORVANE_NLS_COMPILER_CORE_HPP

#include <cstdint>
#include <cstdio>

namespace corvane {

// Reads the whole source behind `fd` into the catalogue in memory.
void parse_source(int fd);

// Adds a compiled catalogue to the one in memory.
void read_compiled(int fd);

// Writes the catalogue in memory as a compiled file.
void write_compiled(int fd);

// Writes the header of constants and consumes the names.
void write_constants(int fd, std::int32_t type, bool combined);

// Writes the translation skeleton of set 1.
void write_skeleton(std::FILE* out);

}  // namespace corvane
#endif

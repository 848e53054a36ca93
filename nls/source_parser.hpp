// The parser of message sources for callers that catch its errors.
#ifndef CORVANE_NLS_SOURCE_PARSER_HPP
#define CORVANE_NLS_SOURCE_PARSER_HPP

namespace corvane {

// Reads the whole source behind `fd` into the catalogue in memory. Throws CompileFailed, its
// diagnostic written, or std::bad_alloc.
void parse_source(int fd);

// Adds a compiled catalogue to the one in memory; errors likewise.
void read_compiled(int fd);

}  // namespace corvane
#endif

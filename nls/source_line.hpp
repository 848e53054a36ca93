// The source of the catalogue compiler as lines, of any length, through one growing buffer.
#ifndef CORVANE_NLS_SOURCE_LINE_HPP
#define CORVANE_NLS_SOURCE_LINE_HPP

#include <array>
#include <cstddef>

namespace corvane {

// Reads a descriptor line by line into `curline` and counts in `lineno`.
class LineReader {
public:
    explicit LineReader(int fd) : fd_(fd) {}

    // Takes the next line, without its line feed, into `curline`. False at the end of the source;
    // the last line needs no line feed.
    [[nodiscard]] bool next();

private:
    [[nodiscard]] bool fill();
    void append(const char* bytes, std::size_t count);

    int fd_;
    std::array<char, 4096> buffer_{};
    std::size_t begin_ = 0;  // unread part of the buffer
    std::size_t end_ = 0;
    std::size_t length_ = 0;  // of the line so far
};

}  // namespace corvane
#endif

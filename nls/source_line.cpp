// The source of the catalogue compiler as lines.
#include "nls/source_line.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "nls/catalogue_compiler.h"
#include "nls/compiler_diagnostics.hpp"

char* curline = nullptr;
long lineno = 0;

namespace {

constexpr std::size_t kFirstLineBytes = 256;

// Room of `curline`; 0 exactly while it is null.
std::size_t g_line_room = 0;

}  // namespace

namespace corvane {

bool LineReader::next()
{
    length_ = 0;
    bool any = false;
    while (begin_ < end_ || fill()) {
        any = true;
        const char* const from = buffer_.data() + begin_;
        const auto* const feed = static_cast<const char*>(std::memchr(from, '\n', end_ - begin_));
        const std::size_t count =
            feed == nullptr ? end_ - begin_ : static_cast<std::size_t>(feed - from);
        append(from, count);
        begin_ += count + (feed == nullptr ? 0 : 1);
        if (feed != nullptr) break;
    }
    if (any) {
        ++lineno;
        begin_line();
    }
    return any;
}

bool LineReader::fill()
{
    ssize_t got = 0;
    do {
        got = read(fd_, buffer_.data(), buffer_.size());
    } while (got < 0 && errno == EINTR);
    if (got < 0) compile_error("unable to read the source");
    begin_ = 0;
    end_ = static_cast<std::size_t>(got);
    return got > 0;
}

void LineReader::append(const char* bytes, std::size_t count)
{
    if (curline == nullptr) g_line_room = 0;
    std::size_t room = g_line_room == 0 ? kFirstLineBytes : g_line_room;
    while (room < length_ + count + 1) room *= 2;
    if (room != g_line_room) {
        auto* const grown = static_cast<char*>(std::realloc(curline, room));
        if (grown == nullptr) compile_error("unable to allocate storage");
        curline = grown;
        g_line_room = room;
    }
    std::memcpy(curline + length_, bytes, count);
    length_ += count;
    curline[length_] = '\0';
}

}  // namespace corvane

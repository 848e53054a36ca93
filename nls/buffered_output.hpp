// Buffered writing to a descriptor for the catalogue compiler; what cannot be written is an error.
#ifndef CORVANE_NLS_BUFFERED_OUTPUT_HPP
#define CORVANE_NLS_BUFFERED_OUTPUT_HPP

#include <unistd.h>

#include <cerrno>
#include <string>
#include <string_view>

#include "nls/compiler_diagnostics.hpp"

namespace corvane {

class BufferedOutput {
public:
    explicit BufferedOutput(int fd) : fd_(fd) {}

    void write(const void* bytes, std::size_t size)
    {
        buffer_.append(static_cast<const char*>(bytes), size);
        if (buffer_.size() >= kFlushBytes) flush();
    }
    void write(std::string_view text) { write(text.data(), text.size()); }

    // Writes what is buffered; without a call at the end it is lost.
    void flush()
    {
        std::string_view rest = buffer_;
        while (!rest.empty()) {
            const ssize_t written = ::write(fd_, rest.data(), rest.size());
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) compile_error("unable to write the output");
            rest.remove_prefix(static_cast<std::size_t>(written));
        }
        buffer_.clear();
    }

private:
    static constexpr std::size_t kFlushBytes = 65536;

    int fd_;
    std::string buffer_;
};

}  // namespace corvane
#endif

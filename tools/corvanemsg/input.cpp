// Inputs of the commands.
#include "tools/corvanemsg/input.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "nls/catalogue_format.h"
#include "nls/compiler_core.hpp"
#include "tools/corvanemsg/failure.hpp"

namespace corvane::msg {

namespace {

[[noreturn]] void fail(const std::string& path, const char* what)
{
    throw Failure(path + ": cannot be " + what + ": " + std::strerror(errno));
}

void write_all(int fd, const char* bytes, std::size_t size)
{
    while (size > 0) {
        const ssize_t written = write(fd, bytes, size);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) fail("standard input", "copied");
        bytes += written;
        size -= static_cast<std::size_t>(written);
    }
}

int copy_of_standard_input()
{
    const int copy = memfd_create("standard input", MFD_CLOEXEC);
    if (copy < 0) fail("standard input", "copied");
    std::array<char, 65536> buffer;
    for (;;) {
        const ssize_t got = read(STDIN_FILENO, buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) fail("standard input", "read");
        if (got == 0) break;
        write_all(copy, buffer.data(), static_cast<std::size_t>(got));
    }
    (void)lseek(copy, 0, SEEK_SET);
    return copy;
}

}  // namespace

Input::Input(const std::string& path)
    : fd_(path == "-" ? copy_of_standard_input() : open(path.c_str(), O_RDONLY | O_CLOEXEC))
{
    if (fd_ < 0) fail(path, "opened");
    std::array<char, MC_MAGIC_BYTES> magic{};
    const ssize_t got = pread(fd_, magic.data(), magic.size(), 0);
    compiled_ = got == MC_MAGIC_BYTES && std::memcmp(magic.data(), MC_MAGIC, MC_MAGIC_BYTES) == 0;
}

Input::~Input()
{
    close(fd_);
}

void load_source(const std::string& path)
{
    const Input input(path);
    if (input.is_compiled()) {
        throw Failure(path + ": is a compiled catalogue, not a source; merge it with --merge");
    }
    parse_source(input.fd());
}

void load_compiled(const std::string& path)
{
    const Input input(path);
    if (!input.is_compiled()) throw Failure(path + ": is not a compiled catalogue");
    read_compiled(input.fd());
}

void load_any(const std::string& path)
{
    const Input input(path);
    if (input.is_compiled()) {
        read_compiled(input.fd());
    } else {
        parse_source(input.fd());
    }
}

}  // namespace corvane::msg

// A result file that appears whole or not at all.
#include "tools/corvanemsg/output.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/corvanemsg/failure.hpp"

namespace corvane::msg {

namespace {

// True for a name that nothing, or a plain file, stands at: pipes and devices are written in place.
bool is_replaceable(const std::string& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode);
}

[[noreturn]] void fail(const std::string& path)
{
    throw Failure(path + ": cannot be written: " + std::strerror(errno));
}

// The mode that a file made by open would get.
mode_t new_file_mode()
{
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

}  // namespace

Output::Output(std::string path) : path_(std::move(path))
{
    if (path_ == "-") {
        fd_ = STDOUT_FILENO;
        return;
    }
    if (!is_replaceable(path_)) {
        fd_ = open(path_.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
        if (fd_ < 0) fail(path_);
        return;
    }
    temporary_ = path_ + ".XXXXXX";
    fd_ = mkostemp(temporary_.data(), O_CLOEXEC);
    if (fd_ < 0) {
        temporary_.clear();
        fail(path_);
    }
    (void)fchmod(fd_, new_file_mode());
}

Output::~Output()
{
    if (!temporary_.empty()) unlink(temporary_.c_str());
    if (fd_ > STDOUT_FILENO) close(fd_);
}

void Output::commit()
{
    if (fd_ > STDOUT_FILENO) {
        const int written = close(fd_);
        fd_ = -1;
        if (written != 0) fail(path_);
    }
    if (temporary_.empty()) return;
    if (std::rename(temporary_.c_str(), path_.c_str()) != 0) fail(path_);
    temporary_.clear();
}

}  // namespace corvane::msg

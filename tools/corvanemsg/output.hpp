// A result file that appears whole or not at all.
#ifndef CORVANE_TOOLS_CORVANEMSG_OUTPUT_HPP
#define CORVANE_TOOLS_CORVANEMSG_OUTPUT_HPP

#include <string>

namespace corvane::msg {

// Written beside its place and moved there when it is complete: a program that has the old file
// open goes on reading the old one. "-" is standard output.
class Output {
public:
    explicit Output(std::string path);
    ~Output();  // removes what was not committed
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    [[nodiscard]] int fd() const noexcept { return fd_; }
    void commit();

private:
    std::string path_;
    std::string temporary_;  // empty: nothing to move or remove
    int fd_ = -1;
};

}  // namespace corvane::msg
#endif

// Inputs of the commands: sources and compiled catalogues, by path or on standard input.
#ifndef CORVANE_TOOLS_CORVANEMSG_INPUT_HPP
#define CORVANE_TOOLS_CORVANEMSG_INPUT_HPP

#include <string>

namespace corvane::msg {

// An open input; "-" is standard input, copied first so that it can be read at any offset.
class Input {
public:
    explicit Input(const std::string& path);
    ~Input();
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    [[nodiscard]] int fd() const noexcept { return fd_; }
    [[nodiscard]] bool is_compiled() const noexcept { return compiled_; }

private:
    int fd_ = -1;
    bool compiled_ = false;
};

// Add to the catalogue in memory: a source, a compiled catalogue, or whichever of both it is.
void load_source(const std::string& path);
void load_compiled(const std::string& path);
void load_any(const std::string& path);

}  // namespace corvane::msg
#endif

// Closes a file descriptor on every path.
#ifndef CORVANE_CLIENT_DESCRIPTOR_OWNER_HPP
#define CORVANE_CLIENT_DESCRIPTOR_OWNER_HPP

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace corvane {

class Descriptor {
public:
    explicit Descriptor(int number = -1) noexcept : number_(number) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        if (this != &other) {
            reset();
            number_ = std::exchange(other.number_, -1);
        }
        return *this;
    }

    [[nodiscard]] int get() const noexcept { return number_; }
    [[nodiscard]] bool is_open() const noexcept { return number_ >= 0; }
    [[nodiscard]] int release() noexcept { return std::exchange(number_, -1); }

private:
    void reset() noexcept
    {
        if (number_ < 0) return;
        const int saved = errno;  // what brought us here is what the caller wants to know
        (void)::close(number_);   // nothing can be done about a failing close
        errno = saved;
        number_ = -1;
    }

    int number_;
};

}  // namespace corvane
#endif

// Owns an open file descriptor.
#ifndef CORVANE_PLUGINS_MOUNTED_DESCRIPTOR_HPP
#define CORVANE_PLUGINS_MOUNTED_DESCRIPTOR_HPP

#include <unistd.h>

#include <utility>

namespace corvane::mounted {

class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        if (this != &other) reset(std::exchange(other.descriptor_, -1));
        return *this;
    }

    [[nodiscard]] int get() const noexcept { return descriptor_; }
    [[nodiscard]] bool is_open() const noexcept { return descriptor_ >= 0; }
    void reset(int descriptor = -1) noexcept
    {
        if (descriptor_ >= 0) ::close(descriptor_);
        descriptor_ = descriptor;
    }

private:
    int descriptor_ = -1;
};

}  // namespace corvane::mounted

#endif

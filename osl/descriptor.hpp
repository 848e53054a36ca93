// Owns a file descriptor.
#ifndef CORVANE_OSL_DESCRIPTOR_HPP
#define CORVANE_OSL_DESCRIPTOR_HPP

#include <unistd.h>

namespace corvane {

class [[nodiscard]] Descriptor {
public:
    // Takes what open and its like return: a negative value is none.
    explicit Descriptor(int descriptor) noexcept : descriptor_(descriptor) {}
    ~Descriptor()
    {
        if (is_open()) (void)close(descriptor_);  // what was written is not waited for
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    [[nodiscard]] bool is_open() const noexcept { return descriptor_ >= 0; }
    [[nodiscard]] int get() const noexcept { return descriptor_; }

private:
    int descriptor_;
};

}  // namespace corvane
#endif

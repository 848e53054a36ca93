// Reads and writes of values at any address, and ownership of blocks of the OS layer.
#ifndef CORVANE_OSL_BYTES_HPP
#define CORVANE_OSL_BYTES_HPP

#include <cstring>
#include <memory>
#include <type_traits>

#include "osl/memory.h"

namespace corvane {

// Reads a T that may lie at any address. The copy costs nothing: one load after inlining.
template <class T>
[[nodiscard]] T load(const void* at) noexcept
{
    static_assert(std::is_trivially_copyable_v<T>);
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

// Writes a T to any address.
template <class T>
void store(void* at, const T& value) noexcept
{
    static_assert(std::is_trivially_copyable_v<T>);
    std::memcpy(at, &value, sizeof value);
}

// Frees with OSL_Free, so it owns plain data only: no destructor ever runs.
struct OslFree {
    void operator()(void* block) const noexcept { OSL_Free(block); }
};
template <class T>
using osl_ptr = std::unique_ptr<T, OslFree>;

// A tag of four characters as the allocation calls take it: their bytes in memory order.
[[nodiscard]] inline std::uint32_t allocation_tag(const char (&name)[5]) noexcept
{
    return load<std::uint32_t>(name);
}

}  // namespace corvane
#endif

// Words that several threads or processes change: read and written once, relaxed.
#ifndef CORVANE_OSL_SHARED_WORD_HPP
#define CORVANE_OSL_SHARED_WORD_HPP

#include <atomic>
#include <type_traits>

namespace corvane {

// A plain load to the processor, an atomic one to the race detector.
template <class T>
[[nodiscard]] T load_shared(const T& word) noexcept
{
    // atomic_ref has no const form before C++26; a relaxed load writes nothing.
    return std::atomic_ref<T>(const_cast<T&>(word)).load(std::memory_order_relaxed);
}

template <class T>
void store_shared(T& word, std::type_identity_t<T> value) noexcept
{
    std::atomic_ref<T>(word).store(value, std::memory_order_relaxed);
}

}  // namespace corvane
#endif

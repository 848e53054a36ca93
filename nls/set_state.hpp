// What a set record carries in memory besides its file form: addresses over its slots, and a loaded
// state that threads publish through its `invalid` word.
#ifndef CORVANE_NLS_SET_STATE_HPP
#define CORVANE_NLS_SET_STATE_HPP

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>

#include "nls/catalogue_runtime.h"

namespace corvane {

struct NlsFree {
    void operator()(void* block) const noexcept { nls_free(block); }
};
template <class T>
using nls_ptr = std::unique_ptr<T, NlsFree>;

inline constexpr std::uint32_t kSetLoaded = 0;
inline constexpr std::uint32_t kSetNotLoaded = static_cast<std::uint32_t>(-1);

static_assert(sizeof(void*) == sizeof(MCSlotT), "an address fills a slot");

// Slots of the 36-byte set records lie at any multiple of four: addresses are copied in and out.
template <class T>
[[nodiscard]] T* slot_address(const MCSlotT& slot) noexcept
{
    T* address = nullptr;
    std::memcpy(&address, &slot, sizeof slot);
    return address;
}
inline void set_slot_address(MCSlotT& slot, const void* address) noexcept
{
    std::memcpy(&slot, &address, sizeof slot);
}

// Whoever sees a set as loaded sees all of its messages.
[[nodiscard]] inline bool is_loaded(MCSetT& set) noexcept
{
    return std::atomic_ref(set.invalid).load(std::memory_order_acquire) == kSetLoaded;
}
inline void publish_loaded(MCSetT& set) noexcept
{
    std::atomic_ref(set.invalid).store(kSetLoaded, std::memory_order_release);
}

}  // namespace corvane
#endif

// Which plug-in owns which volume, by the volume's cookie.
#include <cstring>
#include <type_traits>

#include "fsmdc/chain_table.hpp"
#include "fsmdc/cookie_hash.hpp"
#include "fsmdc/dispatch.hpp"
#include "fsmdc/fs_result.h"
#include "fsmdc/service.h"
#include "osl/bytes.hpp"
#include "osl/lock_guard.hpp"
#include "osl/memory.h"

VolumeDispatcher dispatchListHeadGlb = {};
QuickLock dispatchListLock = {};

namespace corvane {
namespace {

struct Dispatcher {
    VolumeDispatcher node;  // first: its address is the dispatcher's
    Dispatcher* next_by_cookie;
};
static_assert(std::is_standard_layout_v<Dispatcher>);

struct CookieLinks {
    static constexpr std::size_t kLoad = 1;
    static Dispatcher*& next(Dispatcher& dispatcher) noexcept { return dispatcher.next_by_cookie; }
    static std::uint64_t hash(const Dispatcher& dispatcher) noexcept
    {
        return hash_cookie(dispatcher.node.volumeCookie);
    }
};

constinit ChainTable<Dispatcher, CookieLinks> g_dispatchers;  // guarded by dispatchListLock

// The list can be used before the service starts.
[[maybe_unused]] const bool g_ready = (reset_dispatchers(), true);

[[nodiscard]] Dispatcher* find(const void* volume_cookie) noexcept
{
    return g_dispatchers.find(hash_cookie(volume_cookie), [&](const Dispatcher& dispatcher) {
        return std::memcmp(dispatcher.node.volumeCookie, volume_cookie, FS_COOKIE_BYTES) == 0;
    });
}

void add(const void* volume_cookie, FsLibrary* library) noexcept
{
    auto* const fresh =
        static_cast<Dispatcher*>(OSL_Calloc(sizeof(Dispatcher), allocation_tag("disp")));
    if (fresh == nullptr) return;
    VolumeDispatcher& head = dispatchListHeadGlb;
    VolumeDispatcher& node = fresh->node;
    OSL_MemCopy(node.volumeCookie, volume_cookie, sizeof node.volumeCookie);
    node.library = library;
    node.next = head.next;
    node.prev = &head;
    head.next->prev = &node;
    head.next = &node;
    g_dispatchers.insert(*fresh, CookieLinks::hash(*fresh));
}

}  // namespace

void reset_dispatchers() noexcept
{
    VolumeDispatcher& head = dispatchListHeadGlb;
    while (head.next != nullptr && head.next != &head) {
        VolumeDispatcher* const node = head.next;
        head.next = node->next;
        OSL_Free(node);
    }
    head.next = head.prev = &head;
    g_dispatchers.clear();
    (void)OSL_QuickLockCreate(&dispatchListLock, "dispatchListLock",
                              0xbcde);  // cannot fail for value 1
}

}  // namespace corvane

extern "C" {

std::uint32_t AddVolumeDispatcherToList(const void* volume_cookie, FsLibrary* library) noexcept
{
    const corvane::LockGuard guard(dispatchListLock);
    if (auto* const known = corvane::find(volume_cookie)) {
        known->node.library = library;
    } else {
        corvane::add(volume_cookie, library);
    }
    return FS_E_SUCCESS;
}

FsLibrary* GetLibrary(const void* volume_cookie) noexcept
{
    if (volume_cookie == nullptr) return nullptr;
    const corvane::LockGuard guard(dispatchListLock);
    const auto* const known = corvane::find(volume_cookie);
    return known == nullptr ? nullptr : known->node.library;
}

void FSMDCSP_AddVolumeSubCookie(const void* volume_cookie) noexcept
{
    if (volume_cookie != nullptr)
        (void)AddVolumeDispatcherToList(volume_cookie, libs[0]);  // always 0
}

std::int32_t CompareFileCookies(const void* a, const void* b) noexcept
{
    return std::memcmp(a, b, FS_COOKIE_BYTES) == 0 ? 0 : 1;
}

std::int32_t CompareVolCookies(const void* a, const void* b) noexcept
{
    return std::memcmp(a, b, FS_COOKIE_BYTES) == 0 ? 0 : 1;
}

}  // extern "C"

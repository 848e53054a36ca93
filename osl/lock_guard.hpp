// Scoped quick locks, and the annotations by which clang proves the locking.
#ifndef CORVANE_OSL_LOCK_GUARD_HPP
#define CORVANE_OSL_LOCK_GUARD_HPP

#include <cerrno>

#include "osl/quick_lock.h"

#if defined(__clang__)
#define CORVANE_ANNOTATE(x) __attribute__((x))
#else
#define CORVANE_ANNOTATE(x)
#endif
#define SCOPED_LOCK CORVANE_ANNOTATE(scoped_lockable)
#define CAPABILITY(name) CORVANE_ANNOTATE(capability(name))
#define ACQUIRES(lock) CORVANE_ANNOTATE(acquire_capability(lock))
#define RELEASES(...) CORVANE_ANNOTATE(release_capability(__VA_ARGS__))
#define REQUIRES_LOCK(lock) CORVANE_ANNOTATE(requires_capability(lock))
#define GUARDED_BY(lock) CORVANE_ANNOTATE(guarded_by(lock))

namespace corvane {

// Holds a quick lock for one scope. An interrupted wait acquired nothing, so it waits again.
class [[nodiscard]] LockGuard {
public:
    explicit LockGuard(QuickLock& lock) noexcept : lock_(lock)
    {
        while (OSL_QuickLockGrab(&lock_, /*wait=*/1) != 0 && errno == EINTR) continue;
    }
    ~LockGuard() { (void)OSL_QuickLockRelease(&lock_); }  // a held lock can always be given back
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    QuickLock& lock_;
};

}  // namespace corvane
#endif

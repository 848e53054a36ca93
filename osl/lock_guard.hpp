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
#define ACQUIRES(lock) CORVANE_ANNOTATE(acquire_capability(lock))
#define RELEASES(...) CORVANE_ANNOTATE(release_capability(__VA_ARGS__))
#define REQUIRES_LOCK(lock) CORVANE_ANNOTATE(requires_capability(lock))
#define GUARDED_BY(lock) CORVANE_ANNOTATE(guarded_by(lock))
#define TRUSTED_LOCKING CORVANE_ANNOTATE(no_thread_safety_analysis)  // where the C calls are made

namespace corvane {

// Holds a quick lock for one scope. An interrupted wait acquired nothing, so it waits again.
class [[nodiscard]] SCOPED_LOCK LockGuard {
public:
    explicit LockGuard(QuickLock& lock) noexcept ACQUIRES(lock) TRUSTED_LOCKING : lock_(lock)
    {
        while (OSL_QuickLockGrab(&lock_, /*wait=*/1) != 0 && errno == EINTR) continue;
    }
    // A held lock can always be given back.
    ~LockGuard() RELEASES() TRUSTED_LOCKING { (void)OSL_QuickLockRelease(&lock_); }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    QuickLock& lock_;
};

}  // namespace corvane
#endif

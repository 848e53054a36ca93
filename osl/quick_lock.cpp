// Quick locks over POSIX semaphores.
#include "osl/quick_lock.h"

#include <cstddef>

static_assert(offsetof(QuickLock, semaphore) == 48, "the first 48 bytes are the caller's");

int OSL_QuickLockCreate(QuickLock* lock, const char* /*name*/, uint32_t /*tag*/) noexcept
{
    return sem_init(&lock->semaphore, /*pshared=*/0, /*value=*/1);
}

int OSL_QuickLockDispose(QuickLock* lock) noexcept
{
    return sem_destroy(&lock->semaphore);
}

uint8_t OSL_QuickLockGrab(QuickLock* lock, uint8_t /*wait*/) noexcept
{
    return static_cast<uint8_t>(sem_wait(&lock->semaphore));
}

int OSL_QuickLockRelease(QuickLock* lock) noexcept
{
    return sem_post(&lock->semaphore);
}

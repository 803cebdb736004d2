#include "platform/linux/win_kernel.h"

// The records that hold these locks are zeroed, not initialised: glibc's and musl's unlocked lock is all zero.
// The calls fail only if a lock is misused, which Windows doesn't report either.

void WINAPI AcquireSRWLockExclusive(PSRWLOCK lock)
{
    pthread_rwlock_wrlock(&lock->lock);
}

void WINAPI ReleaseSRWLockExclusive(PSRWLOCK lock)
{
    pthread_rwlock_unlock(&lock->lock);
}

#include "platform/linux/win_kernel.h"

// The records that hold these locks are zeroed, not initialised: glibc's and musl's unlocked lock is all zero.
// Its calls fail only for a lock that is misused, which has no answer here as it has none on Windows.

void WINAPI AcquireSRWLockExclusive(PSRWLOCK lock)
{
    pthread_rwlock_wrlock(&lock->lock);
}

void WINAPI ReleaseSRWLockExclusive(PSRWLOCK lock)
{
    pthread_rwlock_unlock(&lock->lock);
}

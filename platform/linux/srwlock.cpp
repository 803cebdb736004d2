#include <string.h>

#include "platform/linux/win_kernel.h"

// The records that hold these locks are zeroed, not initialised: glibc's and musl's unlocked lock is all zero.
// Its calls fail only for a lock that is misused, which has no answer here as it has none on Windows.

void WINAPI InitializeSRWLock(PSRWLOCK lock)
{
    memset(lock, 0, sizeof *lock);
}

void WINAPI AcquireSRWLockExclusive(PSRWLOCK lock)
{
    pthread_rwlock_wrlock(&lock->lock);
}

void WINAPI ReleaseSRWLockExclusive(PSRWLOCK lock)
{
    pthread_rwlock_unlock(&lock->lock);
}

void WINAPI AcquireSRWLockShared(PSRWLOCK lock)
{
    pthread_rwlock_rdlock(&lock->lock);
}

void WINAPI ReleaseSRWLockShared(PSRWLOCK lock)
{
    pthread_rwlock_unlock(&lock->lock);
}

BOOLEAN WINAPI TryAcquireSRWLockExclusive(PSRWLOCK lock)
{
    return pthread_rwlock_trywrlock(&lock->lock) == 0;
}

BOOLEAN WINAPI TryAcquireSRWLockShared(PSRWLOCK lock)
{
    return pthread_rwlock_tryrdlock(&lock->lock) == 0;
}

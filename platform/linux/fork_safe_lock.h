// A lock for std::lock_guard that the child of a fork can take even if another thread of its parent holds it.
// The child may then see a change half done, so changes under it are short; what takes long comes before them.
#pragma once

#include "platform/linux/win_kernel.h"

class ForkSafeLock {
  public:
    void lock() { AcquireSRWLockExclusive(&lock_); }
    void unlock() { ReleaseSRWLockExclusive(&lock_); }

  private:
    SRWLOCK lock_ = SRWLOCK_INIT;
};

// Guards: one owner per resource; release() hands it over.
#pragma once

#include <stdlib.h>

#include "platform/owner.h"
#include "platform/platform.h"
#include "support/wipe.h"

// A block from calloc, realloc or malloc.
template <typename T>
using MallocPtr = Owner<T, free>;

inline void FreeHeapBlock(void* block)
{
    HeapFree(GetProcessHeap(), 0, block);
}
template <typename T>
using HeapPtr = Owner<T, FreeHeapBlock>;

// A block that the platform allocated (LocalAlloc).
template <typename T>
using LocalPtr = Owner<T, LocalFree>;

// A zero-terminated text that holds a secret or a token.
using SecretBytesPtr = Owner<char, WipeFreeBytes>;
using SecretTextPtr = Owner<WCHAR, WipeFreeText>;

// Preserves the thread's last error across a cleanup.
class LastErrorKeeper : private NonCopyable {
  public:
    LastErrorKeeper() : error_(GetLastError()) {}
    ~LastErrorKeeper() { SetLastError(error_); }

  private:
    DWORD error_;
};

// Holds an SRWLOCK exclusively.
class ExclusiveLock : private NonCopyable {
  public:
    explicit ExclusiveLock(SRWLOCK* lock) : lock_(lock) { AcquireSRWLockExclusive(lock_); }
    ~ExclusiveLock() { ReleaseSRWLockExclusive(lock_); }

  private:
    SRWLOCK* lock_;
};

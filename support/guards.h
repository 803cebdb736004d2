// Guards: one owner per resource; release() hands it over.
#pragma once

#include <stdlib.h>

#include <memory>

#include "platform/platform.h"
#include "support/wipe.h"

struct FreeCaller {
    void operator()(void* block) const { free(block); }
};
// A block from calloc, realloc or malloc.
template <typename T>
using MallocPtr = std::unique_ptr<T, FreeCaller>;

struct HeapFreeCaller {
    void operator()(void* block) const { HeapFree(GetProcessHeap(), 0, block); }
};
// A block of the process heap.
template <typename T>
using HeapPtr = std::unique_ptr<T, HeapFreeCaller>;

struct LocalFreeCaller {
    void operator()(void* block) const { LocalFree(block); }
};
// A block that the platform allocated (LocalAlloc).
template <typename T>
using LocalPtr = std::unique_ptr<T, LocalFreeCaller>;

struct WipeFreeBytesCaller {
    void operator()(char* text) const { WipeFreeBytes(text); }
};
// A zero-terminated byte text that holds a secret or a token.
using SecretBytesPtr = std::unique_ptr<char, WipeFreeBytesCaller>;

struct WipeFreeTextCaller {
    void operator()(WCHAR* text) const { WipeFreeText(text); }
};
// The same for wide text.
using SecretTextPtr = std::unique_ptr<WCHAR, WipeFreeTextCaller>;

// Preserves the thread's last error across a cleanup.
class LastErrorKeeper {
  public:
    LastErrorKeeper() : error_(GetLastError()) {}
    ~LastErrorKeeper() { SetLastError(error_); }
    LastErrorKeeper(const LastErrorKeeper&) = delete;
    LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

  private:
    DWORD error_;
};

// Holds an SRWLOCK exclusively.
class ExclusiveLock {
  public:
    explicit ExclusiveLock(SRWLOCK* lock) : lock_(lock) { AcquireSRWLockExclusive(lock_); }
    ~ExclusiveLock() { ReleaseSRWLockExclusive(lock_); }
    ExclusiveLock(const ExclusiveLock&) = delete;
    ExclusiveLock& operator=(const ExclusiveLock&) = delete;

  private:
    SRWLOCK* lock_;
};

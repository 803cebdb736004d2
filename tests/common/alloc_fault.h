// Makes allocations of the system's code fail. The test programs wrap calloc, realloc, malloc and HeapAlloc at link
// time, which catches calls from the system's own objects only.
#pragma once

#include <cstddef>

#include "platform/owner.h"

// During its lifetime allocation number `failAt` (from 0) of this thread's system code fails, with `failAllAfter` all
// later ones, too. SIZE_MAX only counts. There may be one at a time.
class AllocFault : private NonCopyable {
  public:
    explicit AllocFault(size_t failAt, bool failAllAfter = false);
    ~AllocFault();
    size_t Seen() const;  // allocations so far
};

// During its lifetime nothing fails or counts: for the tests' own work inside a call under test. On Windows the C++
// library is part of the program, and its allocations would count as the system's.
class AllocFaultPause : private NonCopyable {
  public:
    AllocFaultPause();
    ~AllocFaultPause();

  private:
    bool paused_;
};

// For the wrappers: counts an allocation; true if it must fail.
bool AllocFaultDue();

// The calling thread's number, never 0. Allocates nothing. Each system has its own version.
unsigned long CurrentThread();

// Makes allocations of the system's code fail. The test programs are linked with calloc, realloc, malloc and HeapAlloc
// wrapped, which catches calls from the system's own objects only.
#pragma once

#include <cstddef>

// While one of these lives, allocation number `failAt` (from 0) of this thread's system code fails, and all later ones
// too when `failAllAfter` is set. failAt of SIZE_MAX fails none and only counts. One lives at a time.
class AllocFault {
  public:
    explicit AllocFault(size_t failAt, bool failAllAfter = false);
    ~AllocFault();
    AllocFault(const AllocFault&) = delete;
    AllocFault& operator=(const AllocFault&) = delete;
    size_t Seen() const;  // allocations asked for so far
};

// While one of these lives, nothing fails and nothing is counted: for the tests' own work inside a call that is swept.
// On Windows the C++ library is part of the program, and its allocations would be taken for the system's.
class AllocFaultPause {
  public:
    AllocFaultPause();
    ~AllocFaultPause();
    AllocFaultPause(const AllocFaultPause&) = delete;
    AllocFaultPause& operator=(const AllocFaultPause&) = delete;

  private:
    bool paused_;
};

// For the wrappers: counts one allocation and tells whether it is to fail.
bool AllocFaultDue();

// The calling thread's number, never 0. Allocates nothing. One body for each system.
unsigned long CurrentThread();

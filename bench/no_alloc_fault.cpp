// The tests' root pauses their failing allocations; a measurement has none.
#include "tests/common/alloc_fault.h"

AllocFaultPause::AllocFaultPause() : paused_(false) {}

AllocFaultPause::~AllocFaultPause() = default;

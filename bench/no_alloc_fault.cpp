// The tests' root pauses the injected allocation failures; benchmarks have none.
#include "tests/common/alloc_fault.h"

AllocFaultPause::AllocFaultPause() : paused_(false) {}

AllocFaultPause::~AllocFaultPause() = default;

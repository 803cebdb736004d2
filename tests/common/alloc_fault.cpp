#include "tests/common/alloc_fault.h"

#include <atomic>
#include <cstdint>

namespace {
struct Plan {
    bool failAllAfter = false;
    size_t failAt = SIZE_MAX;
    size_t seen = 0;
};
Plan plan;
// The thread to which the plan belongs; 0: none. No thread_local, whose storage the Windows compiler's runtime
// allocates.
std::atomic<unsigned long> planThread{0};
}  // namespace

bool AllocFaultDue()
{
    if (planThread != CurrentThread())
        return false;
    const size_t index = plan.seen++;
    return index == plan.failAt || (plan.failAllAfter && index > plan.failAt);
}

AllocFault::AllocFault(size_t failAt, bool failAllAfter)
{
    plan = Plan{failAllAfter, failAt, 0};
    planThread = CurrentThread();
}

AllocFault::~AllocFault()
{
    planThread = 0;
}

AllocFaultPause::AllocFaultPause() : paused_(planThread == CurrentThread())
{
    if (paused_)
        planThread = 0;
}

AllocFaultPause::~AllocFaultPause()
{
    if (paused_)
        planThread = CurrentThread();
}

size_t AllocFault::Seen() const
{
    return plan.seen;
}

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* block, size_t size);
void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);
void* __wrap_realloc(void* block, size_t size);

void* __wrap_malloc(size_t size)
{
    return AllocFaultDue() ? nullptr : __real_malloc(size);
}
void* __wrap_calloc(size_t count, size_t size)
{
    return AllocFaultDue() ? nullptr : __real_calloc(count, size);
}
void* __wrap_realloc(void* block, size_t size)
{
    return AllocFaultDue() ? nullptr : __real_realloc(block, size);
}
}

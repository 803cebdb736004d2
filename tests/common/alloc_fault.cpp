#include "tests/common/alloc_fault.h"

#include <cstdint>

namespace {
struct Plan {
    bool active = false;
    bool failAllAfter = false;
    size_t failAt = SIZE_MAX;
    size_t seen = 0;
};
thread_local Plan plan;
}  // namespace

bool AllocFaultDue()
{
    if (!plan.active)
        return false;
    const size_t index = plan.seen++;
    return index == plan.failAt || (plan.failAllAfter && index > plan.failAt);
}

AllocFault::AllocFault(size_t failAt, bool failAllAfter)
{
    plan = Plan{true, failAllAfter, failAt, 0};
}

AllocFault::~AllocFault()
{
    plan = Plan{};
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

#include "bench/allocation_count.h"

#include <stddef.h>

#include <atomic>

// The C library's own entry points.
extern "C" void* __libc_malloc(size_t size);
extern "C" void* __libc_calloc(size_t count, size_t size);
extern "C" void* __libc_realloc(void* block, size_t size);

static std::atomic<long> allocations{0};

long AllocationCount()
{
    return allocations.load();
}

extern "C" __attribute__((visibility("default"))) void* malloc(size_t size)
{
    ++allocations;
    return __libc_malloc(size);
}

extern "C" __attribute__((visibility("default"))) void* calloc(size_t count, size_t size)
{
    ++allocations;
    return __libc_calloc(count, size);
}

extern "C" __attribute__((visibility("default"))) void* realloc(void* block, size_t size)
{
    ++allocations;
    return __libc_realloc(block, size);
}

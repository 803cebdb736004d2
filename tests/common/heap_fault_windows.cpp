// The process heap's part of alloc_fault.h on Windows: the module's import of HeapAlloc under its linker name. The C++
// library is linked statically here, so that its allocations are taken out of the count.
#include <cstdlib>
#include <new>

#include "platform/platform.h"
#include "tests/common/alloc_fault.h"

extern "C" {
void* __real_malloc(size_t size);

using HeapAllocFn = decltype(&HeapAlloc);
#ifdef _WIN64
extern HeapAllocFn realHeapAlloc __asm__("__real___imp_HeapAlloc");
extern HeapAllocFn wrapHeapAlloc __asm__("__wrap___imp_HeapAlloc");
#else
extern HeapAllocFn realHeapAlloc __asm__("___real__imp__HeapAlloc@12");
extern HeapAllocFn wrapHeapAlloc __asm__("___wrap__imp__HeapAlloc@12");
#endif

static LPVOID WINAPI FaultyHeapAlloc(HANDLE heap, DWORD flags, SIZE_T size)
{
    return AllocFaultDue() ? nullptr : realHeapAlloc(heap, flags, size);
}
HeapAllocFn wrapHeapAlloc = FaultyHeapAlloc;
}

unsigned long CurrentThread()
{
    return GetCurrentThreadId();
}

void* operator new(size_t size)
{
    void* block = __real_malloc(size ? size : 1);
    if (!block)
        throw std::bad_alloc();
    return block;
}
void operator delete(void* block) noexcept
{
    std::free(block);
}
void operator delete(void* block, size_t) noexcept
{
    std::free(block);
}

// The process heap's part of alloc_fault.h: HeapAlloc of the Linux build under its linker name.
#include <unistd.h>

#include "platform/platform.h"
#include "tests/common/alloc_fault.h"

LPVOID RealHeapAlloc(HANDLE heap, DWORD flags, SIZE_T size) __asm__("__real__Z9HeapAllocPvjm");
LPVOID WrapHeapAlloc(HANDLE heap, DWORD flags, SIZE_T size) __asm__("__wrap__Z9HeapAllocPvjm");

unsigned long CurrentThread()
{
    return static_cast<unsigned long>(gettid());
}

LPVOID WrapHeapAlloc(HANDLE heap, DWORD flags, SIZE_T size)
{
    return AllocFaultDue() ? nullptr : RealHeapAlloc(heap, flags, size);
}

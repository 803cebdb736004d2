#include "platform/platform.h"
#include "tests/common/leftovers.h"

// After windows.h.
#include <tlhelp32.h>

static size_t ThreadCount()
{
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    size_t count = 0;
    for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry))
        count += entry.th32OwnerProcessID == GetCurrentProcessId();
    CloseHandle(snapshot);
    return count;
}

static size_t BlockCount()
{
    PROCESS_HEAP_ENTRY entry = {};
    size_t count = 0;
    HeapLock(GetProcessHeap());
    while (HeapWalk(GetProcessHeap(), &entry))
        count += (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0;
    HeapUnlock(GetProcessHeap());
    return count;
}

// One by one: GetProcessHandleCount answers 0 where the runtime doesn't count. Handles are multiples of four.
static size_t HandleCount()
{
    size_t count = 0;
    for (uintptr_t handle = 4; handle < 4 * 4096; handle += 4) {
        DWORD flags = 0;
        count += GetHandleInformation(reinterpret_cast<HANDLE>(handle), &flags) != FALSE;
    }
    return count;
}

Holdings TakeStock()
{
    return {ThreadCount(), HandleCount(), BlockCount()};
}

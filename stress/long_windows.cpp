#include "platform/platform.h"
#include "stress/long_system.h"

// After windows.h.
#include <psapi.h>

size_t ResidentKb()
{
    PROCESS_MEMORY_COUNTERS counters = {};
    GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters));
    return counters.WorkingSetSize / 1024;
}

bool IsLoaded(const std::string& path)
{
    return GetModuleHandleA(path.c_str()) != nullptr;
}

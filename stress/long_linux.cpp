#include <dlfcn.h>
#include <unistd.h>

#include <fstream>

#include "stress/long_system.h"

size_t ResidentKb()
{
    size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return pages * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

bool IsLoaded(const std::string& path)
{
    void* const found = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (found)
        dlclose(found);
    return found != nullptr;
}

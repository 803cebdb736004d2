// Modules, through the dynamic loader.
#include <dlfcn.h>
#include <errno.h>
#include <limits.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "platform/linux/outcome.h"
#include "platform/linux/text.h"
#include "platform/platform.h"

HMODULE WINAPI LoadLibraryW(LPCWSTR name)
{
    HMODULE module = nullptr;
    Succeeds([&]() -> LONG {
        if (!name || !*name)
            return ERROR_INVALID_PARAMETER;
        module = dlopen(ToUtf8(name).c_str(), RTLD_NOW | RTLD_LOCAL);
        return module ? ERROR_SUCCESS : ERROR_MOD_NOT_FOUND;
    });
    return module;
}

FARPROC WINAPI GetProcAddress(HMODULE module, LPCSTR name)
{
    void* const found = module && name ? dlsym(module, name) : nullptr;
    if (!found)
        SetLastError(static_cast<DWORD>(ERROR_PROC_NOT_FOUND));
    return reinterpret_cast<FARPROC>(found);
}

BOOL WINAPI FreeLibrary(HMODULE module)
{
    if (!module || dlclose(module) != 0)
        return Fail(ERROR_INVALID_HANDLE);
    return TRUE;
}

DWORD WINAPI GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size)
{
    DWORD length = 0;
    Succeeds([&]() -> LONG {
        if (module || !buffer || !size)
            return ERROR_INVALID_PARAMETER;
        char path[PATH_MAX];
        const ssize_t bytes = readlink("/proc/self/exe", path, sizeof(path));
        if (bytes <= 0)
            return ErrorFromErrno(errno);
        const std::u16string name = ToUtf16(std::string_view(path, static_cast<size_t>(bytes)));
        const size_t fitting = std::min<size_t>(name.size(), size - 1);
        memcpy(buffer, name.data(), fitting * sizeof(WCHAR));
        buffer[fitting] = 0;
        length = fitting < name.size() ? size : static_cast<DWORD>(fitting);
        return fitting < name.size() ? ERROR_INSUFFICIENT_BUFFER : ERROR_SUCCESS;
    });
    return length;
}

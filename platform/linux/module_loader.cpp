// Modules, through the dynamic loader.
#include <dlfcn.h>
#include <string.h>

#include <algorithm>

#include "platform/linux/account.h"
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
        const std::u16string name = ProgramPath();
        if (name.empty())
            return ERROR_FILE_NOT_FOUND;
        const size_t fitting = std::min<size_t>(name.size(), size - 1);
        memcpy(buffer, name.data(), fitting * sizeof(WCHAR));
        buffer[fitting] = 0;
        length = fitting < name.size() ? size : static_cast<DWORD>(fitting);
        return fitting < name.size() ? ERROR_INSUFFICIENT_BUFFER : ERROR_SUCCESS;
    });
    return length;
}

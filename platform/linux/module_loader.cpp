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
    return ResultOf([&] {
        if (!name || !*name)
            throw Failure(ERROR_INVALID_PARAMETER);
        const HMODULE module = dlopen(ToUtf8(name).c_str(), RTLD_NOW | RTLD_LOCAL);
        Check(module ? ERROR_SUCCESS : ERROR_MOD_NOT_FOUND);
        return module;
    });
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
    return ResultOf([&] {
        if (module || !buffer || !size)
            throw Failure(ERROR_INVALID_PARAMETER);
        const std::u16string name = ProgramPath();
        const size_t fitting = std::min<size_t>(name.size(), size - 1);
        memcpy(buffer, name.data(), fitting * sizeof(WCHAR));
        buffer[fitting] = 0;
        if (fitting == name.size())
            return static_cast<DWORD>(fitting);
        Fail(ERROR_INSUFFICIENT_BUFFER);
        return size;
    });
}

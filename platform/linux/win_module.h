// Loading modules for the Linux build.
#pragma once

#include "platform/linux/win_types.h"

using FARPROC = INT_PTR(WINAPI*)();

// A name with a slash is a path, any other is looked for where the loader looks. NULL and ERROR_MOD_NOT_FOUND when it
// cannot be loaded; what exactly was wrong is then with dlerror().
HMODULE WINAPI LoadLibraryW(LPCWSTR name);

// NULL and ERROR_PROC_NOT_FOUND when the module has no such export.
FARPROC WINAPI GetProcAddress(HMODULE module, LPCSTR name);

BOOL WINAPI FreeLibrary(HMODULE module);

// Only for a NULL module: the path of the process's program. The length without terminator, 0 on failure; `size` and
// ERROR_INSUFFICIENT_BUFFER when it was cut to fit.
DWORD WINAPI GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size);

// Loading modules for the Linux build.
#pragma once

#include "platform/linux/win_types.h"

using FARPROC = INT_PTR(WINAPI*)();

// A name with a slash is a path, any other is searched for by the loader. NULL and ERROR_MOD_NOT_FOUND if it
// cannot be loaded; dlerror() has the details.
HMODULE WINAPI LoadLibraryW(LPCWSTR name);

// NULL and ERROR_PROC_NOT_FOUND if the module has no such export.
FARPROC WINAPI GetProcAddress(HMODULE module, LPCSTR name);

BOOL WINAPI FreeLibrary(HMODULE module);

// Only for a NULL module: the path of the process's program. The length without terminator, 0 on failure; `size` and
// ERROR_INSUFFICIENT_BUFFER if it was truncated.
DWORD WINAPI GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size);

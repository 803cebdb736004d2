// Changing the environment; reading it stands with the names of machine and user.
#include <stdlib.h>

#include <new>
#include <string>

#include "platform/platform.h"

static bool ToUtf8(LPCWSTR text, std::string* bytes)
{
    const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 0)
        return false;
    bytes->resize(static_cast<size_t>(size));
    WideCharToMultiByte(CP_UTF8, 0, text, -1, bytes->data(), size, nullptr, nullptr);
    bytes->resize(static_cast<size_t>(size) - 1);
    return true;
}

BOOL WINAPI SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value)
try {
    std::string nameBytes;
    std::string valueBytes;
    if (!name || !ToUtf8(name, &nameBytes) || (value && !ToUtf8(value, &valueBytes))) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const int failed = value ? setenv(nameBytes.c_str(), valueBytes.c_str(), 1) : unsetenv(nameBytes.c_str());
    if (failed)
        SetLastError(ERROR_INVALID_PARAMETER);
    return failed ? FALSE : TRUE;
} catch (const std::bad_alloc&) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return FALSE;
}

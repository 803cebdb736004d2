// Changing the environment; names.cpp reads it.
#include <stdlib.h>

#include "platform/linux/outcome.h"
#include "platform/linux/text.h"

BOOL WINAPI SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value)
{
    return Succeeds([&]() -> LONG {
        if (!name)
            return ERROR_INVALID_PARAMETER;
        const std::string variable = ToUtf8(name);
        const int failed = value ? setenv(variable.c_str(), ToUtf8(value).c_str(), 1) : unsetenv(variable.c_str());
        return failed ? ERROR_INVALID_PARAMETER : ERROR_SUCCESS;
    });
}

// Logging a failure and returning it in one expression.
#pragma once

#include "support/log.h"

// Logs `message` as an error and returns `result`.
template <typename Result>
Result Fail(Result result, const WCHAR* message)
{
    LogLine(message, LOG_ERROR_LEVEL);
    return result;
}

// The same, with a platform error, a SECURITY_STATUS or an HTTP status in the line: "message Error 0xcode".
template <typename Result, typename Code>
Result Fail(Result result, const WCHAR* message, Code code)
{
    LogError(message, code, LOG_ERROR_LEVEL);
    return result;
}

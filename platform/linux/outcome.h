// How platform functions report errors: the thread's last error, errno as a Windows error, and no exceptions to the
// caller.
#pragma once

#include <exception>
#include <new>
#include <type_traits>

#include "platform/linux/win_constants.h"
#include "platform/linux/win_kernel.h"

// Sets the last error and returns FALSE.
inline BOOL Fail(LONG error)
{
    SetLastError(static_cast<DWORD>(error));
    return FALSE;
}

// The Windows error closest to an errno value.
LONG ErrorFromErrno(int error);

// Ends the body that CodeOf or Succeeds runs with this error.
struct Failure : std::exception {
    explicit Failure(LONG code) : error(code) {}
    LONG error;
};
inline void Check(LONG error)
{
    if (error != ERROR_SUCCESS)
        throw Failure(error);
}

// Runs a body that may throw, and returns its error code, if it has one, or that of its exception.
template <typename Body>
LONG CodeOf(Body body)
{
    try {
        if constexpr (std::is_void_v<decltype(body())>)
            body();
        else
            return body();
        return ERROR_SUCCESS;
    } catch (const Failure& failure) {
        return failure.error;
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    } catch (const std::exception&) {
        return ERROR_INTERNAL_ERROR;
    }
}

// The same for functions that return TRUE or FALSE and set the last error.
template <typename Body>
BOOL Succeeds(Body body)
{
    const LONG error = CodeOf(body);
    return error == ERROR_SUCCESS ? TRUE : Fail(error);
}

// The same for functions that return what the body returns, or 0 and set the last error.
template <typename Body>
auto ResultOf(Body body)
{
    decltype(body()) result = {};
    Succeeds([&] { result = body(); });
    return result;
}

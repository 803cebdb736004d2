// How the bodies report: the thread's last error, errno in Windows' terms, and nothing thrown through a platform
// function.
#pragma once

#include <exception>
#include <new>

#include "platform/linux/win_errors.h"
#include "platform/linux/win_kernel.h"

// Sets the last error and is FALSE.
inline BOOL Fail(LONG error)
{
    SetLastError(static_cast<DWORD>(error));
    return FALSE;
}

// The Windows error that stands closest to an errno value.
LONG ErrorFromErrno(int error);

// Runs a body that may throw; what it throws becomes the returned error code.
template <typename Body>
LONG CodeOf(Body body)
{
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    } catch (const std::exception&) {
        return ERROR_INTERNAL_ERROR;
    }
}

// The same for functions that answer TRUE or FALSE and leave the error with the thread.
template <typename Body>
BOOL Succeeds(Body body)
{
    const LONG error = CodeOf(body);
    return error == ERROR_SUCCESS ? TRUE : Fail(error);
}

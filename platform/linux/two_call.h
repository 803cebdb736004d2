// How results are copied to a caller's buffer: without a buffer, *size becomes the size needed; with a buffer that is
// too small, the call fails and *size is set too.
#pragma once

#include <string.h>

#include <string_view>

#include "platform/linux/win_constants.h"

inline LONG GiveOut(std::string_view result, void* buffer, DWORD* size)
{
    const DWORD room = *size;
    if (result.size() > UINT32_MAX)
        return ERROR_NOT_ENOUGH_MEMORY;
    *size = static_cast<DWORD>(result.size());
    if (!buffer)
        return ERROR_SUCCESS;
    if (room < *size)
        return ERROR_MORE_DATA;
    if (!result.empty())
        memcpy(buffer, result.data(), result.size());
    return ERROR_SUCCESS;
}

#include <errno.h>

#include "platform/linux/outcome.h"

namespace {

thread_local DWORD lastError = 0;

}  // namespace

DWORD WINAPI GetLastError()
{
    return lastError;
}

void WINAPI SetLastError(DWORD error)
{
    lastError = error;
}

LONG ErrorFromErrno(int error)
{
    switch (error) {
        case 0:
            return ERROR_SUCCESS;
        case ENOENT:
            return ERROR_FILE_NOT_FOUND;
        case ENOTDIR:
        case ENAMETOOLONG:
            return ERROR_PATH_NOT_FOUND;
        case ELOOP:
        case ENXIO:
            return ERROR_BAD_FILE_TYPE;
        case EACCES:
        case EPERM:
        case EROFS:
        case EISDIR:
            return ERROR_ACCESS_DENIED;
        case EEXIST:
            return ERROR_FILE_EXISTS;
        case ENOMEM:
            return ERROR_NOT_ENOUGH_MEMORY;
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return ERROR_DISK_FULL;
        case EMFILE:
        case ENFILE:
            return ERROR_NO_SYSTEM_RESOURCES;
        case EBADF:
            return ERROR_INVALID_HANDLE;
        case EINVAL:
            return ERROR_INVALID_PARAMETER;
        default:
            return ERROR_IO_DEVICE;
    }
}

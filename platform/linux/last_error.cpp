#include <errno.h>

#include "platform/find_row.h"
#include "platform/linux/outcome.h"

namespace {

thread_local DWORD lastError = 0;

struct ErrnoRow {
    int number;
    LONG error;
};
constexpr ErrnoRow kErrnoRows[] = {{0, ERROR_SUCCESS},
                                   {ENOENT, ERROR_FILE_NOT_FOUND},
                                   {ENOTDIR, ERROR_PATH_NOT_FOUND},
                                   {ENAMETOOLONG, ERROR_PATH_NOT_FOUND},
                                   {ELOOP, ERROR_BAD_FILE_TYPE},
                                   {ENXIO, ERROR_BAD_FILE_TYPE},
                                   {EACCES, ERROR_ACCESS_DENIED},
                                   {EPERM, ERROR_ACCESS_DENIED},
                                   {EROFS, ERROR_ACCESS_DENIED},
                                   {EISDIR, ERROR_ACCESS_DENIED},
                                   {EEXIST, ERROR_FILE_EXISTS},
                                   {ENOMEM, ERROR_NOT_ENOUGH_MEMORY},
                                   {ENOSPC, ERROR_DISK_FULL},
                                   {EDQUOT, ERROR_DISK_FULL},
                                   {EFBIG, ERROR_DISK_FULL},
                                   {EMFILE, ERROR_NO_SYSTEM_RESOURCES},
                                   {ENFILE, ERROR_NO_SYSTEM_RESOURCES},
                                   {EBADF, ERROR_INVALID_HANDLE},
                                   {EINVAL, ERROR_INVALID_PARAMETER}};

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
    const ErrnoRow* known = FindRow(kErrnoRows, [error](const ErrnoRow& row) { return row.number == error; });
    return known ? known->error : ERROR_IO_DEVICE;
}

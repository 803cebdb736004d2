#include "provider/nt_status.h"

#include "platform/find_row.h"

namespace {

struct StatusRow {
    DWORD result;
    SECURITY_STATUS status;
};
constexpr StatusRow kStatuses[] = {
    {0x00000000, ERROR_SUCCESS},     {0xC0000008, NTE_INVALID_HANDLE}, {0xC000000D, NTE_INVALID_PARAMETER},
    {0xC0000017, NTE_NO_MEMORY},     {0xC000009A, NTE_NO_MEMORY},      {0xC0000023, NTE_BUFFER_TOO_SMALL},
    {0xC00000BB, NTE_NOT_SUPPORTED}, {0xC000A000, NTE_BAD_SIGNATURE},
};

}  // namespace

SECURITY_STATUS StatusFromNt(NTSTATUS result)
{
    const StatusRow* known =
        FindRow(kStatuses, [=](const StatusRow& row) { return row.result == static_cast<DWORD>(result); });
    return known ? known->status : NTE_INTERNAL_ERROR;
}

SECURITY_STATUS OpenAlgorithm(const WCHAR* name, ULONG flags, AlgorithmPtr* algorithm)
{
    BCRYPT_ALG_HANDLE handle = nullptr;
    const NTSTATUS result = BCryptOpenAlgorithmProvider(&handle, name, nullptr, flags);
    if (BCRYPT_SUCCESS(result))
        algorithm->reset(handle);
    return StatusFromNt(result);
}

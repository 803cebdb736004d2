#include <openssl/crypto.h>
#include <stdlib.h>

#include "platform/linux/outcome.h"

namespace {

// Only its address matters.
char processHeap;

}  // namespace

HANDLE WINAPI GetProcessHeap()
{
    return &processHeap;
}

LPVOID WINAPI HeapAlloc(HANDLE, DWORD flags, SIZE_T size)
{
    // Even a block of size 0 gets an address.
    const SIZE_T atLeastOne = size == 0 ? 1 : size;
    return (flags & HEAP_ZERO_MEMORY) != 0 ? calloc(1, atLeastOne) : malloc(atLeastOne);
}

BOOL WINAPI HeapFree(HANDLE, DWORD, LPVOID block)
{
    free(block);
    return TRUE;
}

HLOCAL WINAPI LocalAlloc(UINT flags, SIZE_T size)
{
    if (flags != LMEM_FIXED) {
        Fail(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    void* block = HeapAlloc(GetProcessHeap(), 0, size);
    if (!block)
        Fail(ERROR_NOT_ENOUGH_MEMORY);
    return block;
}

HLOCAL WINAPI LocalFree(HLOCAL block)
{
    free(block);
    return nullptr;
}

PVOID SecureZeroMemory(PVOID block, SIZE_T size)
{
    OPENSSL_cleanse(block, size);
    return block;
}

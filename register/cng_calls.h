// CNG's configuration calls as a table, which tests fill with fakes.
// On Windows they are resolved at run time, because the compiler's headers declare only some of them.
#pragma once

#include "platform/platform.h"

namespace kelvaro_register {

struct CngCalls {
    NTSTATUS(WINAPI* registerProvider)(LPCWSTR pszProvider, ULONG dwFlags, PCRYPT_PROVIDER_REG pReg);
    NTSTATUS(WINAPI* unregisterProvider)(LPCWSTR pszProvider);
    // *ppBuffer: NULL to get a block, which the caller frees with freeBuffer.
    NTSTATUS(WINAPI* queryProviderRegistration)
    (LPCWSTR pszProvider, ULONG dwMode, ULONG dwInterface, ULONG* pcbBuffer, PCRYPT_PROVIDER_REG* ppBuffer);
    NTSTATUS(WINAPI* addContextFunctionProvider)
    (ULONG dwTable, LPCWSTR pszContext, ULONG dwInterface, LPCWSTR pszFunction, LPCWSTR pszProvider, ULONG dwPosition);
    NTSTATUS(WINAPI* removeContextFunctionProvider)
    (ULONG dwTable, LPCWSTR pszContext, ULONG dwInterface, LPCWSTR pszFunction, LPCWSTR pszProvider);
    NTSTATUS(WINAPI* enumContextFunctionProviders)
    (ULONG dwTable, LPCWSTR pszContext, ULONG dwInterface, LPCWSTR pszFunction, ULONG* pcbBuffer,
     PCRYPT_CONTEXT_FUNCTION_PROVIDERS* ppBuffer);
    VOID(WINAPI* freeBuffer)(PVOID pvBuffer);
};

// bcrypt: the loaded bcrypt.dll. Returns the name of the first call that is missing, or NULL if `calls` is complete.
const char* FindCngCalls(HMODULE bcrypt, CngCalls* calls);

}  // namespace kelvaro_register

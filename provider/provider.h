// KSP_PROVIDER: the object behind a host's provider handle.
#pragma once

#include <atomic>

#include "keyvault/kvc.h"
#include "platform/product.h"

constexpr DWORD KSP_PROVIDER_MAGIC = 0x7866ABCE;
constexpr DWORD kVaultTemplateChars = 512;

// One block on the process heap, with a copy of the name after the fixed part. Owned by the host from the open to the
// free. useContextLock guards the use context and its size, fCertsSynced is atomic; every other field is fixed once the
// open has returned.
struct KSP_PROVIDER {
    DWORD cbLength;                               // bytes of the whole block
    DWORD dwMagic;                                // KSP_PROVIDER_MAGIC
    DWORD dwFlags;                                // 0
    WCHAR* pszName;                               // points past the fixed part
    WCHAR* pszUseContext;                         // owned, process heap; NULL until it is set
    WCHAR machineVaultName[kVaultTemplateChars];  // template of the vault's name
    WCHAR userVaultName[kVaultTemplateChars];
    KVCClient* machineKvc;               // owned; NULL if memory ran out
    KVCClient* userKvc;                  // the same
    std::atomic<uint32_t> fCertsSynced;  // 0 until this provider has started the certificate sync
    SIZE_T cbUseContext;                 // bytes of the block at pszUseContext
    SRWLOCK useContextLock;
};

// The provider behind a handle. NULL for an invalid handle (NULL, too small, wrong magic word).
KSP_PROVIDER* ProviderFromHandle(NCRYPT_PROV_HANDLE hProvider);

// The client of machine keys if machineFlag isn't 0 (a key's fMachineKey, or the host's flags masked with
// NCRYPT_MACHINE_KEY_FLAG), else of user keys. May be NULL.
KVCClient* ProviderClient(const KSP_PROVIDER* provider, DWORD machineFlag);

// Logs "where Error 0xstatus" at level 1 and returns the status. where: the entry point, or a step on the way to it.
SECURITY_STATUS FailStatus(SECURITY_STATUS status, const WCHAR* where);

// FailStatus, but 0 passes without a line.
SECURITY_STATUS Finish(SECURITY_STATUS status, const WCHAR* where);

// KSP_KEY: the object behind every key handle.
#pragma once

#include <atomic>
#include <memory>

#include "keyvault/kvc.h"
#include "keyvault/kvkey.h"
#include "platform/owner.h"
#include "platform/platform.h"
#include "provider/property_list.h"

constexpr DWORD KSP_KEY_MAGIC = 0x7866ABCF;
constexpr size_t kKeyNameLimit = 129;  // characters of a key name, without the terminator
constexpr DWORD kDefaultKeyUsage = NCRYPT_ALLOW_DECRYPT_FLAG | NCRYPT_ALLOW_SIGNING_FLAG;

// One block on the process heap, owned by the host from the call that made it to KelvaroFreeKey. Any thread may use it:
// `lock` guards what its comment names, the numbers that a host can set are atomic, the list has the semaphore, and
// everything else is fixed when the key is created. The lock is never held during network traffic.
struct KSP_KEY {
    DWORD cbLength;
    DWORD dwMagic;                    // KSP_KEY_MAGIC
    WCHAR* pszKeyName;                // clear name, owned; NULL for a key without a name
    WCHAR* pszKeyFilePath;            // owned; nothing sets it
    const WCHAR* pszPrivateBlobType;  // constant, not owned; NULL without a private blob; guarded by `lock`
    WCHAR pszAlgName[kAlgIDChars];
    std::atomic<DWORD> dwBitLength;
    std::atomic<DWORD> dwExportPolicy;  // always 0
    std::atomic<DWORD> dwKeyUsage;
    std::atomic<DWORD> fFinalized;  // 0, then exactly 1; set under `lock`
    BYTE* pbKeyFile;                // owned; nothing sets it
    DWORD cbKeyFile;
    BYTE* pbPrivateKey;  // encrypted private key, owned, guarded by `lock`
    DWORD cbPrivateKey;
    KVCClient* kvc;     // the provider's client of this key's scope, not owned
    DWORD fMachineKey;  // not 0 for a machine key
    // The vault's description, released by KelvaroFreeKey. Set under `lock` when the key is finalized, then fixed.
    KVKey kvk;
    // 1 once the host has named the property "SmartCardKeyCertificate"; any thread may do so.
    std::atomic<uint32_t> publishCert;
    DWORD dwSecurityInfo;   // guarded by `lock`, like the descriptor
    BYTE* pbSecurityDescr;  // owned
    DWORD cbSecurityDescr;
    WCHAR* pszUseContext;           // owned, guarded by `lock`; NULL until it is set
    PropertyLink PropertyList;      // KSP_PROPERTY entries, guarded by KelvaroPropertySemaphore
    std::atomic<DWORD> hParentWnd;  // only stored and returned
    SIZE_T cbUseContext;            // bytes, with the terminator; guarded by `lock`
    bool finalizing;                // a thread is creating the key in the vault; guarded by `lock`
    mutable SRWLOCK lock;
};

// The key behind a handle. NULL for an invalid handle (NULL, too small, wrong magic word).
KSP_KEY* KeyFromHandle(NCRYPT_KEY_HANDLE hKey);

// The same, but NULL without reading hKey if hProvider is invalid.
KSP_KEY* KeyFromHandles(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey);

// A new pending key with every field but `kvc` set. pszKeyName may be NULL; pszAlgName has at most 19 characters and
// may be empty. 0; NTE_NO_MEMORY; NTE_INVALID_PARAMETER for a key name over 129 characters. A failure leaves nothing
// behind.
SECURITY_STATUS CreateNewKeyObject(const WCHAR* pszKeyName, const WCHAR* pszAlgName, KSP_KEY** pKey,
                                   DWORD dwMachineFlag);

// Frees the record and everything it owns except kvk's buffers. 0.
SECURITY_STATUS DeleteKeyObject(KSP_KEY* pKey);

// The first entry of exactly that name in the key's list, borrowed. The caller holds the lock. 0 or NTE_NOT_FOUND.
SECURITY_STATUS FindKeyProperty(KSP_KEY* pKey, const WCHAR* pszName, KSP_PROPERTY** pProperty);

struct KeyReleaser {
    void operator()(KSP_KEY* pKey) const
    {
        KVCFreeKVKey(&pKey->kvk);
        DeleteKeyObject(pKey);
    }
};
// Holds a key until the host gets it.
using KeyPtr = std::unique_ptr<KSP_KEY, KeyReleaser>;

// Releases the buffers of a vault's description.
struct KVKeyOwner : private NonCopyable {
    ~KVKeyOwner() { KVCFreeKVKey(&key); }

    KVKey key = {};
};

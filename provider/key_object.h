// KSP_KEY: the object behind every key handle.
#pragma once

#include <atomic>
#include <memory>

#include "keyvault/kvc.h"
#include "keyvault/kvkey.h"
#include "platform/platform.h"

constexpr DWORD KSP_KEY_MAGIC = 0x7866ABCF;
constexpr size_t kAlgNameChars = 20;
constexpr size_t kKeyNameLimit = 129;      // characters of a key name, terminator excluded
constexpr size_t kPropertyNameLimit = 64;  // characters of a property name, terminator excluded
constexpr DWORD kDefaultKeyUsage = NCRYPT_ALLOW_DECRYPT_FLAG | NCRYPT_ALLOW_SIGNING_FLAG;

// A link of a circular list; a head that points at itself is an empty list.
struct PropertyLink {
    PropertyLink* next;
    PropertyLink* previous;
};

// One block on the process heap with the data behind the fixed part.
struct KSP_PROPERTY {
    DWORD fPersisted;
    WCHAR szName[kPropertyNameLimit + 1];
    DWORD cbPropertyData;  // bytes; 0 is allowed
    PropertyLink ListEntry;
    DWORD fBuildin;

    BYTE* data() { return reinterpret_cast<BYTE*>(this + 1); }
};

// One block on the process heap, owned by the host from the call that made it to KelvaroFreeKey. Any thread may use it:
// `lock` guards what its comment names, the numbers that a host can set are atomic, the list has the semaphore, and
// everything else is fixed from the creation on. The lock is never held over the network.
struct KSP_KEY {
    DWORD cbLength;
    DWORD dwMagic;                    // KSP_KEY_MAGIC
    WCHAR* pszKeyName;                // clear name, owned; NULL for a key without a name
    WCHAR* pszKeyFilePath;            // owned; filled by no operation
    const WCHAR* pszPrivateBlobType;  // constant, not owned; NULL without a private blob; guarded by `lock`
    WCHAR pszAlgName[kAlgNameChars];
    std::atomic<DWORD> dwBitLength;
    std::atomic<DWORD> dwExportPolicy;  // 0 in every key
    std::atomic<DWORD> dwKeyUsage;
    std::atomic<DWORD> fFinalized;  // 0, then exactly 1; set under `lock`
    BYTE* pbKeyFile;                // owned; filled by no operation
    DWORD cbKeyFile;
    BYTE* pbPrivateKey;  // protected private key material, owned, guarded by `lock`
    DWORD cbPrivateKey;
    KVCClient* kvc;     // the provider's client of this key's scope, not owned
    DWORD fMachineKey;  // not 0 for a machine key
    // The vault's description, released by KelvaroFreeKey. Filled under `lock` when the key is finalized, fixed then.
    KVKey kvk;
    // 1 once the host has named the property "SmartCardKeyCertificate"; any thread may do so.
    std::atomic<uint32_t> publishCert;
    DWORD dwSecurityInfo;   // guarded by `lock`, like the descriptor
    BYTE* pbSecurityDescr;  // owned
    DWORD cbSecurityDescr;
    WCHAR* pszUseContext;           // owned, guarded by `lock`; NULL until it is set
    PropertyLink PropertyList;      // KSP_PROPERTY entries, guarded by KelvaroPropertySemaphore
    std::atomic<DWORD> hParentWnd;  // only kept and given back
    SIZE_T cbUseContext;            // bytes, with the terminator; guarded by `lock`
    bool finalizing;                // a thread is creating the key in the vault; guarded by `lock`
    mutable SRWLOCK lock;
};

// The key behind a handle, or NULL when the handle rule fails.
KSP_KEY* KeyFromHandle(NCRYPT_KEY_HANDLE hKey);

// The same, or NULL when hProvider is not a valid handle: hKey is not read then.
KSP_KEY* KeyFromHandles(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey);

// A new pending key; every field but `kvc` is set. pszKeyName may be NULL; pszAlgName is at most 19 characters, may be
// empty. 0; NTE_NO_MEMORY; NTE_INVALID_PARAMETER for a key name over 129 characters. Nothing is left behind after a
// failure.
SECURITY_STATUS CreateNewKeyObject(const WCHAR* pszKeyName, const WCHAR* pszAlgName, KSP_KEY** pKey,
                                   DWORD dwMachineFlag);

// Releases all that the record owns, but for kvk's buffers, and the record. 0.
SECURITY_STATUS DeleteKeyObject(KSP_KEY* pKey);

struct KeyReleaser {
    void operator()(KSP_KEY* pKey) const
    {
        KVCFreeKVKey(&pKey->kvk);
        DeleteKeyObject(pKey);
    }
};
// Holds a key that has not reached the host.
using KeyPtr = std::unique_ptr<KSP_KEY, KeyReleaser>;

// Releases the buffers of a vault's description.
struct KVKeyOwner {
    KVKeyOwner() = default;
    ~KVKeyOwner() { KVCFreeKVKey(&key); }
    KVKeyOwner(const KVKeyOwner&) = delete;
    KVKeyOwner& operator=(const KVKeyOwner&) = delete;

    KVKey key = {};
};

// The lengths that an algorithm name allows, a constant; NULL for a name that allows any.
const NCRYPT_SUPPORTED_LENGTHS* SupportedLengths(const WCHAR* pszAlgName);

// Applies a property to the key object. On success the top bit of *dwFlags (NCRYPT_PERSIST_FLAG) says whether the
// caller must store the property in the list too. pbInput: cbInput bytes, of any alignment.
SECURITY_STATUS SetBuildinKeyProperty(KSP_KEY* pKey, const WCHAR* pszProperty, const BYTE* pbInput, DWORD cbInput,
                                      DWORD* dwFlags);

// Tests a private RSA blob of cbBlob bytes; a good one sets pKey->dwBitLength. 0 or NTE_BAD_KEY.
SECURITY_STATUS CheckRsaBlob(KSP_KEY* pKey, const BYTE* pbBlob, DWORD cbBlob);

// Keeps a private blob that has passed CheckRsaBlob in the key object in protected form, in place of one that is there,
// and sets pKey->dwBitLength with it. pszBlobType: "RSAPRIVATEBLOB", "RSAFULLPRIVATEBLOB" or "PRIVATEBLOB" (kept as
// "RSAPRIVATEBLOB"). 0; NTE_INTERNAL_ERROR when the platform refuses; NTE_NO_MEMORY.
SECURITY_STATUS ProtectPrivateBlob(KSP_KEY* pKey, const BYTE* pbBlob, DWORD cbBlob, const WCHAR* pszBlobType);

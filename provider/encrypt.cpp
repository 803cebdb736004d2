// Encryption and decryption: both are the vault's work, the public key's operation included.
#include <string.h>

#include "keyvault/crypto_op.h"
#include "provider/entry_points.h"
#include "provider/key_object.h"
#include "provider/provider.h"
#include "provider/vault_call.h"
#include "support/guards.h"
#include "support/log.h"

namespace {

constexpr WCHAR kEncrypt[] = TEXT("KelvaroEncrypt");
constexpr WCHAR kDecrypt[] = TEXT("KelvaroDecrypt");

constexpr DWORD kAllowedFlags =
    NCRYPT_NO_PADDING_FLAG | NCRYPT_PAD_PKCS1_FLAG | NCRYPT_PAD_OAEP_FLAG | NCRYPT_SILENT_FLAG;

struct VaultTransform {
    const WCHAR* verb;
    const WCHAR* signInFailure;
};
constexpr VaultTransform kEncryption = {TEXT("encrypt"), TEXT("KelvaroEncrypt Authenticate Failed ")};
constexpr VaultTransform kDecryption = {TEXT("decrypt"), TEXT("KelvaroDecrypt Authenticate Failed ")};

// The padding information is not asked: its hash and label have no place in the vault's request. Without a padding bit
// the name stays empty, and the refusal is the vault's.
const WCHAR* AlgorithmName(DWORD dwFlags)
{
    if ((dwFlags & NCRYPT_PAD_OAEP_FLAG) != 0)
        return TEXT("RSA-OAEP");
    if ((dwFlags & NCRYPT_PAD_PKCS1_FLAG) != 0)
        return TEXT("RSA1_5");
    return TEXT("");
}

// Where the vault has the key. A copy: decryption takes pending keys too, which another thread may be finalizing.
struct VaultName {
    explicit VaultName(const KSP_KEY& key)
    {
        const ExclusiveLock lock(&key.lock);
        memcpy(name, key.kvk.keyName, sizeof(name));
        memcpy(version, key.kvk.version, sizeof(version));
    }

    WCHAR name[kEncodedNameChars];
    WCHAR version[kVersionChars];
};

// A NULL pbOutput is no shortcut: only the vault's answer tells the size.
SECURITY_STATUS Transform(const VaultTransform& transform, const KSP_PROVIDER& provider, const KSP_KEY& key,
                          const BYTE* pbInput, DWORD cbInput, BYTE* pbOutput, DWORD cbOutput, DWORD* pcbResult,
                          DWORD dwFlags)
{
    KVCCall call;
    const SECURITY_STATUS status =
        BeginVaultCall(ProviderClient(&provider, key.fMachineKey), transform.signInFailure, &call);
    if (status != ERROR_SUCCESS)
        return status;
    *pcbResult = cbOutput;
    const VaultName vault(key);
    return KVCCryptoOp(call.get(), transform.verb, vault.name, vault.version, 0, AlgorithmName(dwFlags), pbInput,
                       cbInput, pbOutput, pcbResult);
}

}  // namespace

SECURITY_STATUS WINAPI KelvaroEncrypt(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, PBYTE pbInput,
                                      DWORD cbInput, VOID* /*pPaddingInfo*/, PBYTE pbOutput, DWORD cbOutput,
                                      DWORD* pcbResult, DWORD dwFlags)
{
    LogLine(kEncrypt, LOG_ENTRY_LEVEL);
    const KSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    const KSP_KEY* key = KeyFromHandles(hProvider, hKey);
    if (!key)
        return Fail(NTE_INVALID_HANDLE, kEncrypt);
    if (key->fFinalized == 0)
        return Fail(NTE_BAD_KEY_STATE, kEncrypt);
    if (!pbInput || cbInput == 0 || !pcbResult)
        return Fail(NTE_INVALID_PARAMETER, kEncrypt);
    if ((dwFlags & ~kAllowedFlags) != 0 || (dwFlags & NCRYPT_NO_PADDING_FLAG) != 0)
        return Fail(NTE_BAD_FLAGS, kEncrypt);

    const SECURITY_STATUS status =
        Transform(kEncryption, *provider, *key, pbInput, cbInput, pbOutput, cbOutput, pcbResult, dwFlags);
    return status == ERROR_SUCCESS ? status : Fail(status, kEncrypt);
}

// The key's state is not tested, and the usage comes between the two flag tests.
SECURITY_STATUS WINAPI KelvaroDecrypt(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, PBYTE pbInput,
                                      DWORD cbInput, VOID* /*pPaddingInfo*/, PBYTE pbOutput, DWORD cbOutput,
                                      DWORD* pcbResult, DWORD dwFlags)
{
    LogLine(kDecrypt, LOG_ENTRY_LEVEL);
    const KSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    const KSP_KEY* key = KeyFromHandles(hProvider, hKey);
    if (!key)
        return Fail(NTE_INVALID_HANDLE, kDecrypt);
    if (!pbInput || cbInput == 0 || !pcbResult)
        return Fail(NTE_INVALID_PARAMETER, kDecrypt);
    if ((dwFlags & ~kAllowedFlags) != 0)
        return Fail(NTE_BAD_FLAGS, kDecrypt);
    if ((key->dwKeyUsage & NCRYPT_ALLOW_DECRYPT_FLAG) == 0)
        return Fail(NTE_PERM, kDecrypt);
    if ((dwFlags & NCRYPT_NO_PADDING_FLAG) != 0)
        return Fail(NTE_BAD_FLAGS, kDecrypt);

    const SECURITY_STATUS status =
        Transform(kDecryption, *provider, *key, pbInput, cbInput, pbOutput, cbOutput, pcbResult, dwFlags);
    return status == ERROR_SUCCESS ? status : Fail(status, kDecrypt);
}

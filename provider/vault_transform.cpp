#include "provider/vault_transform.h"

#include <string.h>

#include "keyvault/crypto_op.h"
#include "provider/vault_call.h"
#include "support/guards.h"

namespace {

// The padding information is ignored: a request can't carry its hash and label. Without a padding flag the name stays
// empty, and the vault refuses.
const WCHAR* AlgorithmName(DWORD dwFlags)
{
    if ((dwFlags & NCRYPT_PAD_OAEP_FLAG) != 0)
        return TEXT("RSA-OAEP");
    if ((dwFlags & NCRYPT_PAD_PKCS1_FLAG) != 0)
        return TEXT("RSA1_5");
    return TEXT("");
}

// The key's address in the vault. A copy: decryption accepts pending keys, which another thread may be finalizing.
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

}  // namespace

SECURITY_STATUS TransformInVault(const KSP_PROVIDER& provider, const KSP_KEY& key, const VaultTransform& transform,
                                 const HostOutput& output)
{
    KVCCall call;
    const SECURITY_STATUS status =
        BeginVaultCall(ProviderClient(&provider, key.fMachineKey), transform.signInFailure, &call);
    if (status != ERROR_SUCCESS)
        return status;
    *output.cbResult = output.size;
    const VaultName vault(key);
    return KVCCryptoOp(call.get(), transform.verb, vault.name, vault.version, 0, AlgorithmName(transform.dwFlags),
                       transform.input, transform.cbInput, output.bytes, output.cbResult);
}

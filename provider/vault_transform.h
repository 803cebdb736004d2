// Encryption and decryption. The vault does both, even the public key operation.
#pragma once

#include "provider/answers.h"
#include "provider/key_object.h"
#include "provider/provider.h"

constexpr DWORD kTransformFlags =
    NCRYPT_NO_PADDING_FLAG | NCRYPT_PAD_PKCS1_FLAG | NCRYPT_PAD_OAEP_FLAG | NCRYPT_SILENT_FLAG;

struct VaultTransform {
    const WCHAR* verb;           // the vault's: "encrypt" or "decrypt"
    const WCHAR* signInFailure;  // log text
    const BYTE* input;
    DWORD cbInput;
    DWORD dwFlags;
};

// Runs the operation even if the output is NULL, since only the vault's answer has the size. 0 or the status of
// BeginVaultCall or KVCCryptoOp. Blocks for one exchange, longer for a sign-in or when throttled.
SECURITY_STATUS TransformInVault(const KSP_PROVIDER& provider, const KSP_KEY& key, const VaultTransform& transform,
                                 const HostOutput& output);

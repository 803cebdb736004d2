#include <cstring>

#include "kelvaroctl/doctor/signature_check.h"
#include "kelvaroctl/hash.h"

namespace kelvaroctl {

namespace {

const WCHAR* ProviderOf(const SignatureAlgorithm& algorithm)
{
    if (algorithm.family != SignatureFamily::Curve)
        return BCRYPT_RSA_ALGORITHM;
    return algorithm.digestSize == 32   ? BCRYPT_ECDSA_P256_ALGORITHM
           : algorithm.digestSize == 48 ? BCRYPT_ECDSA_P384_ALGORITHM
                                        : BCRYPT_ECDSA_P521_ALGORITHM;
}

// The blob with the curve's magic number for signatures: the module may export that for key agreement.
Bytes ForSignatures(Bytes blob)
{
    const PublicKey key = ParsePublicBlob(blob);
    if (!key.isRsa)
        std::memcpy(blob.data(), &key.curve->ecdsaMagic, sizeof(ULONG));
    return blob;
}

}  // namespace

bool IsSignatureOf(const Bytes& blob, const SignatureAlgorithm& algorithm, const Bytes& digest, const Bytes& signature)
{
    const bool curve = algorithm.family == SignatureFamily::Curve;
    Bytes imported = ForSignatures(blob);
    BCRYPT_ALG_HANDLE provider = nullptr;
    if (!BCRYPT_SUCCESS(BCryptOpenAlgorithmProvider(&provider, ProviderOf(algorithm), nullptr, 0)))
        return false;
    const AlgorithmProvider ownedProvider(provider);
    BCRYPT_KEY_HANDLE key = nullptr;
    if (!BCRYPT_SUCCESS(BCryptImportKeyPair(provider, nullptr, curve ? BCRYPT_ECCPUBLIC_BLOB : BCRYPT_RSAPUBLIC_BLOB,
                                            &key, imported.data(), static_cast<ULONG>(imported.size()), 0)))
        return false;
    const Owner<void, BCryptDestroyKey> ownedKey(key);
    const Padding padding(algorithm);
    return BCRYPT_SUCCESS(BCryptVerifySignature(key, padding.info, const_cast<BYTE*>(digest.data()),
                                                static_cast<ULONG>(digest.size()), const_cast<BYTE*>(signature.data()),
                                                static_cast<ULONG>(signature.size()), padding.flags));
}

}  // namespace kelvaroctl

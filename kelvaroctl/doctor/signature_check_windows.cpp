#include <cstring>

#include "kelvaroctl/doctor/signature_check.h"

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
    BCRYPT_KEY_HANDLE key = nullptr;
    BCRYPT_PKCS1_PADDING_INFO padding = {algorithm.hash};
    const bool good =
        BCRYPT_SUCCESS(BCryptOpenAlgorithmProvider(&provider, ProviderOf(algorithm), nullptr, 0)) &&
        BCRYPT_SUCCESS(BCryptImportKeyPair(provider, nullptr, curve ? BCRYPT_ECCPUBLIC_BLOB : BCRYPT_RSAPUBLIC_BLOB,
                                           &key, imported.data(), static_cast<ULONG>(imported.size()), 0)) &&
        BCRYPT_SUCCESS(BCryptVerifySignature(key, curve ? nullptr : &padding, const_cast<BYTE*>(digest.data()),
                                             static_cast<ULONG>(digest.size()), const_cast<BYTE*>(signature.data()),
                                             static_cast<ULONG>(signature.size()), curve ? 0 : BCRYPT_PAD_PKCS1));
    if (key)
        BCryptDestroyKey(key);
    if (provider)
        BCryptCloseAlgorithmProvider(provider, 0);
    return good;
}

}  // namespace kelvaroctl

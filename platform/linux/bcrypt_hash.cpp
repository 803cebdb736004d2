// Hashes from OpenSSL. An algorithm handle is OpenSSL's constant description of the digest, which nobody frees.
#include <openssl/evp.h>

#include "platform/linux/text.h"
#include "platform/platform.h"

namespace {
struct Digest {
    std::u16string_view name;
    const EVP_MD* (*description)();
};

constexpr Digest kDigests[] = {
    {BCRYPT_SHA1_ALGORITHM, EVP_sha1},
    {BCRYPT_SHA256_ALGORITHM, EVP_sha256},
    {BCRYPT_SHA384_ALGORITHM, EVP_sha384},
    {BCRYPT_SHA512_ALGORITHM, EVP_sha512},
};
}  // namespace

NTSTATUS WINAPI BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* algorithm, LPCWSTR name, LPCWSTR, ULONG flags)
{
    if (!algorithm || !name || flags)
        return STATUS_INVALID_PARAMETER;
    for (const Digest& digest : kDigests) {
        if (digest.name == name) {
            *algorithm = const_cast<EVP_MD*>(digest.description());
            return STATUS_SUCCESS;
        }
    }
    return STATUS_NOT_FOUND;
}

NTSTATUS WINAPI BCryptCloseAlgorithmProvider(BCRYPT_ALG_HANDLE algorithm, ULONG)
{
    return algorithm ? STATUS_SUCCESS : STATUS_INVALID_HANDLE;
}

NTSTATUS WINAPI BCryptCreateHash(BCRYPT_ALG_HANDLE algorithm, BCRYPT_HASH_HANDLE* hash, PUCHAR, ULONG, PUCHAR secret,
                                 ULONG secretSize, ULONG flags)
{
    if (!algorithm)
        return STATUS_INVALID_HANDLE;
    if (!hash || secret || secretSize || flags)
        return STATUS_INVALID_PARAMETER;
    EVP_MD_CTX* const context = EVP_MD_CTX_new();
    if (!context)
        return STATUS_NO_MEMORY;
    if (EVP_DigestInit_ex(context, static_cast<const EVP_MD*>(algorithm), nullptr) != 1) {
        EVP_MD_CTX_free(context);
        return STATUS_UNSUCCESSFUL;
    }
    *hash = context;
    return STATUS_SUCCESS;
}

NTSTATUS WINAPI BCryptHashData(BCRYPT_HASH_HANDLE hash, PUCHAR input, ULONG size, ULONG)
{
    if (!hash)
        return STATUS_INVALID_HANDLE;
    return EVP_DigestUpdate(static_cast<EVP_MD_CTX*>(hash), input, size) == 1 ? STATUS_SUCCESS : STATUS_UNSUCCESSFUL;
}

NTSTATUS WINAPI BCryptFinishHash(BCRYPT_HASH_HANDLE hash, PUCHAR output, ULONG size, ULONG)
{
    if (!hash)
        return STATUS_INVALID_HANDLE;
    EVP_MD_CTX* const context = static_cast<EVP_MD_CTX*>(hash);
    if (!output || EVP_MD_CTX_get_size(context) != static_cast<int>(size))
        return STATUS_INVALID_PARAMETER;
    return EVP_DigestFinal_ex(context, output, nullptr) == 1 ? STATUS_SUCCESS : STATUS_UNSUCCESSFUL;
}

NTSTATUS WINAPI BCryptDestroyHash(BCRYPT_HASH_HANDLE hash)
{
    if (!hash)
        return STATUS_INVALID_HANDLE;
    EVP_MD_CTX_free(static_cast<EVP_MD_CTX*>(hash));
    return STATUS_SUCCESS;
}

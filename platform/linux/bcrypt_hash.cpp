// Hashes from OpenSSL.
#include "platform/linux/bcrypt_algorithm.h"

NTSTATUS WINAPI BCryptCreateHash(BCRYPT_ALG_HANDLE algorithm, BCRYPT_HASH_HANDLE* hash, PUCHAR, ULONG, PUCHAR secret,
                                 ULONG secretSize, ULONG flags)
{
    const BcryptAlgorithm* const row = FindBcryptAlgorithm(algorithm);
    if (!row || !row->digest)
        return STATUS_INVALID_HANDLE;
    if (!hash || secret || secretSize || flags || row->flags)
        return STATUS_INVALID_PARAMETER;
    EVP_MD_CTX* const context = EVP_MD_CTX_new();
    if (!context)
        return STATUS_NO_MEMORY;
    if (EVP_DigestInit_ex(context, row->digest(), nullptr) != 1) {
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

#include "platform/linux/bcrypt_algorithm.h"

#include "platform/find_row.h"

namespace {

const EVP_CIPHER* AesOf(ULONG keySize)
{
    switch (keySize) {
        case 16:
            return EVP_aes_128_cbc();
        case 24:
            return EVP_aes_192_cbc();
        case 32:
            return EVP_aes_256_cbc();
        default:
            return nullptr;
    }
}

const EVP_CIPHER* TripleDesOf(ULONG keySize)
{
    return keySize == 24 ? EVP_des_ede3_cbc() : nullptr;
}

constexpr BcryptAlgorithm kAlgorithms[] = {
    {BCRYPT_SHA1_ALGORITHM, 0, EVP_sha1, nullptr},
    {BCRYPT_SHA256_ALGORITHM, 0, EVP_sha256, nullptr},
    {BCRYPT_SHA384_ALGORITHM, 0, EVP_sha384, nullptr},
    {BCRYPT_SHA512_ALGORITHM, 0, EVP_sha512, nullptr},
    {BCRYPT_SHA1_ALGORITHM, BCRYPT_ALG_HANDLE_HMAC_FLAG, EVP_sha1, nullptr},
    {BCRYPT_SHA256_ALGORITHM, BCRYPT_ALG_HANDLE_HMAC_FLAG, EVP_sha256, nullptr},
    {BCRYPT_SHA384_ALGORITHM, BCRYPT_ALG_HANDLE_HMAC_FLAG, EVP_sha384, nullptr},
    {BCRYPT_SHA512_ALGORITHM, BCRYPT_ALG_HANDLE_HMAC_FLAG, EVP_sha512, nullptr},
    {BCRYPT_AES_ALGORITHM, 0, nullptr, AesOf},
    {BCRYPT_3DES_ALGORITHM, 0, nullptr, TripleDesOf},
};

}  // namespace

const BcryptAlgorithm* FindBcryptAlgorithm(BCRYPT_ALG_HANDLE handle)
{
    return FindRow(kAlgorithms, [handle](const BcryptAlgorithm& row) { return &row == handle; });
}

NTSTATUS WINAPI BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* algorithm, LPCWSTR name, LPCWSTR, ULONG flags)
{
    if (!algorithm || !name || (flags & ~BCRYPT_ALG_HANDLE_HMAC_FLAG))
        return STATUS_INVALID_PARAMETER;
    const BcryptAlgorithm* found =
        FindRow(kAlgorithms, [=](const BcryptAlgorithm& row) { return row.name == name && row.flags == flags; });
    if (!found)
        return STATUS_NOT_FOUND;
    *algorithm = const_cast<BcryptAlgorithm*>(found);
    return STATUS_SUCCESS;
}

NTSTATUS WINAPI BCryptCloseAlgorithmProvider(BCRYPT_ALG_HANDLE algorithm, ULONG)
{
    return FindBcryptAlgorithm(algorithm) ? STATUS_SUCCESS : STATUS_INVALID_HANDLE;
}

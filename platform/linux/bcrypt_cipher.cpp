// Ciphers from OpenSSL, for decryption only.
#include <limits.h>
#include <string.h>

#include "platform/linux/bcrypt_algorithm.h"
#include "platform/linux/openssl_errors.h"
#include "platform/linux/openssl_pointers.h"

namespace {

constexpr uint32_t kKeyMagic = 0x79654B53;

// What is in the caller's key object.
struct SymmetricKey {
    uint32_t magic;
    const EVP_CIPHER* cipher;
    BYTE key[EVP_MAX_KEY_LENGTH];
    BYTE iv[EVP_MAX_IV_LENGTH];
};

using CipherContext = Owner<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>;

SymmetricKey* FindKey(BCRYPT_KEY_HANDLE handle)
{
    SymmetricKey* const key = static_cast<SymmetricKey*>(handle);
    return key && key->magic == kKeyMagic ? key : nullptr;
}

NTSTATUS SetInitializationVector(SymmetricKey* key, const BYTE* iv, ULONG size)
{
    if (size != static_cast<ULONG>(EVP_CIPHER_get_iv_length(key->cipher)))
        return STATUS_INVALID_PARAMETER;
    memcpy(key->iv, iv, size);
    return STATUS_SUCCESS;
}

// `size` includes the terminator.
NTSTATUS SetChainingMode(const BYTE* mode, ULONG size)
{
    return size == sizeof(BCRYPT_CHAIN_MODE_CBC) && memcmp(mode, BCRYPT_CHAIN_MODE_CBC, size) == 0
               ? STATUS_SUCCESS
               : STATUS_NOT_SUPPORTED;
}

}  // namespace

NTSTATUS WINAPI BCryptGetProperty(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR output, ULONG outputSize,
                                  ULONG* result, ULONG flags)
{
    const BcryptAlgorithm* const algorithm = FindBcryptAlgorithm(object);
    if (!algorithm)
        return STATUS_INVALID_HANDLE;
    if (!property || !result || flags)
        return STATUS_INVALID_PARAMETER;
    if (!algorithm->cipher || std::u16string_view(property) != BCRYPT_OBJECT_LENGTH)
        return STATUS_NOT_SUPPORTED;
    const DWORD size = sizeof(SymmetricKey);
    *result = sizeof size;
    if (!output)
        return STATUS_SUCCESS;
    if (outputSize < sizeof size)
        return STATUS_BUFFER_TOO_SMALL;
    memcpy(output, &size, sizeof size);
    return STATUS_SUCCESS;
}

NTSTATUS WINAPI BCryptGenerateSymmetricKey(BCRYPT_ALG_HANDLE algorithm, BCRYPT_KEY_HANDLE* key, PUCHAR object,
                                           ULONG objectSize, PUCHAR secret, ULONG secretSize, ULONG flags)
{
    const BcryptAlgorithm* const row = FindBcryptAlgorithm(algorithm);
    if (!row || !row->cipher)
        return STATUS_INVALID_HANDLE;
    const EVP_CIPHER* const cipher = row->cipher(secretSize);
    if (!key || !object || !secret || flags || !cipher)
        return STATUS_INVALID_PARAMETER;
    if (objectSize < sizeof(SymmetricKey))
        return STATUS_BUFFER_TOO_SMALL;
    SymmetricKey* const made = reinterpret_cast<SymmetricKey*>(object);
    *made = {kKeyMagic, cipher, {}, {}};
    memcpy(made->key, secret, secretSize);
    *key = made;
    return STATUS_SUCCESS;
}

NTSTATUS WINAPI BCryptSetProperty(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR input, ULONG inputSize, ULONG flags)
{
    if (FindBcryptAlgorithm(object))
        return STATUS_NOT_SUPPORTED;
    SymmetricKey* const key = FindKey(object);
    if (!key)
        return STATUS_INVALID_HANDLE;
    if (!property || !input || flags)
        return STATUS_INVALID_PARAMETER;
    if (std::u16string_view(property) == BCRYPT_CHAINING_MODE)
        return SetChainingMode(input, inputSize);
    if (std::u16string_view(property) == BCRYPT_INITIALIZATION_VECTOR)
        return SetInitializationVector(key, input, inputSize);
    return STATUS_NOT_SUPPORTED;
}

NTSTATUS WINAPI BCryptDecrypt(BCRYPT_KEY_HANDLE key, PUCHAR input, ULONG inputSize, VOID* paddingInfo, PUCHAR iv,
                              ULONG ivSize, PUCHAR output, ULONG outputSize, ULONG* result, ULONG flags)
{
    const SymmetricKey* const found = FindKey(key);
    if (!found)
        return STATUS_INVALID_HANDLE;
    if (!input || paddingInfo || iv || ivSize || !result || flags != BCRYPT_BLOCK_PADDING || inputSize > INT_MAX)
        return STATUS_INVALID_PARAMETER;
    if (inputSize == 0 || inputSize % static_cast<ULONG>(EVP_CIPHER_get_block_size(found->cipher)) != 0)
        return STATUS_INVALID_BUFFER_SIZE;
    *result = inputSize;
    if (!output)
        return STATUS_SUCCESS;
    if (outputSize < inputSize)
        return STATUS_BUFFER_TOO_SMALL;
    const QuietOpenssl quiet;
    const CipherContext context(EVP_CIPHER_CTX_new());
    if (!context)
        return STATUS_NO_MEMORY;
    int written = 0;
    int last = 0;
    if (EVP_DecryptInit_ex(context.get(), found->cipher, nullptr, found->key, found->iv) != 1 ||
        EVP_DecryptUpdate(context.get(), output, &written, input, static_cast<int>(inputSize)) != 1 ||
        EVP_DecryptFinal_ex(context.get(), output + written, &last) != 1)
        return STATUS_UNSUCCESSFUL;
    *result = static_cast<ULONG>(written + last);
    return STATUS_SUCCESS;
}

NTSTATUS WINAPI BCryptDestroyKey(BCRYPT_KEY_HANDLE key)
{
    SymmetricKey* const found = FindKey(key);
    if (!found)
        return STATUS_INVALID_HANDLE;
    SecureZeroMemory(found, sizeof *found);
    return STATUS_SUCCESS;
}

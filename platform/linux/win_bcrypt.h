// Hashing, key derivation and ciphers for the Linux build, on OpenSSL: SHA1, SHA256, SHA384, SHA512, AES and 3DES.
#pragma once

#include "platform/linux/win_constants.h"

using BCRYPT_HANDLE = PVOID;
using BCRYPT_ALG_HANDLE = PVOID;
using BCRYPT_HASH_HANDLE = PVOID;
using BCRYPT_KEY_HANDLE = PVOID;

#define BCRYPT_SUCCESS(status) ((status) >= 0)

#define BCRYPT_AES_ALGORITHM u"AES"
#define BCRYPT_3DES_ALGORITHM u"3DES"

#define BCRYPT_OBJECT_LENGTH u"ObjectLength"
#define BCRYPT_CHAINING_MODE u"ChainingMode"
#define BCRYPT_CHAIN_MODE_CBC u"ChainingModeCBC"
#define BCRYPT_INITIALIZATION_VECTOR u"IV"

// STATUS_NOT_FOUND for an unsupported algorithm. `implementation` is ignored; of the flags only
// BCRYPT_ALG_HANDLE_HMAC_FLAG, for a hash.
NTSTATUS WINAPI BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* algorithm, LPCWSTR name, LPCWSTR implementation,
                                            ULONG flags);
NTSTATUS WINAPI BCryptCloseAlgorithmProvider(BCRYPT_ALG_HANDLE algorithm, ULONG flags);

// BCRYPT_OBJECT_LENGTH of a cipher. STATUS_NOT_SUPPORTED for anything else.
NTSTATUS WINAPI BCryptGetProperty(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR output, ULONG outputSize,
                                  ULONG* result, ULONG flags);
// Of a key: BCRYPT_CHAINING_MODE, which must be CBC, and BCRYPT_INITIALIZATION_VECTOR, of a block's size.
NTSTATUS WINAPI BCryptSetProperty(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR input, ULONG inputSize, ULONG flags);

// The library allocates the object: the caller's buffer is not used. No secret: keyed hashes are not
// supported.
NTSTATUS WINAPI BCryptCreateHash(BCRYPT_ALG_HANDLE algorithm, BCRYPT_HASH_HANDLE* hash, PUCHAR object, ULONG objectSize,
                                 PUCHAR secret, ULONG secretSize, ULONG flags);
NTSTATUS WINAPI BCryptHashData(BCRYPT_HASH_HANDLE hash, PUCHAR input, ULONG size, ULONG flags);
// `size` must be the digest's. Only BCryptDestroyHash may follow.
NTSTATUS WINAPI BCryptFinishHash(BCRYPT_HASH_HANDLE hash, PUCHAR output, ULONG size, ULONG flags);
NTSTATUS WINAPI BCryptDestroyHash(BCRYPT_HASH_HANDLE hash);

// prf: a hash that was opened with BCRYPT_ALG_HANDLE_HMAC_FLAG.
NTSTATUS WINAPI BCryptDeriveKeyPBKDF2(BCRYPT_ALG_HANDLE prf, PUCHAR password, ULONG passwordSize, PUCHAR salt,
                                      ULONG saltSize, ULONGLONG iterations, PUCHAR derived, ULONG derivedSize,
                                      ULONG flags);

// The key is kept in `object`, which must have room for BCRYPT_OBJECT_LENGTH. secret: 16, 24 or 32 bytes for
// AES, 24 for 3DES.
NTSTATUS WINAPI BCryptGenerateSymmetricKey(BCRYPT_ALG_HANDLE algorithm, BCRYPT_KEY_HANDLE* key, PUCHAR object,
                                           ULONG objectSize, PUCHAR secret, ULONG secretSize, ULONG flags);
// CBC with BCRYPT_BLOCK_PADDING under the key's own initialization vector: an `iv` is refused. Without `output`:
// *result is an upper bound. STATUS_INVALID_BUFFER_SIZE: not whole blocks. STATUS_UNSUCCESSFUL: the padding.
NTSTATUS WINAPI BCryptDecrypt(BCRYPT_KEY_HANDLE key, PUCHAR input, ULONG inputSize, VOID* paddingInfo, PUCHAR iv,
                              ULONG ivSize, PUCHAR output, ULONG outputSize, ULONG* result, ULONG flags);
NTSTATUS WINAPI BCryptDestroyKey(BCRYPT_KEY_HANDLE key);

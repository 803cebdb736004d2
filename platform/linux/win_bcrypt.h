// Hashing for the Linux build: SHA1, SHA256, SHA384 and SHA512, on OpenSSL.
#pragma once

#include "platform/linux/win_types.h"

using BCRYPT_HANDLE = PVOID;
using BCRYPT_ALG_HANDLE = PVOID;
using BCRYPT_HASH_HANDLE = PVOID;

#define BCRYPT_SUCCESS(status) ((status) >= 0)

// STATUS_NOT_FOUND for an algorithm that is not offered. `implementation` is not looked at; no flags.
NTSTATUS WINAPI BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* algorithm, LPCWSTR name, LPCWSTR implementation,
                                            ULONG flags);
NTSTATUS WINAPI BCryptCloseAlgorithmProvider(BCRYPT_ALG_HANDLE algorithm, ULONG flags);

// The object's memory is the library's own: a buffer that is given is not used. No secret: keyed hashes are not
// offered.
NTSTATUS WINAPI BCryptCreateHash(BCRYPT_ALG_HANDLE algorithm, BCRYPT_HASH_HANDLE* hash, PUCHAR object, ULONG objectSize,
                                 PUCHAR secret, ULONG secretSize, ULONG flags);
NTSTATUS WINAPI BCryptHashData(BCRYPT_HASH_HANDLE hash, PUCHAR input, ULONG size, ULONG flags);
// `size` must be the digest's. Only BCryptDestroyHash may follow.
NTSTATUS WINAPI BCryptFinishHash(BCRYPT_HASH_HANDLE hash, PUCHAR output, ULONG size, ULONG flags);
NTSTATUS WINAPI BCryptDestroyHash(BCRYPT_HASH_HANDLE hash);

// What a BCrypt algorithm handle points to: a constant that is never freed.
#pragma once

#include <openssl/evp.h>

#include <string_view>

#include "platform/platform.h"

struct BcryptAlgorithm {
    std::u16string_view name;
    ULONG flags;                // with which it is opened
    const EVP_MD* (*digest)();  // of a hash, else NULL
    // The CBC cipher for a key size in bytes, or NULL for an unsupported size. The pointer is NULL for a hash.
    const EVP_CIPHER* (*cipher)(ULONG keySize);
};

// NULL for an invalid handle.
const BcryptAlgorithm* FindBcryptAlgorithm(BCRYPT_ALG_HANDLE handle);

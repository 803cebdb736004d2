// What an algorithm handle of BCrypt leads to: a constant, which nobody frees.
#pragma once

#include <openssl/evp.h>

#include <string_view>

#include "platform/platform.h"

struct BcryptAlgorithm {
    std::u16string_view name;
    ULONG flags;                // with which it is opened
    const EVP_MD* (*digest)();  // of a hash, else NULL
    // The cipher in CBC under a key of so many bytes, or NULL when there is none; NULL for a hash.
    const EVP_CIPHER* (*cipher)(ULONG keySize);
};

// NULL for a handle that was never handed out.
const BcryptAlgorithm* FindBcryptAlgorithm(BCRYPT_ALG_HANDLE handle);

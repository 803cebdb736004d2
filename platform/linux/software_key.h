// The keys of the platform's own key storage provider.
#pragma once

#include <string>
#include <string_view>

#include "platform/linux/win_ncrypt.h"

// The size of the modulus, and so of a signature, in bytes. NTE_INVALID_HANDLE; NTE_BAD_KEY_STATE before the key is
// finalized.
LONG SoftwareSignatureSize(NCRYPT_KEY_HANDLE key, size_t* size);

// RSA PKCS#1 over the digest of `message`. digestName: OpenSSL's name. Fails as above, and with NTE_FAIL.
LONG SignWithSoftwareKey(NCRYPT_KEY_HANDLE key, const char* digestName, std::string_view message,
                         std::string* signature);

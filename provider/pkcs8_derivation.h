// The key of an encrypted PKCS#8 key, from its password.
#pragma once

#include "platform/owner.h"
#include "provider/import_memory.h"
#include "provider/pkcs8_scheme.h"

// The host's password: UTF-16 up to a zero character or the end of its bytes. Borrowed.
class Pkcs8Password {
  public:
    // secret: NULL for none.
    Pkcs8Password(const BYTE* secret, DWORD cbSecret);

    // For PBKDF2: UTF-8 without a terminator.
    SECURITY_STATUS AsUtf8(WipedBlock* bytes) const;
    // For PKCS#12: UTF-16 with the high byte first and a terminator; nothing without a password.
    SECURITY_STATUS AsBigEndian(WipedBlock* bytes) const;

  private:
    const BYTE* secret_;
    size_t length_ = 0;  // characters
};

struct Pkcs8CipherKey : private NonCopyable {
    ~Pkcs8CipherKey() { Wipe(this, sizeof(*this)); }

    BYTE key[kLargestCipherKey] = {};
    BYTE iv[kLargestCipherBlock] = {};
};

// 0; NTE_INVALID_PARAMETER: a password over 32767 characters; NTE_NO_MEMORY; the status of the platform's hash.
SECURITY_STATUS DeriveByPbkdf2(const Pkcs8Encryption& encryption, const Pkcs8Password& password, Pkcs8CipherKey* key);
SECURITY_STATUS DeriveByPkcs12(const Pkcs8Encryption& encryption, const Pkcs8Password& password, Pkcs8CipherKey* key);

// The key of an encrypted PKCS#8 key, from its password.
#pragma once

#include "provider/import_memory.h"
#include "provider/pkcs8_scheme.h"

// The host's password: UTF-16 text up to a zero character or to the end of its bytes. Borrowed.
class Pkcs8Password {
  public:
    // secret: may be NULL, for none.
    Pkcs8Password(const BYTE* secret, DWORD cbSecret);

    // PBKDF2 takes the bytes of the UTF-8 form, without a terminator.
    SECURITY_STATUS AsUtf8(WipedBlock* bytes) const;
    // PKCS#12 takes UTF-16 with the high byte first, its terminator too; nothing at all when there is no password.
    SECURITY_STATUS AsBigEndian(WipedBlock* bytes) const;

  private:
    const BYTE* secret_;
    size_t length_ = 0;  // characters
};

struct Pkcs8CipherKey {
    Pkcs8CipherKey() = default;
    ~Pkcs8CipherKey() { Wipe(this, sizeof(*this)); }
    Pkcs8CipherKey(const Pkcs8CipherKey&) = delete;
    Pkcs8CipherKey& operator=(const Pkcs8CipherKey&) = delete;

    BYTE key[kLargestCipherKey] = {};
    BYTE iv[kLargestCipherBlock] = {};
};

// NTE_INVALID_PARAMETER: a password of over 32767 characters; NTE_NO_MEMORY; what the platform's hashes answer.
SECURITY_STATUS DeriveByPbkdf2(const Pkcs8Encryption& encryption, const Pkcs8Password& password, Pkcs8CipherKey* key);
SECURITY_STATUS DeriveByPkcs12(const Pkcs8Encryption& encryption, const Pkcs8Password& password, Pkcs8CipherKey* key);

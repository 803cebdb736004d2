// Enveloped messages and serialized stores as others make them.
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

#include "tests/common/host.h"

// A recipient: a certificate of its own, and the key that belongs to it.
class Recipient {
  public:
    Recipient();

    Bytes Certificate() const;
    // The key as a container's file, under a password if there is one.
    std::string ContainerPem(const char* password = nullptr) const;
    // cipher: "AES-256-CBC", OpenSSL's name.
    Bytes Seal(const Bytes& plain, const char* cipher = "AES-256-CBC") const;

  private:
    std::shared_ptr<EVP_PKEY> key_;
    std::shared_ptr<X509> certificate_;
};

// A record of a serialized store.
Bytes StoreRecord(DWORD id, const Bytes& data);
// The property that names a container. wide: with offsets of 64 bits.
Bytes ProviderInfo(const std::string& container, DWORD flags, bool wide = false);
// A whole store around its records.
Bytes SerializedStore(const Bytes& records);

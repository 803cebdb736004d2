// A public key in OpenSSL's hands: the second opinion on what the tool says and writes.
#pragma once

#include <memory>
#include <string>

struct evp_pkey_st;

class OpensslKey {
  public:
    explicit OpensslKey(const std::string& pem);

    std::string Der() const;          // SubjectPublicKeyInfo
    std::string Fingerprint() const;  // SHA-256 of it, hexadecimal
    // hash: "SHA256"; pss: RSA with PSS, the salt as long as the hash. Curve signatures in DER.
    bool Verifies(const std::string& data, const std::string& signature, const std::string& hash, bool pss) const;
    // RSA: OAEP with SHA-1, or PKCS#1.
    std::string Encrypt(const std::string& data, bool oaep) const;

  private:
    std::shared_ptr<evp_pkey_st> key_;
};

// Hexadecimal digest of data.
std::string HexDigest(const std::string& data, const std::string& hash);

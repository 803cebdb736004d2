// A public key in OpenSSL's hands: the second opinion on what the tool says and writes.
#pragma once

#include <memory>
#include <string>

struct evp_pkey_st;

class OpensslKey {
  public:
    explicit OpensslKey(const std::string& pem);
    // A CNG public blob, read by its published layout alone. group: of a curve whose magic word does not tell it.
    static OpensslKey FromCngBlob(const std::string& blob, const std::string& group = "");
    static OpensslKey FromJwk(const std::string& jwk);

    std::string Pem() const;
    std::string Der() const;          // SubjectPublicKeyInfo
    std::string Fingerprint() const;  // SHA-256 of it, hexadecimal
    // hash: "SHA256"; pss: RSA with PSS, the salt as long as the hash. Curve signatures in DER.
    bool Verifies(const std::string& data, const std::string& signature, const std::string& hash, bool pss) const;
    // The same over a digest of any size; signatures as the service makes them, of a curve r and s side by side.
    bool VerifiesDigest(const std::string& digest, const std::string& signature, const std::string& hash,
                        bool pss) const;

  private:
    explicit OpensslKey(evp_pkey_st* key);
    static OpensslKey FromNumbers(const std::string& modulus, const std::string& exponent);
    static OpensslKey FromPoint(const std::string& group, const std::string& x, const std::string& y);

    std::shared_ptr<evp_pkey_st> key_;
};

std::string FromBase64Url(std::string text);
// Hexadecimal digest of data.
std::string HexDigest(const std::string& data, const std::string& hash);

// A public key that other code checks, OpenSSL on Linux and Windows' own CNG on Windows: the second opinion on what the
// provider and the tool say and write.
#pragma once

#include <string>

enum class SignatureForm {
    Plain,  // RSA with PKCS#1, or a curve's r and s side by side, as the service makes them
    Pss,    // RSA with a salt as long as the hash
    Der     // a curve's r and s as a sequence of two numbers
};

class IndependentKey {
  public:
    explicit IndependentKey(const std::string& pem);
    // A CNG public blob of RSA or a NIST curve, read by its published layout alone.
    static IndependentKey FromCngBlob(const std::string& blob);
    static IndependentKey FromJwk(const std::string& jwk);

    const std::string& Der() const { return der_; }  // SubjectPublicKeyInfo
    std::string Fingerprint() const;                 // SHA-256 of it, hexadecimal
    // Whether Verifies can judge this signature. Some Windows runtimes misread a curve's signature with a zero in front
    // of r or s, one in a hundred: sign again.
    bool CanTellOf(const std::string& signature, SignatureForm form) const;
    // digest: of any size. hash: its name, "SHA256"; unused with a curve.
    bool Verifies(const std::string& digest, const std::string& signature, const std::string& hash,
                  SignatureForm form) const;

  private:
    IndependentKey() = default;
    static IndependentKey FromNumbers(const std::string& modulus, const std::string& exponent);
    static IndependentKey FromPoint(const std::string& group, const std::string& x, const std::string& y);

    std::string der_;
};

// Two big-endian numbers as a sequence: an RSA key or a curve's signature.
std::string DerOfPair(const std::string& first, const std::string& second);
std::string FromBase64Url(const std::string& text);  // of either alphabet
std::string Digest(const std::string& data, const std::string& hash);
std::string HexDigest(const std::string& data, const std::string& hash);

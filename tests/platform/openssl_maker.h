// Keys, requests and certificates made by OpenSSL, and its second opinion on what the layer makes.
#pragma once

#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <memory>
#include <string>

#include "platform/platform.h"

constexpr DWORD kEncodings = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

struct OpensslObjectFreer {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(X509_REQ* request) const { X509_REQ_free(request); }
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
template <typename T>
using OpensslPtr = std::unique_ptr<T, OpensslObjectFreer>;

inline OpensslPtr<EVP_PKEY> MakeEcKey()
{
    return OpensslPtr<EVP_PKEY>(EVP_EC_gen("P-256"));
}
OpensslPtr<EVP_PKEY> MakeRsaPublicKey(int bits);     // quick: there is no private half
OpensslPtr<X509> ParseX509(const std::string& der);  // NULL if it isn't a certificate, or if something follows it

// In DER. A request for `key` with an attribute that asks for extensions; the signature is another key's.
std::string MakeRequest(EVP_PKEY* key, const std::string& commonName);
// A self-signed one of version 3, with one critical extension, valid for the years 2000 to 2060.
std::string MakeCertificate(const std::string& commonName, long serial);

// A certificate with its key; `issuer` NULL makes a root of its own. The days are relative to today.
class Credentials {
  public:
    Credentials(const std::string& name, const Credentials* issuer, long firstDay, long lastDay);

    // The certificate alone; with the mode "a" behind what the file holds.
    void WritePem(const std::string& file, const char* mode = "w") const;
    X509* certificate() const { return certificate_.get(); }
    EVP_PKEY* key() const { return key_.get(); }

  private:
    OpensslPtr<EVP_PKEY> key_ = MakeEcKey();
    OpensslPtr<X509> certificate_;
};

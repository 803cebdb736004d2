// Requests, certificates and names as OpenSSL makes them: what the layer is given, and the second opinion on what it
// makes.
#pragma once

#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <vector>

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

using Der = std::vector<BYTE>;

OpensslPtr<EVP_PKEY> MakeEcKey();
OpensslPtr<EVP_PKEY> MakeRsaPublicKey(int bits);  // made in no time: there is no private half to it
OpensslPtr<X509> ParseX509(const Der& der);       // NULL when it is none, or when something follows it

// A request for `key` with an attribute that asks for extensions. The signature is another key's.
Der MakeRequest(EVP_PKEY* key, const std::string& commonName);

// Version 3, with one critical extension, valid for the years 2000 to 2060; made by its own key.
Der MakeCertificate(const std::string& commonName, long serial);

// Upper-case digits.
std::string HexText(const BYTE* bytes, size_t size);

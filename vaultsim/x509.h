// Making and reading certificates.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vaultsim/openssl_ptr.h"

namespace vaultsim {

struct CertificateSpec {
    std::string subject;
    std::vector<std::string> dnsNames;
    bool authority = false;
    int64_t notBefore = 0;
    int64_t notAfter = 0;
    EVP_PKEY* publicKey = nullptr;
    X509* issuer = nullptr;      // null: signed by itself
    EVP_PKEY* signer = nullptr;  // the issuer's key
};

X509Ptr MakeCertificate(const CertificateSpec& spec);  // throws std::runtime_error

X509Ptr CertificateFromDer(const std::string& der);  // null where it is none; bytes behind it count as wrong
X509Ptr CertificateFromPem(const std::string& pem);  // the first certificate in the text, or null
std::string ToDer(X509* certificate);
std::string ToPem(X509* certificate);
std::string Sha1(const std::string& bytes);
int64_t UnixTime(const ASN1_TIME* time);

// Adds an extension in OpenSSL's configuration text. `issuer` may be the certificate itself.
X509_EXTENSION* NewExtension(X509* issuer, X509* subject, int nid, const std::string& value);

}  // namespace vaultsim

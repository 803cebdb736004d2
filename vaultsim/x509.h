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
    X509* issuer = nullptr;      // null: self-signed
    EVP_PKEY* signer = nullptr;  // the issuer's key
};

X509Ptr MakeCertificate(const CertificateSpec& spec);  // throws std::runtime_error

X509Ptr CertificateFromDer(const std::string& der);  // null if it isn't one, or if bytes follow it
X509Ptr CertificateFromPem(const std::string& pem);  // the first certificate in the text, or null
std::string ToDer(X509* certificate);
std::string ToPem(X509* certificate);
std::string Hash(const char* algorithm, const std::string& bytes);  // OpenSSL's names: "SHA1"
int64_t UnixTime(const ASN1_TIME* time);

// An extension from OpenSSL's configuration text. `issuer` may be the certificate itself. Throws std::runtime_error.
X509ExtensionPtr NewExtension(X509* issuer, X509* subject, int nid, const std::string& value);
void AddExtension(X509* issuer, X509* certificate, int nid, const std::string& value);
// A comma-separated value for NewExtension: "critical", "DNS:", {"a","b"} make critical,DNS:a,DNS:b.
std::string Join(const std::string& first, const std::string& prefix, const std::vector<std::string>& items);

}  // namespace vaultsim

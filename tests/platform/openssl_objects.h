// OpenSSL's objects, for a second opinion on what the layer makes.
#pragma once

#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <memory>
#include <string>

struct OpensslFreer {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(X509_REQ* request) const { X509_REQ_free(request); }
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
template <typename T>
using OpensslPtr = std::unique_ptr<T, OpensslFreer>;

// From DER; NULL if it isn't a certificate, or if something follows it.
inline OpensslPtr<X509> ParseX509(const std::string& der)
{
    const unsigned char* at = reinterpret_cast<const unsigned char*>(der.data());
    const unsigned char* const end = at + der.size();
    OpensslPtr<X509> certificate(d2i_X509(nullptr, &at, static_cast<long>(der.size())));
    return at == end ? std::move(certificate) : nullptr;
}

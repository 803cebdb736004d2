// Owners for OpenSSL's objects.
#pragma once

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/ecdsa.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <memory>

namespace vaultsim {

template <auto Free>
struct Freer {
    template <class T>
    void operator()(T* object) const
    {
        Free(object);
    }
};

using BioPtr = std::unique_ptr<BIO, Freer<BIO_free_all>>;
using BignumPtr = std::unique_ptr<BIGNUM, Freer<BN_free>>;
using EcdsaSigPtr = std::unique_ptr<ECDSA_SIG, Freer<ECDSA_SIG_free>>;
using PkeyCtxPtr = std::unique_ptr<EVP_PKEY_CTX, Freer<EVP_PKEY_CTX_free>>;
using MdCtxPtr = std::unique_ptr<EVP_MD_CTX, Freer<EVP_MD_CTX_free>>;
using SslPtr = std::unique_ptr<SSL, Freer<SSL_free>>;
using X509Ptr = std::unique_ptr<X509, Freer<X509_free>>;
using X509NamePtr = std::unique_ptr<X509_NAME, Freer<X509_NAME_free>>;
using X509ReqPtr = std::unique_ptr<X509_REQ, Freer<X509_REQ_free>>;

// Keys are shared: by the versions of a certificate that reuses its key, and by the keys of a seeded vault.
using Pkey = std::shared_ptr<EVP_PKEY>;
inline Pkey OwnPkey(EVP_PKEY* key)
{
    return Pkey(key, EVP_PKEY_free);
}

using SslContext = std::shared_ptr<SSL_CTX>;

}  // namespace vaultsim

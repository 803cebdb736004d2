// Smart pointers for OpenSSL's objects, and its DER and PEM functions as strings.
#pragma once

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/ecdsa.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <memory>
#include <stdexcept>
#include <string>

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
using SslPtr = std::unique_ptr<SSL, Freer<SSL_free>>;
using X509Ptr = std::unique_ptr<X509, Freer<X509_free>>;
using X509ExtensionPtr = std::unique_ptr<X509_EXTENSION, Freer<X509_EXTENSION_free>>;
using X509NamePtr = std::unique_ptr<X509_NAME, Freer<X509_NAME_free>>;
using X509ReqPtr = std::unique_ptr<X509_REQ, Freer<X509_REQ_free>>;

// Keys are shared: by the versions of a certificate that reuses its key, and by the keys of a seeded vault.
using Pkey = std::shared_ptr<EVP_PKEY>;
inline Pkey OwnPkey(EVP_PKEY* key)
{
    return Pkey(key, EVP_PKEY_free);
}

using SslContext = std::shared_ptr<SSL_CTX>;

// encode: the type's i2d function. Throws std::runtime_error.
template <class Object, class Encode>
std::string EncodeDer(Object* object, Encode encode)
{
    unsigned char* der = nullptr;
    const int size = encode(object, &der);
    if (size <= 0)
        throw std::runtime_error("no DER encoding");
    std::string bytes(reinterpret_cast<char*>(der), static_cast<size_t>(size));
    OPENSSL_free(der);
    return bytes;
}

// read: a PEM_read_bio function. NULL if the text has no such object.
template <class Read>
auto ReadPem(const std::string& text, Read read)
{
    const BioPtr bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    return read(bio.get(), nullptr, nullptr, nullptr);
}

// write: calls a PEM_write_bio function. Throws std::runtime_error.
template <class Write>
std::string WritePem(Write write)
{
    const BioPtr bio(BIO_new(BIO_s_mem()));
    if (write(bio.get()) != 1)
        throw std::runtime_error("no PEM encoding");
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    return std::string(data, static_cast<size_t>(size));
}

}  // namespace vaultsim

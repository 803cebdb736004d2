#include "tests/kelvaroctl/openssl_key.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <stdexcept>

static const unsigned char* In(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

static unsigned char* Out(std::string& text)
{
    return reinterpret_cast<unsigned char*>(text.data());
}

OpensslKey::OpensslKey(const std::string& pem)
{
    const std::unique_ptr<BIO, decltype(&BIO_free)> source(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())),
                                                           BIO_free);
    key_.reset(PEM_read_bio_PUBKEY(source.get(), nullptr, nullptr, nullptr), EVP_PKEY_free);
    if (!key_)
        throw std::runtime_error("OpenSSL does not read this as a public key:\n" + pem);
}

std::string OpensslKey::Der() const
{
    unsigned char* bytes = nullptr;
    const int size = i2d_PUBKEY(key_.get(), &bytes);
    if (size <= 0)
        throw std::runtime_error("no DER form");
    std::string der(reinterpret_cast<char*>(bytes), static_cast<size_t>(size));
    OPENSSL_free(bytes);
    return der;
}

std::string HexDigest(const std::string& data, const std::string& hash)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    if (EVP_Digest(data.data(), data.size(), digest, &size, EVP_get_digestbyname(hash.c_str()), nullptr) != 1)
        throw std::runtime_error("no digest " + hash);
    std::string text;
    for (unsigned index = 0; index < size; ++index) {
        text += "0123456789abcdef"[digest[index] >> 4];
        text += "0123456789abcdef"[digest[index] & 15];
    }
    return text;
}

std::string OpensslKey::Fingerprint() const
{
    return HexDigest(Der(), "SHA256");
}

bool OpensslKey::Verifies(const std::string& data, const std::string& signature, const std::string& hash,
                          bool pss) const
{
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    EVP_PKEY_CTX* parameters = nullptr;
    if (EVP_DigestVerifyInit(context.get(), &parameters, EVP_get_digestbyname(hash.c_str()), nullptr, key_.get()) != 1)
        throw std::runtime_error("OpenSSL cannot verify with this key");
    if (pss && (EVP_PKEY_CTX_set_rsa_padding(parameters, RSA_PKCS1_PSS_PADDING) != 1 ||
                EVP_PKEY_CTX_set_rsa_pss_saltlen(parameters, RSA_PSS_SALTLEN_DIGEST) != 1))
        throw std::runtime_error("OpenSSL cannot verify with PSS");
    return EVP_DigestVerify(context.get(), In(signature), signature.size(), In(data), data.size()) == 1;
}

std::string OpensslKey::Encrypt(const std::string& data, bool oaep) const
{
    const std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> context(EVP_PKEY_CTX_new(key_.get(), nullptr),
                                                                              EVP_PKEY_CTX_free);
    size_t size = 0;
    if (EVP_PKEY_encrypt_init(context.get()) != 1 ||
        EVP_PKEY_CTX_set_rsa_padding(context.get(), oaep ? RSA_PKCS1_OAEP_PADDING : RSA_PKCS1_PADDING) != 1 ||
        EVP_PKEY_encrypt(context.get(), nullptr, &size, In(data), data.size()) != 1)
        throw std::runtime_error("OpenSSL cannot encrypt with this key");
    std::string encrypted(size, 0);
    if (EVP_PKEY_encrypt(context.get(), Out(encrypted), &size, In(data), data.size()) != 1)
        throw std::runtime_error("OpenSSL cannot encrypt this");
    encrypted.resize(size);
    return encrypted;
}

#include "tests/kelvaroctl/openssl_key.h"

#include <openssl/core_names.h>
#include <openssl/ecdsa.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace {
struct OpensslFree {
    void operator()(EVP_PKEY_CTX* p) const { EVP_PKEY_CTX_free(p); }
    void operator()(OSSL_PARAM_BLD* p) const { OSSL_PARAM_BLD_free(p); }
    void operator()(OSSL_PARAM* p) const { OSSL_PARAM_free(p); }
    void operator()(BIGNUM* p) const { BN_free(p); }
    void operator()(BIO* p) const { BIO_free(p); }
    void operator()(ECDSA_SIG* p) const { ECDSA_SIG_free(p); }
};
template <typename T>
using Owned = std::unique_ptr<T, OpensslFree>;

const unsigned char* In(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

unsigned char* Out(std::string& text)
{
    return reinterpret_cast<unsigned char*>(text.data());
}

Owned<BIGNUM> Number(const std::string& bigEndian)
{
    return Owned<BIGNUM>(BN_bin2bn(In(bigEndian), static_cast<int>(bigEndian.size()), nullptr));
}

EVP_PKEY* Build(const char* type, OSSL_PARAM_BLD* builder)
{
    const Owned<OSSL_PARAM> params(OSSL_PARAM_BLD_to_param(builder));
    const Owned<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new_from_name(nullptr, type, nullptr));
    EVP_PKEY* key = nullptr;
    if (EVP_PKEY_fromdata_init(context.get()) != 1 ||
        EVP_PKEY_fromdata(context.get(), &key, EVP_PKEY_PUBLIC_KEY, params.get()) != 1)
        throw std::runtime_error(std::string("OpenSSL does not take these numbers for a key of ") + type);
    return key;
}

// Little-endian word number `index` of a blob.
size_t WordAt(const std::string& blob, size_t index)
{
    size_t word = 0;
    for (size_t byte = 4; byte-- > 0;)
        word = word << 8 | static_cast<unsigned char>(blob.at(index * 4 + byte));
    return word;
}

std::string Part(const std::string& blob, size_t offset, size_t size)
{
    if (offset > blob.size() || size > blob.size() - offset)
        throw std::runtime_error("the blob is cut");
    return blob.substr(offset, size);
}

// r and s side by side as the structure that OpenSSL reads.
std::string DerSignature(const std::string& raw)
{
    const size_t half = raw.size() / 2;
    const Owned<ECDSA_SIG> pair(ECDSA_SIG_new());
    ECDSA_SIG_set0(pair.get(), Number(raw.substr(0, half)).release(), Number(raw.substr(half)).release());
    std::string der(static_cast<size_t>(i2d_ECDSA_SIG(pair.get(), nullptr)), 0);
    unsigned char* at = Out(der);
    i2d_ECDSA_SIG(pair.get(), &at);
    return der;
}
}  // namespace

std::string FromBase64Url(std::string text)
{
    std::replace(text.begin(), text.end(), '-', '+');
    std::replace(text.begin(), text.end(), '_', '/');
    const size_t fill = (4 - text.size() % 4) % 4;
    text.append(fill, '=');
    std::string bytes(text.size() / 4 * 3, 0);
    if (EVP_DecodeBlock(Out(bytes), In(text), static_cast<int>(text.size())) < 0)
        throw std::runtime_error("no Base64: " + text);
    bytes.resize(bytes.size() - fill);
    return bytes;
}

OpensslKey::OpensslKey(evp_pkey_st* key) : key_(key, EVP_PKEY_free) {}

OpensslKey OpensslKey::FromNumbers(const std::string& modulus, const std::string& exponent)
{
    const Owned<BIGNUM> n = Number(modulus);
    const Owned<BIGNUM> e = Number(exponent);
    const Owned<OSSL_PARAM_BLD> builder(OSSL_PARAM_BLD_new());
    OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_N, n.get());
    OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_E, e.get());
    return OpensslKey(Build("RSA", builder.get()));
}

OpensslKey OpensslKey::FromPoint(const std::string& group, const std::string& x, const std::string& y)
{
    const int width = group == "P-521" ? 66 : group == "P-384" ? 48 : 32;
    std::string point = "\4";  // uncompressed
    for (const std::string& coordinate : {x, y}) {
        std::string padded(static_cast<size_t>(width), 0);
        if (BN_bn2binpad(Number(coordinate).get(), Out(padded), width) != width)
            throw std::runtime_error("a coordinate is too long for " + group);
        point += padded;
    }
    const Owned<OSSL_PARAM_BLD> builder(OSSL_PARAM_BLD_new());
    OSSL_PARAM_BLD_push_utf8_string(builder.get(), OSSL_PKEY_PARAM_GROUP_NAME, group.c_str(), 0);
    OSSL_PARAM_BLD_push_octet_string(builder.get(), OSSL_PKEY_PARAM_PUB_KEY, point.data(), point.size());
    return OpensslKey(Build("EC", builder.get()));
}

OpensslKey OpensslKey::FromCngBlob(const std::string& blob, const std::string& group)
{
    const std::string magic = Part(blob, 0, 4);
    if (magic == "RSA1") {
        const size_t exponent = WordAt(blob, 2);
        const size_t modulus = WordAt(blob, 3);
        return FromNumbers(Part(blob, 24 + exponent, modulus), Part(blob, 24, exponent));
    }
    const bool named = magic.rfind("ECS", 0) == 0 || magic.rfind("ECK", 0) == 0;
    const std::string curve = magic.back() == '1' ? "P-256" : magic.back() == '3' ? "P-384" : "P-521";
    const size_t size = WordAt(blob, 1);
    return FromPoint(named ? curve : group, Part(blob, 8, size), Part(blob, 8 + size, size));
}

OpensslKey OpensslKey::FromJwk(const std::string& jwk)
{
    const auto key = nlohmann::json::parse(jwk);
    const auto bytes = [&key](const char* member) { return FromBase64Url(key.at(member)); };
    return key.at("kty") == "RSA" ? FromNumbers(bytes("n"), bytes("e"))
                                  : FromPoint(key.at("crv"), bytes("x"), bytes("y"));
}

OpensslKey::OpensslKey(const std::string& pem)
{
    const Owned<BIO> source(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    key_.reset(PEM_read_bio_PUBKEY(source.get(), nullptr, nullptr, nullptr), EVP_PKEY_free);
    if (!key_)
        throw std::runtime_error("OpenSSL does not read this as a public key:\n" + pem);
}

std::string OpensslKey::Pem() const
{
    const Owned<BIO> text(BIO_new(BIO_s_mem()));
    PEM_write_bio_PUBKEY(text.get(), key_.get());
    char* data = nullptr;
    const long size = BIO_get_mem_data(text.get(), &data);
    return std::string(data, static_cast<size_t>(size));
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

bool OpensslKey::VerifiesDigest(const std::string& digest, const std::string& signature, const std::string& hash,
                                bool pss) const
{
    const Owned<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new(key_.get(), nullptr));
    if (EVP_PKEY_verify_init(context.get()) != 1)
        throw std::runtime_error("OpenSSL cannot verify with this key");
    const bool rsa = EVP_PKEY_is_a(key_.get(), "RSA") == 1;
    if (rsa) {
        EVP_PKEY_CTX_set_rsa_padding(context.get(), pss ? RSA_PKCS1_PSS_PADDING : RSA_PKCS1_PADDING);
        EVP_PKEY_CTX_set_signature_md(context.get(), EVP_get_digestbyname(hash.c_str()));
        if (pss)
            EVP_PKEY_CTX_set_rsa_pss_saltlen(context.get(), RSA_PSS_SALTLEN_AUTO);
    }
    const std::string read = rsa ? signature : DerSignature(signature);
    return EVP_PKEY_verify(context.get(), In(read), read.size(), In(digest), digest.size()) == 1;
}

#include "tests/platform/openssl_maker.h"

#include <openssl/core_names.h>
#include <openssl/param_build.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <atomic>
#include <stdexcept>

namespace {

void Require(bool good, const char* what)
{
    if (!good)
        throw std::runtime_error(what);
}

template <typename T, typename Writer>
std::string DerOf(const OpensslPtr<T>& object, Writer write)
{
    std::string der(static_cast<size_t>(write(object.get(), nullptr)), '\0');
    BYTE* at = reinterpret_cast<BYTE*>(der.data());
    write(object.get(), &at);
    return der;
}

void AddCommonName(X509_NAME* name, const std::string& text)
{
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, reinterpret_cast<const BYTE*>(text.c_str()), -1, -1, 0);
}

void AddExtension(X509* certificate, int nid, const std::string& value)
{
    X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, nullptr, nid, value.c_str());
    Require(extension && X509_add_ext(certificate, extension, -1) == 1, "certificate extension");
    X509_EXTENSION_free(extension);
}

constexpr char kKeyUsage[] = "critical,digitalSignature,keyEncipherment";

// Without issuer, dates and signature.
OpensslPtr<X509> NewCertificate(EVP_PKEY* key, const std::string& commonName, long serial)
{
    OpensslPtr<X509> certificate(X509_new());
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), serial);
    AddCommonName(X509_get_subject_name(certificate.get()), commonName);
    X509_set_pubkey(certificate.get(), key);
    return certificate;
}

}  // namespace

OpensslPtr<EVP_PKEY> MakeRsaPublicKey(int bits)
{
    BIGNUM* modulus = BN_new();
    BN_rand(modulus, bits, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ODD);
    OSSL_PARAM_BLD* builder = OSSL_PARAM_BLD_new();
    OSSL_PARAM_BLD_push_BN(builder, OSSL_PKEY_PARAM_RSA_N, modulus);
    OSSL_PARAM_BLD_push_ulong(builder, OSSL_PKEY_PARAM_RSA_E, RSA_F4);
    OSSL_PARAM* numbers = OSSL_PARAM_BLD_to_param(builder);
    EVP_PKEY_CTX* maker = EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr);
    EVP_PKEY* key = nullptr;
    EVP_PKEY_fromdata_init(maker);
    EVP_PKEY_fromdata(maker, &key, EVP_PKEY_PUBLIC_KEY, numbers);
    EVP_PKEY_CTX_free(maker);
    OSSL_PARAM_free(numbers);
    OSSL_PARAM_BLD_free(builder);
    BN_free(modulus);
    return OpensslPtr<EVP_PKEY>(key);
}

OpensslPtr<X509> ParseX509(const std::string& der)
{
    const BYTE* at = reinterpret_cast<const BYTE*>(der.data());
    const BYTE* const end = at + der.size();
    OpensslPtr<X509> certificate(d2i_X509(nullptr, &at, static_cast<long>(der.size())));
    return at == end ? std::move(certificate) : nullptr;
}

std::string MakeRequest(EVP_PKEY* key, const std::string& commonName)
{
    const OpensslPtr<X509_REQ> request(X509_REQ_new());
    AddCommonName(X509_REQ_get_subject_name(request.get()), commonName);
    X509_REQ_set_pubkey(request.get(), key);
    STACK_OF(X509_EXTENSION)* extensions = sk_X509_EXTENSION_new_null();
    sk_X509_EXTENSION_push(extensions, X509V3_EXT_conf_nid(nullptr, nullptr, NID_key_usage, kKeyUsage));
    X509_REQ_add_extensions(request.get(), extensions);
    sk_X509_EXTENSION_pop_free(extensions, X509_EXTENSION_free);
    X509_REQ_sign(request.get(), MakeEcKey().get(), EVP_sha256());
    return DerOf(request, i2d_X509_REQ);
}

std::string MakeCertificate(const std::string& commonName, long serial)
{
    const OpensslPtr<EVP_PKEY> key = MakeEcKey();
    const OpensslPtr<X509> certificate = NewCertificate(key.get(), commonName, serial);
    AddCommonName(X509_get_issuer_name(certificate.get()), "Issuer of " + commonName);
    ASN1_TIME_set_string_X509(X509_getm_notBefore(certificate.get()), "20000101000000Z");
    ASN1_TIME_set_string_X509(X509_getm_notAfter(certificate.get()), "20601231235959Z");
    AddExtension(certificate.get(), NID_key_usage, kKeyUsage);
    X509_sign(certificate.get(), key.get(), EVP_sha256());
    return DerOf(certificate, i2d_X509);
}

Credentials::Credentials(const std::string& name, const Credentials* issuer, long firstDay, long lastDay)
{
    static std::atomic<long> serial{1000};
    certificate_ = NewCertificate(key(), name, ++serial);
    const Credentials& signer = issuer ? *issuer : *this;
    X509_set_issuer_name(certificate(), X509_get_subject_name(signer.certificate()));
    X509_gmtime_adj(X509_getm_notBefore(certificate()), firstDay * 86400);
    X509_gmtime_adj(X509_getm_notAfter(certificate()), lastDay * 86400);
    if (issuer)
        AddExtension(certificate(), NID_subject_alt_name, "DNS:" + name);
    else
        AddExtension(certificate(), NID_basic_constraints, "critical,CA:TRUE");
    Require(X509_sign(certificate(), signer.key(), EVP_sha256()) != 0, "certificate signature");
}

void Credentials::WritePem(const std::string& file, const char* mode) const
{
    FILE* const out = fopen(file.c_str(), mode);
    Require(out && PEM_write_X509(out, certificate()) == 1, "certificate file");
    fclose(out);
}

#include "tests/platform/openssl_maker.h"

#include <openssl/core_names.h>
#include <openssl/param_build.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

namespace {

template <typename T, typename Writer>
Der Encoded(T* object, Writer write)
{
    Der der(static_cast<size_t>(write(object, nullptr)));
    BYTE* at = der.data();
    write(object, &at);
    return der;
}

void AddCommonName(X509_NAME* name, const std::string& text)
{
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, reinterpret_cast<const BYTE*>(text.c_str()), -1, -1, 0);
}

X509_EXTENSION* MakeKeyUsage()
{
    return X509V3_EXT_conf_nid(nullptr, nullptr, NID_key_usage, "critical,digitalSignature,keyEncipherment");
}

}  // namespace

OpensslPtr<EVP_PKEY> MakeEcKey()
{
    return OpensslPtr<EVP_PKEY>(EVP_EC_gen("P-256"));
}

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

OpensslPtr<X509> ParseX509(const Der& der)
{
    const BYTE* at = der.data();
    OpensslPtr<X509> certificate(d2i_X509(nullptr, &at, static_cast<long>(der.size())));
    return at == der.data() + der.size() ? std::move(certificate) : nullptr;
}

Der MakeRequest(EVP_PKEY* key, const std::string& commonName)
{
    const OpensslPtr<X509_REQ> request(X509_REQ_new());
    AddCommonName(X509_REQ_get_subject_name(request.get()), commonName);
    X509_REQ_set_pubkey(request.get(), key);
    STACK_OF(X509_EXTENSION)* extensions = sk_X509_EXTENSION_new_null();
    sk_X509_EXTENSION_push(extensions, MakeKeyUsage());
    X509_REQ_add_extensions(request.get(), extensions);
    sk_X509_EXTENSION_pop_free(extensions, X509_EXTENSION_free);
    X509_REQ_sign(request.get(), MakeEcKey().get(), EVP_sha256());
    return Encoded(request.get(), i2d_X509_REQ);
}

Der MakeCertificate(const std::string& commonName, long serial)
{
    const OpensslPtr<EVP_PKEY> key = MakeEcKey();
    const OpensslPtr<X509> certificate(X509_new());
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), serial);
    AddCommonName(X509_get_subject_name(certificate.get()), commonName);
    AddCommonName(X509_get_issuer_name(certificate.get()), "Issuer of " + commonName);
    ASN1_TIME_set_string_X509(X509_getm_notBefore(certificate.get()), "20000101000000Z");
    ASN1_TIME_set_string_X509(X509_getm_notAfter(certificate.get()), "20601231235959Z");
    X509_set_pubkey(certificate.get(), key.get());
    X509_EXTENSION* usage = MakeKeyUsage();
    X509_add_ext(certificate.get(), usage, -1);
    X509_EXTENSION_free(usage);
    X509_sign(certificate.get(), key.get(), EVP_sha256());
    return Encoded(certificate.get(), i2d_X509);
}

std::string HexText(const BYTE* bytes, size_t size)
{
    std::string text;
    for (size_t i = 0; i < size; i++) {
        char digits[3];
        snprintf(digits, sizeof digits, "%02X", bytes[i]);
        text += digits;
    }
    return text;
}

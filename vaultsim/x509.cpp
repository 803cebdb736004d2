#include "vaultsim/x509.h"

#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <ctime>
#include <stdexcept>

#include "vaultsim/distinguished_name.h"

namespace vaultsim {

namespace {

void SetSerial(X509* certificate)
{
    unsigned char bytes[16];
    if (RAND_bytes(bytes, sizeof bytes) != 1)
        throw std::runtime_error("no random bytes");
    bytes[0] = static_cast<unsigned char>((bytes[0] & 0x7f) | 0x40);
    const BignumPtr serial(BN_bin2bn(bytes, sizeof bytes, nullptr));
    BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(certificate));
}

void AddExtensions(const CertificateSpec& spec, X509* issuer, X509* certificate)
{
    AddExtension(issuer, certificate, NID_basic_constraints, spec.authority ? "critical,CA:TRUE" : "critical,CA:FALSE");
    AddExtension(issuer, certificate, NID_key_usage,
                 spec.authority ? "critical,keyCertSign,cRLSign" : "critical,digitalSignature,keyEncipherment");
    AddExtension(issuer, certificate, NID_subject_key_identifier, "hash");
    if (spec.issuer)
        AddExtension(issuer, certificate, NID_authority_key_identifier, "keyid:always");
    if (!spec.authority)
        AddExtension(issuer, certificate, NID_ext_key_usage, "serverAuth,clientAuth");
    if (!spec.dnsNames.empty())
        AddExtension(issuer, certificate, NID_subject_alt_name, Join("", "DNS:", spec.dnsNames));
}

}  // namespace

X509Ptr MakeCertificate(const CertificateSpec& spec)
{
    const X509NamePtr subject = ParseName(spec.subject);
    if (!subject)
        throw std::runtime_error("not a valid name: " + spec.subject);
    X509Ptr certificate(X509_new());
    X509_set_version(certificate.get(), X509_VERSION_3);
    SetSerial(certificate.get());
    ASN1_TIME_set(X509_getm_notBefore(certificate.get()), spec.notBefore);
    ASN1_TIME_set(X509_getm_notAfter(certificate.get()), spec.notAfter);
    X509_set_subject_name(certificate.get(), subject.get());
    X509* issuer = spec.issuer ? spec.issuer : certificate.get();
    X509_set_issuer_name(certificate.get(), X509_get_subject_name(issuer));
    X509_set_pubkey(certificate.get(), spec.publicKey);
    AddExtensions(spec, issuer, certificate.get());
    if (X509_sign(certificate.get(), spec.signer, EVP_sha256()) <= 0)
        throw std::runtime_error("certificate not signed");
    return certificate;
}

X509Ptr CertificateFromDer(const std::string& der)
{
    const auto* at = reinterpret_cast<const unsigned char*>(der.data());
    const auto* end = at + der.size();
    X509Ptr certificate(d2i_X509(nullptr, &at, static_cast<long>(der.size())));
    return at == end ? std::move(certificate) : nullptr;
}

X509Ptr CertificateFromPem(const std::string& pem)
{
    return X509Ptr(ReadPem(pem, PEM_read_bio_X509));
}

std::string ToDer(X509* certificate)
{
    return EncodeDer(certificate, i2d_X509);
}

std::string ToPem(X509* certificate)
{
    return WritePem([&](BIO* bio) { return PEM_write_bio_X509(bio, certificate); });
}

std::string Hash(const char* algorithm, const std::string& bytes)
{
    std::string hash(EVP_MAX_MD_SIZE, '\0');
    size_t size = 0;
    if (EVP_Q_digest(nullptr, algorithm, nullptr, bytes.data(), bytes.size(),
                     reinterpret_cast<unsigned char*>(hash.data()), &size) != 1)
        throw std::runtime_error(std::string("no hash algorithm ") + algorithm);
    hash.resize(size);
    return hash;
}

int64_t UnixTime(const ASN1_TIME* time)
{
    std::tm parts = {};
    if (ASN1_TIME_to_tm(time, &parts) != 1)
        return 0;
    return timegm(&parts);
}

X509ExtensionPtr NewExtension(X509* issuer, X509* subject, int nid, const std::string& value)
{
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, issuer, subject, nullptr, nullptr, 0);
    X509ExtensionPtr extension(X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str()));
    if (!extension)
        throw std::runtime_error("cannot encode extension: " + value);
    return extension;
}

void AddExtension(X509* issuer, X509* certificate, int nid, const std::string& value)
{
    X509_add_ext(certificate, NewExtension(issuer, certificate, nid, value).get(), -1);
}

std::string Join(const std::string& first, const std::string& prefix, const std::vector<std::string>& items)
{
    std::string text = first;
    for (const std::string& item : items)
        text.append(text.empty() ? "" : ",").append(prefix).append(item);
    return text;
}

}  // namespace vaultsim

#include "tests/provider/envelope_maker.h"

#include <openssl/cms.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <stdexcept>

#include "tests/provider/import_fixture.h"

namespace {

void Require(bool holds)
{
    if (!holds)
        throw std::runtime_error("OpenSSL does not make the test's data");
}

struct BioFreer {
    void operator()(BIO* bio) const { BIO_free(bio); }
};
using BioPtr = std::unique_ptr<BIO, BioFreer>;

std::string Contents(BIO* bio)
{
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio, &text);
    return std::string(text, static_cast<size_t>(size));
}

}  // namespace

Recipient::Recipient() : key_(EVP_RSA_gen(2048), EVP_PKEY_free), certificate_(X509_new(), X509_free)
{
    static int serial = 0;
    X509* const made = certificate_.get();
    X509_set_version(made, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(made), ++serial);
    const std::string name = "recipient " + std::to_string(serial);
    for (X509_NAME* part : {X509_get_subject_name(made), X509_get_issuer_name(made)})
        X509_NAME_add_entry_by_txt(part, "CN", MBSTRING_UTF8, reinterpret_cast<const BYTE*>(name.c_str()), -1, -1, 0);
    ASN1_TIME_set_string(X509_getm_notBefore(made), "20000101000000Z");
    ASN1_TIME_set_string(X509_getm_notAfter(made), "20600101000000Z");
    X509_set_pubkey(made, key_.get());
    Require(X509_sign(made, key_.get(), EVP_sha256()) > 0);
}

Bytes Recipient::Certificate() const
{
    Bytes der(static_cast<size_t>(i2d_X509(certificate_.get(), nullptr)));
    BYTE* at = der.data();
    i2d_X509(certificate_.get(), &at);
    return der;
}

std::string Recipient::ContainerPem(const char* password) const
{
    const BioPtr bio(BIO_new(BIO_s_mem()));
    const EVP_CIPHER* const cipher = password ? EVP_aes_256_cbc() : nullptr;
    Require(PEM_write_bio_PKCS8PrivateKey(bio.get(), key_.get(), cipher, nullptr, 0, nullptr,
                                          const_cast<char*>(password)) == 1);
    return Contents(bio.get());
}

Bytes Recipient::Seal(const Bytes& plain, const char* cipher) const
{
    const BioPtr in(BIO_new_mem_buf(plain.data(), static_cast<int>(plain.size())));
    const BioPtr out(BIO_new(BIO_s_mem()));
    STACK_OF(X509)* const recipients = sk_X509_new_null();
    sk_X509_push(recipients, certificate_.get());
    CMS_ContentInfo* const message = CMS_encrypt(recipients, in.get(), EVP_get_cipherbyname(cipher), CMS_BINARY);
    sk_X509_free(recipients);
    Require(message && i2d_CMS_bio(out.get(), message) == 1);
    CMS_ContentInfo_free(message);
    const std::string der = Contents(out.get());
    return Bytes(der.begin(), der.end());
}

Bytes StoreRecord(DWORD id, const Bytes& data)
{
    return Words({id, 1, static_cast<DWORD>(data.size())}) + data;
}

Bytes ProviderInfo(const std::string& container, DWORD flags, bool wide)
{
    const Bytes containerName = TextBytes(container);
    const Bytes providerName = TextBytes("Microsoft Software Key Storage Provider");
    const DWORD texts = wide ? 48 : 28;
    const DWORD second = texts + static_cast<DWORD>(containerName.size());
    const Bytes head =
        wide ? Words({texts, 0, second, 0, 0, flags, 0, 0, 0, 0, 1, 0}) : Words({texts, second, 0, flags, 0, 0, 1});
    return StoreRecord(2, head + containerName + providerName);
}

Bytes SerializedStore(const Bytes& records)
{
    return Words({0, 0x54524543}) + records + Words({0, 0, 0});
}

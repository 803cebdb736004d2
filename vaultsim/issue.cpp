#include "vaultsim/issue.h"

#include <openssl/evp.h>
#include <openssl/obj_mac.h>

#include <stdexcept>

#include "vaultsim/base64url.h"
#include "vaultsim/key_material.h"
#include "vaultsim/text.h"
#include "vaultsim/x509.h"

namespace vaultsim {

namespace {

constexpr int64_t kYear = 365 * 24 * 60 * 60;

// RSA, so that all signatures have one size.
struct Issuer {
    Pkey key = GenerateRsa(2048);
    X509Ptr certificate;

    Issuer()
    {
        CertificateSpec spec;
        spec.subject = "CN=vaultsim issuer";
        spec.authority = true;
        spec.notAfter = Now() + kYear;
        spec.publicKey = spec.signer = key.get();
        certificate = MakeCertificate(spec);
    }
};

const Issuer& TheIssuer()
{
    static const Issuer issuer;
    return issuer;
}

Pkey KeyOf(Vault& vault, const std::string& name)
{
    const std::lock_guard<std::mutex> lock(vault.mutex);
    const auto key = vault.keys.find(name);
    if (key == vault.keys.end())
        throw std::invalid_argument("no such key: " + name);
    return key->second.versions.back().material;
}

void TakeSubjectAway(X509* certificate)
{
    const X509NamePtr empty(X509_NAME_new());
    X509_set_subject_name(certificate, empty.get());
    X509_sign(certificate, TheIssuer().key.get(), EVP_sha256());
}

// Fills the certificate up with a comment.
X509Ptr Padded(X509* plain, size_t size)
{
    const size_t least = ToDer(plain).size();
    for (size_t comment = size > least + 40 ? size - least - 40 : 0; least + comment < size; comment++) {
        X509Ptr padded(X509_dup(plain));
        X509_EXTENSION* extension =
            NewExtension(padded.get(), padded.get(), NID_netscape_comment, std::string(comment, 'x'));
        X509_add_ext(padded.get(), extension, -1);
        X509_EXTENSION_free(extension);
        X509_sign(padded.get(), TheIssuer().key.get(), EVP_sha256());
        if (ToDer(padded.get()).size() == size)
            return padded;
    }
    throw std::invalid_argument("the certificate cannot have " + std::to_string(size) + " bytes");
}

std::string HexText(const std::string& bytes)
{
    const std::string digits = "0123456789ABCDEF";
    std::string text;
    for (const char ch : bytes) {
        const auto byte = static_cast<unsigned char>(ch);
        text += {digits[byte >> 4], digits[byte & 15]};
    }
    return text;
}

}  // namespace

Json IssueCertificate(Vault& vault, const Json& body)
{
    const bool own = !body.contains("key");
    const Pkey key = own ? GenerateEc(*FindCurve("P-256")) : KeyOf(vault, body.at("key").get<std::string>());
    CertificateSpec spec;
    const std::string subject = body.value("subject", "CN=issued");
    spec.subject = subject.empty() ? "CN=nobody" : subject;
    spec.dnsNames = body.value("dnsNames", std::vector<std::string>());
    spec.notBefore = body.value("notBefore", Now() - 600);
    spec.notAfter = body.value("notAfter", Now() + kYear);
    spec.publicKey = key.get();
    spec.issuer = TheIssuer().certificate.get();
    spec.signer = TheIssuer().key.get();
    X509Ptr issued = MakeCertificate(spec);
    if (subject.empty())
        TakeSubjectAway(issued.get());
    if (body.contains("size"))
        issued = Padded(issued.get(), body.at("size").get<size_t>());
    const std::string der = ToDer(issued.get());
    return {{"pem", ToPem(issued.get()) + (own ? PrivatePem(key.get()) : "")},
            {"der", ToBase64(der)},
            {"thumbprint", ToBase64Url(Sha1(der))},
            {"hash", HexText(Sha1(der))}};
}

}  // namespace vaultsim

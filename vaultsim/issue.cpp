#include "vaultsim/issue.h"

#include <openssl/evp.h>
#include <openssl/obj_mac.h>

#include <stdexcept>

#include "vaultsim/base64url.h"
#include "vaultsim/control_vaults.h"
#include "vaultsim/key_material.h"
#include "vaultsim/text.h"
#include "vaultsim/x509.h"

namespace vaultsim {

namespace {

constexpr int64_t kYear = 365 * 24 * 60 * 60;

// RSA, so that all signatures are the same size.
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

void RemoveSubject(X509* certificate)
{
    const X509NamePtr empty(X509_NAME_new());
    X509_set_subject_name(certificate, empty.get());
    X509_sign(certificate, TheIssuer().key.get(), EVP_sha256());
}

// Pads the certificate to `size` bytes with a comment.
X509Ptr Padded(X509* plain, size_t size)
{
    const size_t least = ToDer(plain).size();
    for (size_t comment = size > least + 40 ? size - least - 40 : 0; least + comment < size; comment++) {
        X509Ptr padded(X509_dup(plain));
        AddExtension(padded.get(), padded.get(), NID_netscape_comment, std::string(comment, 'x'));
        X509_sign(padded.get(), TheIssuer().key.get(), EVP_sha256());
        if (ToDer(padded.get()).size() == size)
            return padded;
    }
    throw std::invalid_argument("cannot make a certificate of " + std::to_string(size) + " bytes");
}

}  // namespace

Json IssueCertificate(Vault& vault, const Json& body)
{
    const bool own = !body.contains("key");
    const Pkey key = own ? GenerateEc(*FindCurve("P-256")) : CurrentKey(vault, body.at("key").get<std::string>());
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
        RemoveSubject(issued.get());
    if (body.contains("size"))
        issued = Padded(issued.get(), body.at("size").get<size_t>());
    const std::string der = ToDer(issued.get());
    return {{"pem", ToPem(issued.get()) + (own ? PrivatePem(key.get()) : "")},
            {"der", ToBase64(der)},
            {"thumbprint", ToBase64Url(Hash("SHA1", der))},
            {"hash", ToHex(Hash("SHA1", der))}};
}

}  // namespace vaultsim

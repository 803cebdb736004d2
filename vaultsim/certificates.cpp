#include "vaultsim/certificates.h"

#include "vaultsim/base64url.h"
#include "vaultsim/x509.h"

namespace vaultsim {

namespace {

std::string Url(const Vault& vault, const char* collection, const CertificateObject& certificate,
                const std::string& rest)
{
    return vault.Url(std::string("/") + collection + "/" + certificate.name + rest);
}

std::string Thumbprint(const CertificateVersion& version)
{
    return ToBase64Url(Hash("SHA1", version.der));
}

Json PolicyJson(const Vault& vault, const CertificateObject& certificate)
{
    Json policy = {{"id", Url(vault, "certificates", certificate, "/policy")}};
    policy.update(certificate.policy);
    policy["attributes"] = {
        {"enabled", true}, {"created", certificate.policyUpdated}, {"updated", certificate.policyUpdated}};
    return policy;
}

}  // namespace

Refusal Certificates::Missing(const std::string& name)
{
    return NotFound("CertificateNotFound",
                    "A certificate with (name/id) " + name +
                        " was not found in this key vault. If you recently deleted this certificate you may be able to "
                        "recover it using the correct recovery command.");
}

Json Certificates::Bundle(const Vault& vault, const CertificateObject& certificate, const CertificateVersion& version)
{
    const std::string rest = "/" + version.version;
    Json bundle = {{"id", Url(vault, "certificates", certificate, rest)}};
    if (!version.der.empty()) {
        bundle["kid"] = Url(vault, "keys", certificate, rest);
        bundle["sid"] = Url(vault, "secrets", certificate, rest);
        bundle["x5t"] = Thumbprint(version);
        bundle["cer"] = ToBase64(version.der);
    }
    version.AddTo(bundle);
    bundle["policy"] = PolicyJson(vault, certificate);
    if (certificate.pending)
        bundle["pending"] = {{"id", Url(vault, "certificates", certificate, "/pending")}};
    return bundle;
}

Json Certificates::Item(const Vault& vault, const CertificateObject& certificate)
{
    const CertificateVersion& version = certificate.Current();
    Json item = {{"id", Url(vault, "certificates", certificate, "")}};
    if (!version.der.empty())
        item["x5t"] = Thumbprint(version);
    version.AddTo(item);
    return item;
}

void Certificates::Detach(Vault& vault, Deleted<CertificateObject>& deleted)
{
    deleted.object.pending.reset();
    const auto key = vault.keys.find(deleted.object.name);
    if (key == vault.keys.end())
        return;
    deleted.managedKey = std::move(key->second);
    vault.keys.erase(key);
}

}  // namespace vaultsim

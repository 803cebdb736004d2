#include "vaultsim/certificates.h"

#include "vaultsim/base64url.h"
#include "vaultsim/listing.h"
#include "vaultsim/x509.h"

namespace vaultsim {

namespace {

std::string Url(const Vault& vault, const char* collection, const CertificateObject& certificate,
                const std::string& rest)
{
    return "https://" + vault.host + "/" + collection + "/" + certificate.name + rest;
}

Json PolicyJson(const Vault& vault, const CertificateObject& certificate)
{
    Json policy = {{"id", Url(vault, "certificates", certificate, "/policy")}};
    policy.update(certificate.policy);
    policy["attributes"] = {
        {"enabled", true}, {"created", certificate.policyUpdated}, {"updated", certificate.policyUpdated}};
    return policy;
}

Json CertificateItem(const Vault& vault, const CertificateObject& certificate)
{
    const CertificateVersion& version = certificate.Current();
    Json item = {{"id", Url(vault, "certificates", certificate, "")}};
    if (!version.der.empty())
        item["x5t"] = ToBase64Url(Hash("SHA1", version.der));
    item["attributes"] = version.attributes.ToJson();
    if (!version.tags.empty())
        item["tags"] = version.tags;
    return item;
}

const CertificateVersion& FindVersion(const CertificateObject& certificate, const std::string& version)
{
    if (version.empty())
        return certificate.Current();
    for (const CertificateVersion& candidate : certificate.versions) {
        if (EqualsNoCase(candidate.version, version))
            return candidate;
    }
    throw CertificateNotFound(certificate.name + "/" + version);
}

}  // namespace

Refusal CertificateNotFound(const std::string& name)
{
    return NotFound("CertificateNotFound",
                    "A certificate with (name/id) " + name +
                        " was not found in this key vault. If you recently deleted this certificate you may be able to "
                        "recover it using the correct recovery command.");
}

Json CertificateBundle(const Vault& vault, const CertificateObject& certificate, const CertificateVersion& version)
{
    const std::string rest = "/" + version.version;
    Json bundle = {{"id", Url(vault, "certificates", certificate, rest)}};
    if (!version.der.empty()) {
        bundle["kid"] = Url(vault, "keys", certificate, rest);
        bundle["sid"] = Url(vault, "secrets", certificate, rest);
        bundle["x5t"] = ToBase64Url(Hash("SHA1", version.der));
        bundle["cer"] = ToBase64(version.der);
    }
    bundle["attributes"] = version.attributes.ToJson();
    if (!version.tags.empty())
        bundle["tags"] = version.tags;
    bundle["policy"] = PolicyJson(vault, certificate);
    if (certificate.pending)
        bundle["pending"] = {{"id", Url(vault, "certificates", certificate, "/pending")}};
    return bundle;
}

Answer GetCertificate(const VaultRequest& request)
{
    const std::string& name = request.Name();
    const std::lock_guard<std::mutex> lock(request.vault->mutex);
    const auto certificate = request.vault->certificates.find(name);
    if (certificate == request.vault->certificates.end())
        throw CertificateNotFound(name);
    const std::string version = request.call.segments.size() > 2 ? request.call.segments[2] : "";
    return JsonAnswer(
        200, CertificateBundle(*request.vault, certificate->second, FindVersion(certificate->second, version)));
}

Answer ListCertificates(const VaultRequest& request)
{
    const std::lock_guard<std::mutex> lock(request.vault->mutex);
    return ListPage(request, request.vault->certificates,
                    [&](const CertificateObject& certificate) { return CertificateItem(*request.vault, certificate); });
}

}  // namespace vaultsim

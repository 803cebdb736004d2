#include "vaultsim/pending.h"

#include "vaultsim/base64url.h"
#include "vaultsim/certificate_request.h"
#include "vaultsim/certificates.h"
#include "vaultsim/deletion.h"
#include "vaultsim/key_material.h"
#include "vaultsim/policy.h"
#include "vaultsim/x509.h"

namespace vaultsim {

namespace {

constexpr int64_t kMonth = 365 * 24 * 60 * 60 / 12;  // seconds

Refusal PendingNotFound(const std::string& name)
{
    return NotFound("PendingCertificateNotFound", "Pending certificate not found: " + name);
}

Json PendingJson(const VaultRequest& request, const CertificateObject& certificate)
{
    const PendingOperation& pending = *certificate.pending;
    const std::string url = request.vault->Url("/certificates/" + certificate.name);
    Json json = {{"id", url + "/pending"},
                 {"issuer", {{"name", "Unknown"}}},
                 {"csr", ToBase64(pending.request)},
                 {"cancellation_requested", false},
                 {"status", pending.completed ? "completed" : "inProgress"}};
    if (pending.completed)
        json["target"] = url;
    else
        json["status_details"] = "Pending certificate created. Please Perform Merge to complete the request.";
    json["request_id"] = pending.requestId;
    return json;
}

bool IsOfKind(const KeyVersion& key, const KeyKind& kind)
{
    const EVP_PKEY* material = key.material.get();
    if (IsRsa(material) != kind.rsa || key.hardware != kind.hardware)
        return false;
    return kind.rsa ? RsaBits(material) == kind.bits : std::string(CurveOf(material)->name) == kind.curve;
}

// Makes the policy describe the key that is kept.
void TakeOverKind(Policy& policy, const KeyVersion& key)
{
    Json& properties = policy.json["key_props"];
    Json kept = {{"exportable", properties.at("exportable")}, {"kty", key.kty()}};
    if (IsRsa(key.material.get()))
        kept["key_size"] = RsaBits(key.material.get());
    else
        kept["crv"] = CurveOf(key.material.get())->name;
    kept["reuse_key"] = properties.at("reuse_key");
    properties = kept;
}

// With the vault locked: throws a Refusal if the name isn't free. Returns the key to reuse, if any.
std::optional<KeyVersion> CheckCreation(Vault& vault, const std::string& name, const Policy& policy)
{
    RequireFreeName<Certificates>(vault, name);
    const auto certificate = vault.certificates.find(name);
    const auto key = vault.keys.find(name);
    if (certificate == vault.certificates.end()) {
        if (key != vault.keys.end())
            throw Conflict("Certificate " + name + " cannot be created: a key of that name exists.");
        return std::nullopt;
    }
    if (certificate->second.pending && !certificate->second.pending->completed)
        throw Conflict(
            "A new key vault certificate can not be created or imported while a pending key vault certificate's status "
            "is inProgress.");
    if (!policy.reuseKey || key == vault.keys.end())
        return std::nullopt;
    const KeyVersion& current = key->second.versions.back();
    if (policy.kindGiven && !IsOfKind(current, policy.kind))
        throw BadParameter("Property reuse_key has invalid value: the key of the certificate is of another type.");
    return current;
}

std::optional<KeyVersion> KeyToReuse(const VaultRequest& request, const Policy& policy)
{
    const std::lock_guard<std::mutex> lock(request.vault->mutex);
    return CheckCreation(*request.vault, request.Name(), policy);
}

// The new version's key and request; no lock is held while the key is made.
PendingOperation MakePending(const VaultRequest& request, Policy& policy)
{
    PendingOperation pending;
    pending.requestId = RandomHex(32);
    pending.version = pending.key.version = RandomHex(32);
    if (const std::optional<KeyVersion> reused = KeyToReuse(request, policy)) {
        pending.key.material = reused->material;
        pending.key.hardware = reused->hardware;
        TakeOverKind(policy, *reused);
    } else {
        pending.key.material = MakeMaterial(policy.kind);
        pending.key.hardware = policy.kind.hardware;
    }
    const bool rsa = IsRsa(pending.key.material.get());
    pending.key.operations = MakeOperations(OperationsOf(policy, rsa));
    pending.request = MakeCertificateRequest(policy, pending.key.material.get());
    return pending;
}

CertificateVersion NewCertificateVersion(const PendingOperation& pending, const Policy& policy, const Attributes& given,
                                         const Tags& tags)
{
    CertificateVersion version;
    version.version = pending.version;
    version.attributes = given;
    version.attributes.enabled = false;  // until the merge
    version.attributes.notBefore = Now() - 600;
    version.attributes.expires = Now() + policy.validityMonths * kMonth;
    version.tags = tags;
    return version;
}

// Base64 of DER; some clients encode it twice.
X509Ptr DecodeCertificate(const std::string& text)
{
    std::string der = FromBase64(text).value_or("");
    if (der.substr(0, 2) == "MI")
        der = FromBase64(der).value_or("");
    return der.substr(0, 5) == "-----" ? CertificateFromPem(der) : CertificateFromDer(der);
}

CertificateObject& FindPending(Vault& vault, const std::string& name)
{
    const auto found = vault.certificates.find(name);
    if (found == vault.certificates.end() || !found->second.pending)
        throw PendingNotFound(name);
    return found->second;
}

CertificateVersion& VersionOf(CertificateObject& certificate, const PendingOperation& pending)
{
    for (CertificateVersion& version : certificate.versions) {
        if (version.version == pending.version)
            return version;
    }
    throw PendingNotFound(certificate.name);
}

// With the vault locked: the pending version gets its certificate, and its key becomes addressable.
const CertificateVersion& Complete(Vault& vault, CertificateObject& certificate, X509* leaf, const Json& body)
{
    PendingOperation& pending = *certificate.pending;
    CertificateVersion& version = VersionOf(certificate, pending);
    version.der = ToDer(leaf);
    version.attributes.enabled = pending.enabled;
    version.attributes.updated = Now();
    ReadAttributes(body, version.attributes);
    // The certificate decides how long it is valid.
    version.attributes.notBefore = UnixTime(X509_get0_notBefore(leaf));
    version.attributes.expires = UnixTime(X509_get0_notAfter(leaf));
    if (body.contains("tags"))
        version.tags = ReadTags(body);

    pending.completed = true;
    pending.key.attributes = version.attributes;
    pending.key.tags = version.tags;
    vault.AddKeyVersion(certificate.name, true, pending.key);
    return version;
}

}  // namespace

Answer CreateCertificate(const VaultRequest& request)
{
    const std::string& name = request.Name();
    Vault& vault = *request.vault;
    const Json body = request.Body();
    if (!body.contains("policy"))
        throw BadParameter("Property policy is required");
    Policy policy = ReadPolicy(vault, ReadObject(body, "policy"));
    Attributes given;
    ReadAttributes(body, given);
    const Tags tags = ReadTags(body);
    PendingOperation pending = MakePending(request, policy);
    pending.enabled = given.enabled;

    const std::lock_guard<std::mutex> lock(vault.mutex);
    CheckCreation(vault, name, policy);
    CertificateObject& certificate =
        vault.AddCertificateVersion(name, NewCertificateVersion(pending, policy, given, tags), policy.json);
    certificate.pending = std::move(pending);
    Answer answer = JsonAnswer(202, PendingJson(request, certificate));
    SetHeader(answer, "Location: " + vault.Url("/certificates/" + certificate.name + "/pending?api-version=" +
                                               request.apiVersion + "&request_id=" + certificate.pending->requestId));
    return answer;
}

Answer GetPending(const VaultRequest& request)
{
    const std::lock_guard<std::mutex> lock(request.vault->mutex);
    return JsonAnswer(200, PendingJson(request, FindPending(*request.vault, request.Name())));
}

Answer DeletePending(const VaultRequest& request)
{
    const std::lock_guard<std::mutex> lock(request.vault->mutex);
    CertificateObject& certificate = FindPending(*request.vault, request.Name());
    const Json json = PendingJson(request, certificate);
    certificate.pending.reset();
    return JsonAnswer(200, json);
}

Answer MergeCertificate(const VaultRequest& request)
{
    const std::string& name = request.Name();
    Vault& vault = *request.vault;
    const Json body = request.Body();
    const std::vector<std::string> chain = ReadTexts(body, "x5c");
    if (chain.empty())
        throw BadParameter("Property x5c is required");
    const X509Ptr leaf = DecodeCertificate(chain.front());
    if (!leaf)
        throw BadParameter(
            "The specified X.509 certificate content can not be read. Please check if certificate is valid.");

    const std::lock_guard<std::mutex> lock(vault.mutex);
    CertificateObject& certificate = FindPending(vault, name);
    if (certificate.pending->completed)
        throw PendingNotFound(name);
    if (!SamePublicKey(X509_get0_pubkey(leaf.get()), certificate.pending->key.material.get()))
        throw BadParameter(
            "The public key of the end-entity certificate in the specified X.509 certificate content does not match "
            "the public part of the specified private key. Please check if certificate is valid.");
    const CertificateVersion& version = Complete(vault, certificate, leaf.get(), body);
    return JsonAnswer(201, Certificates::Bundle(vault, certificate, version));
}

}  // namespace vaultsim

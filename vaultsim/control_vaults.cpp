#include "vaultsim/control_vaults.h"

#include <stdexcept>

#include "vaultsim/base64url.h"
#include "vaultsim/key_material.h"
#include "vaultsim/keys.h"
#include "vaultsim/policy.h"
#include "vaultsim/x509.h"

namespace vaultsim {

namespace {

Json DescribeKey(const KeyObject& key)
{
    Json versions = Json::array();
    for (const KeyVersion& version : key.versions) {
        Json json = {{"version", version.version}, {"kty", version.kty()}, {"key_ops", *version.operations}};
        AddPublicMembers(json, version.material.get(), version.leadingZero);
        json["attributes"] = version.attributes.ToJson();
        json["tags"] = version.tags;
        versions.push_back(json);
    }
    return {{"name", key.name}, {"managed", key.managed}, {"versions", versions}};
}

Json DescribeCertificate(const CertificateObject& certificate)
{
    Json versions = Json::array();
    for (const CertificateVersion& version : certificate.versions)
        versions.push_back({{"version", version.version},
                            {"merged", !version.der.empty()},
                            {"x5t", version.der.empty() ? "" : ToBase64Url(Hash("SHA1", version.der))},
                            {"cer", ToBase64(version.der)},
                            {"attributes", version.attributes.ToJson()},
                            {"tags", version.tags}});
    const char* pending = !certificate.pending ? "none" : certificate.pending->completed ? "completed" : "inProgress";
    return {{"name", certificate.name}, {"versions", versions}, {"policy", certificate.policy}, {"pending", pending}};
}

template <class Map>
Json Names(const Map& objects)
{
    Json names = Json::array();
    for (const auto& [key, deleted] : objects)
        names.push_back(deleted.object.name);
    return names;
}

// From the members kty, size and crv.
KeyKind KindOf(const Json& body)
{
    const std::string kty = body.value("kty", "RSA");
    KeyKind kind;
    kind.rsa = kty.substr(0, 3) == "RSA";
    kind.hardware = kty == "RSA-HSM" || kty == "EC-HSM";
    kind.bits = body.value("size", 2048);
    const Curve* curve = FindCurve(body.value("crv", "P-256"));
    if (!curve || (!kind.rsa && kty.substr(0, 2) != "EC"))
        throw std::invalid_argument("unknown kind of key");
    kind.curve = curve->name;
    return kind;
}

std::string CheckName(const std::string& name)
{
    if (!IsValidName(name))
        throw std::invalid_argument("not a valid name: " + name);
    return name;
}

Attributes AttributesOf(const Json& body)
{
    Attributes attributes;
    attributes.enabled = body.value("enabled", true);
    if (body.contains("nbf"))
        attributes.notBefore = body.at("nbf").get<int64_t>();
    if (body.contains("exp"))
        attributes.expires = body.at("exp").get<int64_t>();
    return attributes;
}

KeyVersion VersionOf(const Json& body, Pkey material)
{
    KeyVersion version;
    version.version = RandomHex(32);
    version.hardware = KindOf(body).hardware;
    version.leadingZero = body.value("leadingZero", false);
    const bool rsa = IsRsa(material.get());
    version.material = std::move(material);
    version.operations = MakeOperations(body.value("key_ops", DefaultOperations(rsa)));
    version.attributes = AttributesOf(body);
    version.tags = body.value("tags", Tags());
    return version;
}

std::string SeedName(const Json& body, const char* prefix, size_t index)
{
    const std::string digits = std::to_string(index);
    return CheckName(body.value("prefix", prefix) + std::string(digits.size() < 6 ? 6 - digits.size() : 0, '0') +
                     digits);
}

X509Ptr SelfSigned(const std::string& subject, EVP_PKEY* key)
{
    CertificateSpec spec;
    spec.subject = subject;
    spec.notBefore = Now() - 600;
    spec.notAfter = Now() + 365 * 24 * 60 * 60;
    spec.publicKey = spec.signer = key;
    return MakeCertificate(spec);
}

void PutCertificate(Vault& vault, const std::string& name, const Json& body, X509* leaf, const Pkey& material)
{
    KeyVersion key = VersionOf(body, material);
    key.attributes.notBefore = UnixTime(X509_get0_notBefore(leaf));
    key.attributes.expires = UnixTime(X509_get0_notAfter(leaf));
    CertificateVersion version;
    version.version = key.version;
    version.der = ToDer(leaf);
    version.attributes = key.attributes;
    version.tags = key.tags;
    const Json properties = {{"x509_props", {{"subject", "CN=" + name}}}, {"key_props", {{"exportable", false}}}};
    Policy policy = ReadPolicy(vault, properties);
    policy.json["key_props"]["kty"] = key.kty();
    if (!body.contains("key_ops"))
        key.operations = MakeOperations(OperationsOf(policy, IsRsa(material.get())));
    vault.AddCertificateVersion(name, std::move(version), policy.json);
    vault.AddKeyVersion(name, true, std::move(key));
}

}  // namespace

Json DescribeVault(Vault& vault)
{
    const std::lock_guard<std::mutex> lock(vault.mutex);
    Json keys = Json::array();
    for (const auto& [name, key] : vault.keys)
        keys.push_back(DescribeKey(key));
    Json certificates = Json::array();
    for (const auto& [name, certificate] : vault.certificates)
        certificates.push_back(DescribeCertificate(certificate));
    return {{"name", vault.name},
            {"tier", vault.premium ? "premium" : "standard"},
            {"keys", keys},
            {"certificates", certificates},
            {"deletedKeys", Names(vault.deletedKeys)},
            {"deletedCertificates", Names(vault.deletedCertificates)}};
}

Pkey CurrentKey(Vault& vault, const std::string& name)
{
    const std::lock_guard<std::mutex> lock(vault.mutex);
    const auto key = vault.keys.find(name);
    if (key == vault.keys.end())
        throw std::invalid_argument("no such key: " + name);
    return key->second.versions.back().material;
}

Json AddKey(Vault& vault, const Json& body)
{
    const std::string name = CheckName(body.at("name").get<std::string>());
    Pkey material = body.contains("pem") ? KeyFromPem(body.at("pem").get<std::string>()) : MakeMaterial(KindOf(body));
    const KeyVersion version = VersionOf(body, std::move(material));
    const std::lock_guard<std::mutex> lock(vault.mutex);
    vault.AddKeyVersion(name, false, version);
    return {{"name", name}, {"version", version.version}};
}

Json SeedKeys(Vault& vault, const Json& body)
{
    const size_t count = body.at("keys").get<size_t>();
    const bool share = body.value("shareMaterial", true);
    KeyVersion version = VersionOf(body, MakeMaterial(KindOf(body)));
    for (size_t i = 0; i < count; i++) {
        if (i > 0 && !share)
            version.material = MakeMaterial(KindOf(body));
        version.version = RandomHex(32);
        const std::lock_guard<std::mutex> lock(vault.mutex);
        vault.AddKeyVersion(SeedName(body, "key-", i), false, version);
    }
    return {{"keys", count}};
}

Json AddCertificates(Vault& vault, const Json& body)
{
    const std::string pem = body.value("pem", "");
    const size_t count = body.value("count", size_t{1});
    const Pkey material = pem.empty() ? MakeMaterial(KindOf(body)) : KeyFromPem(pem);
    const X509Ptr given(pem.empty() ? nullptr : CertificateFromPem(pem).release());
    if (!pem.empty() && (!given || !SamePublicKey(X509_get0_pubkey(given.get()), material.get())))
        throw std::invalid_argument("the PEM text has no certificate for its key");
    const bool share = body.value("shareCertificate", false);
    X509Ptr made;
    for (size_t i = 0; i < count; i++) {
        const std::string name =
            body.contains("count") ? SeedName(body, "cert-", i) : CheckName(body.at("name").get<std::string>());
        if (!given && (!made || !share))
            made = SelfSigned(body.value("subject", "CN=" + name), material.get());
        const std::lock_guard<std::mutex> lock(vault.mutex);
        PutCertificate(vault, name, body, given ? given.get() : made.get(), material);
    }
    return {{"certificates", count}};
}

}  // namespace vaultsim

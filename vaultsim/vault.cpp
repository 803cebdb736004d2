#include "vaultsim/vault.h"

#include <algorithm>

#include "vaultsim/key_material.h"

namespace vaultsim {

namespace {

constexpr char kSuffix[] = ".vault.azure.net";

}  // namespace

Json Attributes::ToJson() const
{
    Json json = {{"enabled", enabled}};
    if (notBefore)
        json["nbf"] = *notBefore;
    if (expires)
        json["exp"] = *expires;
    json["created"] = created;
    json["updated"] = updated;
    json["recoveryLevel"] = "Recoverable+Purgeable";
    return json;
}

Operations MakeOperations(std::vector<std::string> operations)
{
    return std::make_shared<const std::vector<std::string>>(std::move(operations));
}

void ObjectVersion::AddTo(Json& json) const
{
    json["attributes"] = attributes.ToJson();
    if (!tags.empty())
        json["tags"] = tags;
}

std::string KeyVersion::kty() const
{
    return std::string(IsRsa(material.get()) ? "RSA" : "EC") + (hardware ? "-HSM" : "");
}

const CertificateVersion& CertificateObject::Current() const
{
    const auto merged = std::find_if(versions.rbegin(), versions.rend(),
                                     [](const CertificateVersion& version) { return !version.der.empty(); });
    return merged == versions.rend() ? versions.back() : *merged;
}

KeyObject& Vault::AddKeyVersion(const std::string& keyName, bool managed, KeyVersion version)
{
    KeyObject& key = keys[keyName];
    if (key.versions.empty())
        key.name = keyName;
    key.managed = managed;
    key.versions.push_back(std::move(version));
    return key;
}

CertificateObject& Vault::AddCertificateVersion(const std::string& certificateName, CertificateVersion version,
                                                const Json& policy)
{
    CertificateObject& certificate = certificates[certificateName];
    if (certificate.versions.empty())
        certificate.name = certificateName;
    certificate.versions.push_back(std::move(version));
    certificate.policy = policy;
    certificate.policyUpdated = Now();
    return certificate;
}

std::shared_ptr<Vault> Vaults::Add(const std::string& name, bool premium)
{
    auto vault = std::make_shared<Vault>();
    vault->name = name;
    vault->premium = premium;
    vault->host = Lower(name) + kSuffix;
    const std::lock_guard<std::mutex> lock(mutex_);
    vaults_[name] = vault;
    return vault;
}

bool Vaults::Remove(const std::string& name)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return vaults_.erase(name) > 0;
}

void Vaults::Clear()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    vaults_.clear();
}

std::shared_ptr<Vault> Vaults::Find(const std::string& name) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = vaults_.find(name);
    return found == vaults_.end() ? nullptr : found->second;
}

std::shared_ptr<Vault> Vaults::FindHost(const std::string& host) const
{
    const size_t dot = host.find('.');
    return dot != std::string::npos && host.substr(dot) == kSuffix ? Find(host.substr(0, dot)) : nullptr;
}

bool IsValidName(const std::string& name)
{
    return !name.empty() && name.size() <= 127 && std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-';
    });
}

}  // namespace vaultsim

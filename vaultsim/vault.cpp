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

CertificateVersion& CertificateObject::Current()
{
    return const_cast<CertificateVersion&>(static_cast<const CertificateObject&>(*this).Current());
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

std::string NewVersion()
{
    return RandomHex(32);
}

bool IsValidName(const std::string& name)
{
    return !name.empty() && name.size() <= 127 && std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-';
    });
}

}  // namespace vaultsim

// What a vault holds.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "vaultsim/json.h"
#include "vaultsim/openssl_ptr.h"
#include "vaultsim/text.h"

namespace vaultsim {

struct Attributes {
    bool enabled = true;
    std::optional<int64_t> notBefore;
    std::optional<int64_t> expires;
    int64_t created = 0;
    int64_t updated = 0;

    Json ToJson() const;
};

using Tags = std::map<std::string, std::string>;

struct KeyVersion {
    std::string version;  // 32 hexadecimal digits
    bool hardware = false;
    bool leadingZero = false;  // show the public numbers with a leading zero byte
    Pkey material;
    std::shared_ptr<const std::vector<std::string>> operations;
    Attributes attributes;
    Tags tags;

    std::string kty() const;
};

struct KeyObject {
    std::string name;
    bool managed = false;              // the key of a certificate
    std::vector<KeyVersion> versions;  // the last is the current one
};

struct CertificateVersion {
    std::string version;
    std::string der;  // empty until the merge
    Attributes attributes;
    Tags tags;
};

// A certificate request that waits for its certificate, or has got it.
struct PendingOperation {
    std::string requestId;
    std::string version;  // of the certificate that it makes
    std::string request;  // DER
    KeyVersion key;       // as it will be, but for its attributes
    bool enabled = true;  // once there is a certificate
    bool completed = false;
};

struct CertificateObject {
    std::string name;
    std::vector<CertificateVersion> versions;
    Json policy;
    int64_t policyUpdated = 0;
    std::optional<PendingOperation> pending;

    // The newest version that has a certificate, else the newest.
    CertificateVersion& Current();
    const CertificateVersion& Current() const;
};

template <class Object>
struct Deleted {
    Object object;
    std::optional<KeyObject> managedKey;  // goes and comes back with its certificate
    int64_t deletedDate = 0;
    int beingDeletedAnswers = 0;  // refusals left until the deletion is complete
};

template <class Object>
using ByName = std::map<std::string, Object, NameLess>;

struct Vault {
    std::string name;
    bool premium = true;
    std::string host;  // NAME.vault.azure.net

    std::mutex mutex;  // of all below; never held while a key is made or used
    ByName<KeyObject> keys;
    ByName<CertificateObject> certificates;
    ByName<Deleted<KeyObject>> deletedKeys;
    ByName<Deleted<CertificateObject>> deletedCertificates;
};

class Vaults {
  public:
    std::shared_ptr<Vault> Add(const std::string& name, bool premium);  // in place of one of that name
    bool Remove(const std::string& name);
    void Clear();
    std::shared_ptr<Vault> Find(const std::string& name) const;
    std::shared_ptr<Vault> FindHost(const std::string& host) const;

  private:
    mutable std::mutex mutex_;
    ByName<std::shared_ptr<Vault>> vaults_;
};

std::string NewVersion();
bool IsValidName(const std::string& name);  // letters, digits and "-", 1 to 127

}  // namespace vaultsim

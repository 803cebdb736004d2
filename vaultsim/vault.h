// Vaults and their content.
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
    int64_t created = Now();
    int64_t updated = created;

    Json ToJson() const;
};

using Tags = std::map<std::string, std::string>;

// Shared, because a seeded vault can have 100,000 of them.
using Operations = std::shared_ptr<const std::vector<std::string>>;
Operations MakeOperations(std::vector<std::string> operations);

// A version of a key or of a certificate.
struct ObjectVersion {
    std::string version;  // 32 hexadecimal digits
    Attributes attributes;
    Tags tags;

    // Adds the members "attributes" and, if there are any, "tags".
    void AddTo(Json& json) const;
};

struct KeyVersion : ObjectVersion {
    bool hardware = false;
    bool leadingZero = false;  // show the public numbers with a leading zero byte
    Pkey material;
    Operations operations;

    std::string kty() const;
};

struct KeyObject {
    std::string name;
    bool managed = false;  // the key of a certificate
    std::vector<KeyVersion> versions;

    const KeyVersion& Current() const { return versions.back(); }
};

struct CertificateVersion : ObjectVersion {
    std::string der;  // empty until the merge
};

// A certificate request that waits for its certificate, or already has it.
struct PendingOperation {
    std::string requestId;
    std::string version;  // of the certificate to be
    std::string request;  // DER
    KeyVersion key;       // complete but for its attributes
    bool enabled = true;  // what the attribute becomes with the merge
    bool completed = false;
};

// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON value throws nothing.
struct CertificateObject {
    std::string name;
    std::vector<CertificateVersion> versions;
    Json policy;
    int64_t policyUpdated = 0;
    std::optional<PendingOperation> pending;

    // The newest version that has a certificate, else the newest.
    const CertificateVersion& Current() const;
};

template <class Object>
// NOLINTNEXTLINE(bugprone-exception-escape): as above.
struct Deleted {
    Object object;
    std::optional<KeyObject> managedKey;  // deleted and recovered with its certificate
    int64_t deletedDate = 0;
    int beingDeletedAnswers = 0;  // refusals left until the deletion is complete
};

template <class Object>
using ByName = std::map<std::string, Object, NameLess>;

struct Vault {
    std::string name;
    bool premium = true;
    std::string host;  // NAME.vault.azure.net

    std::string Url(const std::string& path) const { return "https://" + host + path; }

    std::mutex mutex;  // guards all below; never held while a key is made or used
    ByName<KeyObject> keys;
    ByName<CertificateObject> certificates;
    ByName<Deleted<KeyObject>> deletedKeys;
    ByName<Deleted<CertificateObject>> deletedCertificates;

    // With the vault locked: adds a version, and the object if it is new.
    KeyObject& AddKeyVersion(const std::string& keyName, bool managed, KeyVersion version);
    CertificateObject& AddCertificateVersion(const std::string& certificateName, CertificateVersion version,
                                             const Json& policy);
};

class Vaults {
  public:
    std::shared_ptr<Vault> Add(const std::string& name, bool premium);  // replaces one of that name
    bool Remove(const std::string& name);
    void Clear();
    std::shared_ptr<Vault> Find(const std::string& name) const;
    std::shared_ptr<Vault> FindHost(const std::string& host) const;

  private:
    mutable std::mutex mutex_;
    ByName<std::shared_ptr<Vault>> vaults_;
};

bool IsValidName(const std::string& name);  // letters, digits and "-", 1 to 127

}  // namespace vaultsim

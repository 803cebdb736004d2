#include "vaultsim/deletion.h"

#include "vaultsim/certificates.h"
#include "vaultsim/keys.h"
#include "vaultsim/listing.h"

namespace vaultsim {

namespace {

constexpr int64_t kRetention = 90 * 24 * 60 * 60;  // seconds

// What differs between the two kinds.
struct KeyTraits {
    using Object = KeyObject;
    static constexpr char kWord[] = "Key";
    static constexpr char kArea[] = "deletedkeys";
    static ByName<KeyObject>& Live(Vault& vault) { return vault.keys; }
    static ByName<Deleted<KeyObject>>& Area(Vault& vault) { return vault.deletedKeys; }
    static Json Bundle(const Vault& vault, const KeyObject& key) { return KeyBundle(vault, key, key.versions.back()); }
    static Refusal Missing(const std::string& name) { return KeyNotFound(name); }
};

struct CertificateTraits {
    using Object = CertificateObject;
    static constexpr char kWord[] = "Certificate";
    static constexpr char kArea[] = "deletedcertificates";
    static ByName<CertificateObject>& Live(Vault& vault) { return vault.certificates; }
    static ByName<Deleted<CertificateObject>>& Area(Vault& vault) { return vault.deletedCertificates; }
    static Json Bundle(const Vault& vault, const CertificateObject& certificate)
    {
        return CertificateBundle(vault, certificate, certificate.Current());
    }
    static Refusal Missing(const std::string& name) { return CertificateNotFound(name); }
};

// Counts an answer of the time in which the object is being deleted; false when that time is over.
template <class Object>
bool IsBeingDeleted(Deleted<Object>& deleted)
{
    if (deleted.beingDeletedAnswers <= 0)
        return false;
    deleted.beingDeletedAnswers--;
    return true;
}

template <class Object>
void RequireFree(ByName<Deleted<Object>>& area, const std::string& name, const std::string& word)
{
    const auto found = area.find(name);
    if (found == area.end())
        return;
    if (IsBeingDeleted(found->second))
        throw Conflict(word + " " + name + " is currently being deleted and cannot be re-created; retry later.",
                       "ObjectIsBeingDeleted");
    throw Conflict(
        word + " " + name +
            " is currently in a deleted but recoverable state, and its name cannot be reused; in this state, "
            "the " +
            Lower(word) + " can only be recovered or purged.",
        "ObjectIsDeletedButRecoverable");
}

template <class Traits>
Json DeletedBundle(const Vault& vault, const Deleted<typename Traits::Object>& deleted)
{
    Json bundle = {
        {"recoveryId", "https://" + vault.host + "/" + std::string(Traits::kArea) + "/" + deleted.object.name},
        {"deletedDate", deleted.deletedDate},
        {"scheduledPurgeDate", deleted.deletedDate + kRetention}};
    bundle.update(Traits::Bundle(vault, deleted.object));
    return bundle;
}

template <class Traits>
Answer Delete(const VaultRequest& request, Deleted<typename Traits::Object> deleted)
{
    deleted.deletedDate = Now();
    deleted.beingDeletedAnswers = request.settings.beingDeletedAnswers;
    const Json bundle = DeletedBundle<Traits>(*request.vault, deleted);
    Traits::Live(*request.vault).erase(deleted.object.name);
    Traits::Area(*request.vault)[deleted.object.name] = std::move(deleted);
    return JsonAnswer(200, bundle);
}

// The deleted object of the request, for a read; throws where there is none or it is still being deleted.
template <class Traits>
Answer GetDeleted(const VaultRequest& request)
{
    const std::string& name = request.Name();
    const std::lock_guard<std::mutex> lock(request.vault->mutex);
    auto& area = Traits::Area(*request.vault);
    const auto found = area.find(name);
    if (found == area.end() || IsBeingDeleted(found->second))
        throw Traits::Missing(name);
    return JsonAnswer(200, DeletedBundle<Traits>(*request.vault, found->second));
}

template <class Traits>
Answer ListDeleted(const VaultRequest& request)
{
    const std::lock_guard<std::mutex> lock(request.vault->mutex);
    return ListPage(request, Traits::Area(*request.vault), [&](const Deleted<typename Traits::Object>& deleted) {
        Json item = DeletedBundle<Traits>(*request.vault, deleted);
        for (const char* member : {"key", "cer", "kid", "sid", "policy", "pending"})
            item.erase(member);
        return item;
    });
}

// Takes the deleted object of the request out of its area; throws where it can't be.
template <class Traits>
Deleted<typename Traits::Object> Take(const VaultRequest& request)
{
    auto& area = Traits::Area(*request.vault);
    const auto found = area.find(request.Name());
    if (found == area.end())
        throw Traits::Missing(request.Name());
    if (IsBeingDeleted(found->second))
        throw Conflict(std::string(Traits::kWord) + " is currently being deleted.", "ObjectIsBeingDeleted");
    auto taken = std::move(found->second);
    area.erase(found);
    return taken;
}

template <class Traits>
Answer Recover(const VaultRequest& request)
{
    const std::lock_guard<std::mutex> lock(request.vault->mutex);
    auto taken = Take<Traits>(request);
    const Json bundle = Traits::Bundle(*request.vault, taken.object);
    if (taken.managedKey)
        request.vault->keys[taken.managedKey->name] = std::move(*taken.managedKey);
    Traits::Live(*request.vault)[taken.object.name] = std::move(taken.object);
    return JsonAnswer(200, bundle);
}

template <class Traits>
Answer Purge(const VaultRequest& request)
{
    const std::lock_guard<std::mutex> lock(request.vault->mutex);
    Take<Traits>(request);
    return {204, "", {}};
}

}  // namespace

void RequireFreeKeyName(Vault& vault, const std::string& name)
{
    RequireFree(vault.deletedKeys, name, "Key");
    RequireFree(vault.deletedCertificates, name, "Key");
}

void RequireFreeCertificateName(Vault& vault, const std::string& name)
{
    RequireFree(vault.deletedCertificates, name, "Certificate");
    RequireFree(vault.deletedKeys, name, "Certificate");
}

Answer DeleteKey(const VaultRequest& request)
{
    const std::lock_guard<std::mutex> lock(request.vault->mutex);
    const auto found = request.vault->keys.find(request.Name());
    if (found == request.vault->keys.end())
        throw KeyNotFound(request.Name());
    if (found->second.managed)
        throw Forbidden("Operation delete is not allowed on a key that is managed by a certificate.");
    Deleted<KeyObject> deleted;
    deleted.object = found->second;
    return Delete<KeyTraits>(request, std::move(deleted));
}

Answer DeleteCertificate(const VaultRequest& request)
{
    Vault& vault = *request.vault;
    const std::lock_guard<std::mutex> lock(vault.mutex);
    const auto found = vault.certificates.find(request.Name());
    if (found == vault.certificates.end())
        throw CertificateNotFound(request.Name());
    Deleted<CertificateObject> deleted;
    deleted.object = found->second;
    deleted.object.pending.reset();
    const auto key = vault.keys.find(found->second.name);
    if (key != vault.keys.end()) {
        deleted.managedKey = std::move(key->second);
        vault.keys.erase(key);
    }
    return Delete<CertificateTraits>(request, std::move(deleted));
}

Answer GetDeletedKey(const VaultRequest& request)
{
    return GetDeleted<KeyTraits>(request);
}

Answer ListDeletedKeys(const VaultRequest& request)
{
    return ListDeleted<KeyTraits>(request);
}

Answer RecoverKey(const VaultRequest& request)
{
    return Recover<KeyTraits>(request);
}

Answer PurgeKey(const VaultRequest& request)
{
    return Purge<KeyTraits>(request);
}

Answer GetDeletedCertificate(const VaultRequest& request)
{
    return GetDeleted<CertificateTraits>(request);
}

Answer ListDeletedCertificates(const VaultRequest& request)
{
    return ListDeleted<CertificateTraits>(request);
}

Answer RecoverCertificate(const VaultRequest& request)
{
    return Recover<CertificateTraits>(request);
}

Answer PurgeCertificate(const VaultRequest& request)
{
    return Purge<CertificateTraits>(request);
}

}  // namespace vaultsim

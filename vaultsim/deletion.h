// What keys and certificates have in common: reading, listing, deletion, recovery and purge, written once for both.
// `Kind` is Keys (keys.h) or Certificates (certificates.h), which define what differs:
//   Object, Version    the vault's types                  kWord, kArea     in messages, in addresses
//   Live, Area         the maps of a vault                Missing          the refusal for an unknown name
//   Bundle, Item       an object as JSON, in full and in a listing
//   Detach             prepares a deletion: throws a Refusal if it isn't allowed
#pragma once

#include "vaultsim/listing.h"
#include "vaultsim/refusal.h"
#include "vaultsim/request.h"

namespace vaultsim {

constexpr int64_t kRetention = 90 * 24 * 60 * 60;  // seconds

// The functions before those that return an Answer are called with the vault locked, and throw a Refusal for what can't
// be found.
template <class Kind>
typename Kind::Object& FindObject(Vault& vault, const std::string& name)
{
    const auto found = Kind::Live(vault).find(name);
    if (found == Kind::Live(vault).end())
        throw Kind::Missing(name);
    return found->second;
}

// An empty `version` means the current one.
template <class Kind>
const typename Kind::Version& FindVersion(const typename Kind::Object& object, const std::string& version)
{
    if (version.empty())
        return object.Current();
    for (const auto& candidate : object.versions) {
        if (EqualsNoCase(candidate.version, version))
            return candidate;
    }
    throw Kind::Missing(object.name + "/" + version);
}

// Counts down the responses during which the object is still being deleted; false once the deletion is complete.
template <class Object>
bool IsBeingDeleted(Deleted<Object>& deleted)
{
    return deleted.beingDeletedAnswers > 0 && deleted.beingDeletedAnswers-- > 0;
}

template <class Object>
void RequireNotDeleted(ByName<Deleted<Object>>& area, const std::string& name, const std::string& word)
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

// Throws a Refusal with status 409 if an object of this name is deleted or being deleted.
template <class Kind>
void RequireFreeName(Vault& vault, const std::string& name)
{
    RequireNotDeleted(vault.deletedKeys, name, Kind::kWord);
    RequireNotDeleted(vault.deletedCertificates, name, Kind::kWord);
}

template <class Kind>
Json DeletedBundle(const Vault& vault, const Deleted<typename Kind::Object>& deleted)
{
    Json bundle = {{"recoveryId", vault.Url(std::string("/") + Kind::kArea + "/" + deleted.object.name)},
                   {"deletedDate", deleted.deletedDate},
                   {"scheduledPurgeDate", deleted.deletedDate + kRetention}};
    bundle.update(Kind::Bundle(vault, deleted.object, deleted.object.Current()));
    return bundle;
}

template <class Kind>
Deleted<typename Kind::Object> TakeDeleted(const VaultRequest& request)
{
    auto& area = Kind::Area(*request.vault);
    const auto found = area.find(request.Name());
    if (found == area.end())
        throw Kind::Missing(request.Name());
    if (IsBeingDeleted(found->second))
        throw Conflict(std::string(Kind::kWord) + " is currently being deleted.", "ObjectIsBeingDeleted");
    auto taken = std::move(found->second);
    area.erase(found);
    return taken;
}

template <class Kind>
Answer Get(const VaultRequest& request)
{
    const std::string& name = request.Name();
    const std::lock_guard<std::mutex> lock(request.vault->mutex);
    const auto& object = FindObject<Kind>(*request.vault, name);
    const std::string version = request.call.segments.size() > 2 ? request.call.segments[2] : "";
    return JsonAnswer(200, Kind::Bundle(*request.vault, object, FindVersion<Kind>(object, version)));
}

template <class Kind>
Answer List(const VaultRequest& request)
{
    const std::lock_guard<std::mutex> lock(request.vault->mutex);
    return ListPage(request, Kind::Live(*request.vault),
                    [&](const typename Kind::Object& object) { return Kind::Item(*request.vault, object); });
}

template <class Kind>
Answer Delete(const VaultRequest& request)
{
    Vault& vault = *request.vault;
    const std::lock_guard<std::mutex> lock(vault.mutex);
    Deleted<typename Kind::Object> deleted;
    deleted.object = FindObject<Kind>(vault, request.Name());
    deleted.deletedDate = Now();
    deleted.beingDeletedAnswers = request.settings.beingDeletedAnswers;
    Kind::Detach(vault, deleted);
    const Json bundle = DeletedBundle<Kind>(vault, deleted);
    Kind::Live(vault).erase(deleted.object.name);
    Kind::Area(vault)[deleted.object.name] = std::move(deleted);
    return JsonAnswer(200, bundle);
}

template <class Kind>
Answer GetDeleted(const VaultRequest& request)
{
    const std::string& name = request.Name();
    const std::lock_guard<std::mutex> lock(request.vault->mutex);
    auto& area = Kind::Area(*request.vault);
    const auto found = area.find(name);
    if (found == area.end() || IsBeingDeleted(found->second))
        throw Kind::Missing(name);
    return JsonAnswer(200, DeletedBundle<Kind>(*request.vault, found->second));
}

template <class Kind>
Answer ListDeleted(const VaultRequest& request)
{
    const std::lock_guard<std::mutex> lock(request.vault->mutex);
    return ListPage(request, Kind::Area(*request.vault), [&](const Deleted<typename Kind::Object>& deleted) {
        Json item = DeletedBundle<Kind>(*request.vault, deleted);
        for (const char* member : {"key", "cer", "kid", "sid", "policy", "pending"})
            item.erase(member);
        return item;
    });
}

template <class Kind>
Answer Recover(const VaultRequest& request)
{
    Vault& vault = *request.vault;
    const std::lock_guard<std::mutex> lock(vault.mutex);
    auto taken = TakeDeleted<Kind>(request);
    const Json bundle = Kind::Bundle(vault, taken.object, taken.object.Current());
    if (taken.managedKey)
        vault.keys[taken.managedKey->name] = std::move(*taken.managedKey);
    Kind::Live(vault)[taken.object.name] = std::move(taken.object);
    return JsonAnswer(200, bundle);
}

template <class Kind>
Answer Purge(const VaultRequest& request)
{
    const std::lock_guard<std::mutex> lock(request.vault->mutex);
    TakeDeleted<Kind>(request);
    return {204, "", {}};
}

}  // namespace vaultsim

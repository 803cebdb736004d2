#include "vaultsim/keys.h"

#include <algorithm>

#include "vaultsim/deletion.h"
#include "vaultsim/key_material.h"
#include "vaultsim/listing.h"

namespace vaultsim {

namespace {

const std::vector<std::string> kKeyOperations = {"encrypt", "decrypt",   "sign",  "verify",
                                                 "wrapKey", "unwrapKey", "import"};

std::vector<std::string> ReadOperations(const Json& body, bool rsa)
{
    if (!body.contains("key_ops"))
        return DefaultOperations(rsa);
    std::vector<std::string> operations = ReadTexts(body, "key_ops");
    for (const std::string& operation : operations) {
        if (std::find(kKeyOperations.begin(), kKeyOperations.end(), operation) == kKeyOperations.end())
            throw BadParameter("Property key_ops has invalid value: " + operation);
    }
    return operations;
}

Json KeyItem(const Vault& vault, const KeyObject& key)
{
    const KeyVersion& version = key.versions.back();
    Json item = {{"kid", "https://" + vault.host + "/keys/" + key.name}, {"attributes", version.attributes.ToJson()}};
    if (!version.tags.empty())
        item["tags"] = version.tags;
    if (key.managed)
        item["managed"] = true;
    return item;
}

}  // namespace

Refusal KeyNotFound(const std::string& name)
{
    return NotFound("KeyNotFound", "A key with (name/id) " + name +
                                       " was not found in this key vault. If you recently deleted this key you may be "
                                       "able to recover it using the correct recovery command.");
}

KeyKind ReadKeyKind(const Vault& vault, const Json& object)
{
    const std::string kty = ReadText(object, "kty");
    KeyKind kind;
    kind.rsa = kty == "RSA" || kty == "RSA-HSM";
    kind.hardware = kty == "RSA-HSM" || kty == "EC-HSM";
    if (!kind.rsa && kty != "EC" && kty != "EC-HSM")
        throw BadParameter("Property kty has invalid value: " + kty);
    const std::optional<int64_t> size = ReadNumber(object, "key_size");
    if (kind.rsa) {
        kind.bits = static_cast<int>(size.value_or(2048));
        if (size.value_or(2048) != kind.bits || (kind.bits != 2048 && kind.bits != 3072 && kind.bits != 4096))
            throw BadParameter("Property key_size has invalid value: " + std::to_string(*size));
    } else {
        const Curve* curve = FindCurve(ReadText(object, "crv", "P-256"));
        if (!curve)
            throw BadParameter("Property crv has invalid value: " + ReadText(object, "crv"));
        if (size && *size != curve->bits)
            throw BadParameter("Property key_size has invalid value: " + std::to_string(*size));
        kind.curve = curve->name;
    }
    if (kind.hardware && !vault.premium)
        throw BadParameter("Hardware key operation not allowed on standard vault");
    return kind;
}

Pkey MakeMaterial(const KeyKind& kind)
{
    return kind.rsa ? GenerateRsa(kind.bits) : GenerateEc(*FindCurve(kind.curve));
}

std::vector<std::string> DefaultOperations(bool rsa)
{
    return rsa ? std::vector<std::string>{"encrypt", "decrypt", "sign", "verify", "wrapKey", "unwrapKey"}
               : std::vector<std::string>{"sign", "verify"};
}

Json KeyBundle(const Vault& vault, const KeyObject& key, const KeyVersion& version)
{
    Json jwk = {{"kid", "https://" + vault.host + "/keys/" + key.name + "/" + version.version},
                {"kty", version.kty()},
                {"key_ops", *version.operations}};
    AddPublicMembers(jwk, version.material.get(), version.leadingZero);
    Json bundle = {{"key", jwk}, {"attributes", version.attributes.ToJson()}};
    if (!version.tags.empty())
        bundle["tags"] = version.tags;
    if (key.managed)
        bundle["managed"] = true;
    return bundle;
}

const KeyVersion& FindVersion(const KeyObject& key, const std::string& version)
{
    if (version.empty())
        return key.versions.back();
    for (const KeyVersion& candidate : key.versions) {
        if (EqualsNoCase(candidate.version, version))
            return candidate;
    }
    throw KeyNotFound(key.name + "/" + version);
}

Answer CreateKey(const VaultRequest& request)
{
    const std::string& name = request.Name();
    const Json body = request.Body();
    const KeyKind kind = ReadKeyKind(*request.vault, body);
    KeyVersion version;
    version.version = NewVersion();
    version.hardware = kind.hardware;
    version.operations = std::make_shared<const std::vector<std::string>>(ReadOperations(body, kind.rsa));
    version.attributes.created = version.attributes.updated = Now();
    ReadAttributes(body, version.attributes);
    version.tags = ReadTags(body);
    version.material = MakeMaterial(kind);

    const std::lock_guard<std::mutex> lock(request.vault->mutex);
    RequireFreeKeyName(*request.vault, name);
    if (request.vault->certificates.count(name) > 0)
        throw Conflict("Key " + name + " is managed by a certificate and cannot be created.");
    KeyObject& key = request.vault->keys[name];
    if (key.versions.empty())
        key.name = name;
    key.versions.push_back(version);
    return JsonAnswer(200, KeyBundle(*request.vault, key, key.versions.back()));
}

Answer GetKey(const VaultRequest& request)
{
    const std::string& name = request.Name();
    const std::lock_guard<std::mutex> lock(request.vault->mutex);
    const auto key = request.vault->keys.find(name);
    if (key == request.vault->keys.end())
        throw KeyNotFound(name);
    const std::string version = request.call.segments.size() > 2 ? request.call.segments[2] : "";
    return JsonAnswer(200, KeyBundle(*request.vault, key->second, FindVersion(key->second, version)));
}

Answer ListKeys(const VaultRequest& request)
{
    const std::lock_guard<std::mutex> lock(request.vault->mutex);
    return ListPage(request, request.vault->keys, [&](const KeyObject& key) { return KeyItem(*request.vault, key); });
}

}  // namespace vaultsim

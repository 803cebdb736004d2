#include "vaultsim/keys.h"

#include <algorithm>

#include "vaultsim/deletion.h"
#include "vaultsim/key_material.h"

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

}  // namespace

Refusal Keys::Missing(const std::string& name)
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

Json Keys::Bundle(const Vault& vault, const KeyObject& key, const KeyVersion& version)
{
    Json jwk = {{"kid", vault.Url("/keys/" + key.name + "/" + version.version)},
                {"kty", version.kty()},
                {"key_ops", *version.operations}};
    AddPublicMembers(jwk, version.material.get(), version.leadingZero);
    Json bundle = {{"key", jwk}};
    version.AddTo(bundle);
    if (key.managed)
        bundle["managed"] = true;
    return bundle;
}

Json Keys::Item(const Vault& vault, const KeyObject& key)
{
    Json item = {{"kid", vault.Url("/keys/" + key.name)}};
    key.Current().AddTo(item);
    if (key.managed)
        item["managed"] = true;
    return item;
}

void Keys::Detach(Vault&, Deleted<KeyObject>& deleted)
{
    if (deleted.object.managed)
        throw Forbidden("Operation delete is not allowed on a key that is managed by a certificate.");
}

Answer CreateKey(const VaultRequest& request)
{
    const std::string& name = request.Name();
    const Json body = request.Body();
    const KeyKind kind = ReadKeyKind(*request.vault, body);
    KeyVersion version;
    version.version = RandomHex(32);
    version.hardware = kind.hardware;
    version.operations = MakeOperations(ReadOperations(body, kind.rsa));
    ReadAttributes(body, version.attributes);
    version.tags = ReadTags(body);
    version.material = MakeMaterial(kind);

    const std::lock_guard<std::mutex> lock(request.vault->mutex);
    RequireFreeName<Keys>(*request.vault, name);
    if (request.vault->certificates.count(name) > 0)
        throw Conflict("Key " + name + " is managed by a certificate and cannot be created.");
    const KeyObject& key = request.vault->AddKeyVersion(name, false, version);
    return JsonAnswer(200, Keys::Bundle(*request.vault, key, version));
}

}  // namespace vaultsim

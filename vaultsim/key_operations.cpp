#include "vaultsim/key_operations.h"

#include <algorithm>
#include <stdexcept>

#include "vaultsim/base64url.h"
#include "vaultsim/deletion.h"
#include "vaultsim/key_material.h"
#include "vaultsim/keys.h"
#include "vaultsim/refusal.h"
#include "vaultsim/signature.h"

namespace vaultsim {

namespace {

struct OperationKey {
    std::string kid;
    Pkey material;
};

using Operation = Json (*)(const OperationKey& key, const Json& body);

// The algorithm that the body names, by one of the functions FindSignatureAlgorithm and FindEncryptionAlgorithm.
template <class Algorithm>
const Algorithm& AlgorithmOf(const Json& body, const Algorithm* (*find)(const std::string& name))
{
    const std::string name = ReadText(body, "alg");
    if (name.empty())
        throw BadParameter("Property alg is required");
    if (const Algorithm* algorithm = find(name))
        return *algorithm;
    throw BadParameter("Property alg has invalid value: " + name);
}

Refusal Incompatible(const OperationKey& key, const std::string& algorithm)
{
    const Curve* curve = CurveOf(key.material.get());
    return BadParameter("Key and signing algorithm are incompatible. Key " + key.kid + " is of type '" +
                        (curve ? std::string("EC', curve '") + curve->name : "RSA") + "', and algorithm '" + algorithm +
                        "' cannot be used with it.");
}

const SignatureAlgorithm& SignatureAlgorithmFor(const OperationKey& key, const Json& body)
{
    const SignatureAlgorithm& algorithm = AlgorithmOf(body, FindSignatureAlgorithm);
    const Curve* curve = CurveOf(key.material.get());
    if (curve ? std::string(algorithm.name) != curve->algorithm : algorithm.curve != nullptr)
        throw Incompatible(key, algorithm.name);
    return algorithm;
}

const EncryptionAlgorithm& EncryptionAlgorithmFor(const OperationKey& key, const Json& body)
{
    const EncryptionAlgorithm& algorithm = AlgorithmOf(body, FindEncryptionAlgorithm);
    if (!IsRsa(key.material.get()))
        throw Incompatible(key, algorithm.name);
    return algorithm;
}

std::string ReadDigest(const OperationKey& key, const SignatureAlgorithm& algorithm, const Json& body,
                       const char* member)
{
    std::string digest = ReadBytes(body, member);
    const size_t most = static_cast<size_t>(RsaBits(key.material.get()) / 8 - 11);  // for an RSA key
    const std::string invalid = std::string("Invalid length of '") + member + "': " + std::to_string(digest.size()) +
                                " bytes. " + algorithm.name;
    if (algorithm.digestSize == 0 && digest.size() > most)
        throw BadParameter(invalid + " allows " + std::to_string(most) + " bytes, encoded with base64url.");
    if (algorithm.digestSize != 0 && digest.size() != algorithm.digestSize)
        throw BadParameter(invalid + " requires " + std::to_string(algorithm.digestSize) +
                           " bytes, encoded with base64url.");
    return digest;
}

Json Sign(const OperationKey& key, const Json& body)
{
    const SignatureAlgorithm& algorithm = SignatureAlgorithmFor(key, body);
    const std::string digest = ReadDigest(key, algorithm, body, "value");
    return {{"kid", key.kid}, {"value", ToBase64Url(SignDigest(key.material.get(), algorithm, digest))}};
}

Json Verify(const OperationKey& key, const Json& body)
{
    const SignatureAlgorithm& algorithm = SignatureAlgorithmFor(key, body);
    const std::string digest = ReadDigest(key, algorithm, body, "digest");
    return {{"value", VerifyDigest(key.material.get(), algorithm, digest, ReadBytes(body, "value"))}};
}

template <auto Transform>
Json TransformValue(const OperationKey& key, const Json& body)
{
    const EncryptionAlgorithm& algorithm = EncryptionAlgorithmFor(key, body);
    return {{"kid", key.kid},
            {"value", ToBase64Url(Transform(key.material.get(), algorithm, ReadBytes(body, "value")))}};
}

struct OperationRow {
    const char* name;
    bool privateHalf;  // refused while the key is disabled
    bool lifetime;     // refused outside the key's lifetime
    Operation run;
};

constexpr OperationRow kOperations[] = {
    {"sign", true, true, Sign},
    {"verify", false, false, Verify},
    {"encrypt", false, true, TransformValue<Encrypt>},
    {"decrypt", true, false, TransformValue<Decrypt>},
};

const OperationRow& FindOperation(const Call& call)
{
    if (const OperationRow* row = FindByName(kOperations, call.segments.back()))
        return *row;
    throw BadParameter("Method " + call.method + " does not allow operation '" + call.segments.back() + "'");
}

void CheckPermitted(const OperationRow& operation, const KeyVersion& version)
{
    const std::string name = operation.name;
    const std::vector<std::string>& permitted = *version.operations;
    if (std::find(permitted.begin(), permitted.end(), name) == permitted.end())
        throw Forbidden("Operation " + name + " is not permitted on this key.", "KeyOperationForbidden");
    if (operation.privateHalf && !version.attributes.enabled)
        throw Forbidden("Operation " + name + " is not allowed on a disabled key.", "KeyDisabled");
    if (operation.lifetime && version.attributes.expires.value_or(INT64_MAX) <= Now())
        throw Forbidden("Operation " + name + " is not allowed on an expired key.", "KeyExpired");
    if (operation.lifetime && version.attributes.notBefore.value_or(0) > Now())
        throw Forbidden("Operation " + name + " is not allowed on a key that is not yet valid.", "KeyNotYetValid");
}

// The key of the request; throws a Refusal if its state forbids the operation.
OperationKey TakeKey(const VaultRequest& request, const OperationRow& operation)
{
    const std::string& name = request.Name();
    Vault& vault = *request.vault;
    const std::lock_guard<std::mutex> lock(vault.mutex);
    const KeyObject& key = FindObject<Keys>(vault, name);
    const KeyVersion& version = FindVersion<Keys>(key, request.call.segments[2]);
    CheckPermitted(operation, version);
    return {vault.Url("/keys/" + key.name + "/" + version.version), version.material};
}

}  // namespace

Answer OperateKey(const VaultRequest& request)
{
    const OperationRow& operation = FindOperation(request.call);
    const OperationKey key = TakeKey(request, operation);
    const Json body = request.Body();
    try {
        return JsonAnswer(200, operation.run(key, body));
    } catch (const std::runtime_error&) {
        throw BadParameter("The parameter is incorrect.");
    }
}

}  // namespace vaultsim

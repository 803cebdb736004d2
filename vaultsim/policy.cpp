#include "vaultsim/policy.h"

#include <algorithm>

#include "vaultsim/distinguished_name.h"

namespace vaultsim {

namespace {

const std::vector<std::string> kUsages = {"digitalSignature", "nonRepudiation", "keyEncipherment",
                                          "dataEncipherment", "keyAgreement",   "keyCertSign",
                                          "cRLSign",          "encipherOnly",   "decipherOnly"};
constexpr int64_t kMostMonths = 1200;

bool Holds(const std::vector<std::string>& texts, const std::string& text)
{
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

Json ReadKeyProperties(const Vault& vault, const Json& given, Policy& policy)
{
    policy.kindGiven = given.contains("kty") || given.contains("key_size") || given.contains("crv");
    Json wanted = given;
    if (!wanted.contains("kty"))
        wanted["kty"] = "RSA";
    policy.kind = ReadKeyKind(vault, wanted);
    policy.reuseKey = ReadBool(given, "reuse_key", false);
    const bool exportable = ReadBool(given, "exportable", true);
    if (exportable && policy.kind.hardware)
        throw BadParameter("Property exportable has invalid value: a hardware key cannot be exported");
    Json properties = {{"exportable", exportable}, {"kty", wanted.at("kty")}};
    if (policy.kind.rsa)
        properties["key_size"] = policy.kind.bits;
    else
        properties["crv"] = policy.kind.curve;
    properties["reuse_key"] = policy.reuseKey;
    return properties;
}

void ReadUsages(const Json& given, Policy& policy)
{
    policy.usages = given.contains("key_usage") ? ReadTexts(given, "key_usage")
                    : policy.kind.rsa           ? std::vector<std::string>{"digitalSignature", "keyEncipherment"}
                                                : std::vector<std::string>{"digitalSignature"};
    for (const std::string& usage : policy.usages) {
        if (!Holds(kUsages, usage))
            throw BadParameter("Property key_usage has invalid value: " + usage);
    }
    policy.extendedUsages = given.contains("ekus") ? ReadTexts(given, "ekus")
                                                   : std::vector<std::string>{"1.3.6.1.5.5.7.3.1", "1.3.6.1.5.5.7.3.2"};
    for (const std::string& usage : policy.extendedUsages) {
        if (usage.empty() || usage.find_first_not_of("0123456789.") != std::string::npos)
            throw BadParameter("Property ekus has invalid value: " + usage);
    }
}

Json ReadX509Properties(const Json& given, Policy& policy)
{
    const Json names = ReadObject(given, "sans");
    policy.subject = ReadText(given, "subject");
    policy.dnsNames = ReadTexts(names, "dns_names");
    if (policy.subject.empty() && policy.dnsNames.empty())
        throw BadParameter("Either subject or subject alternative names must be specified in the policy.");
    if (!policy.subject.empty() && !ParseName(policy.subject))
        throw BadParameter("Property subject is not a valid X500 name: " + policy.subject);
    ReadUsages(given, policy);
    policy.validityMonths = ReadNumber(given, "validity_months").value_or(12);
    if (policy.validityMonths < 1 || policy.validityMonths > kMostMonths)
        throw BadParameter("Property validity_months has invalid value: " + std::to_string(policy.validityMonths));
    return {{"subject", policy.subject},
            {"sans", names},
            {"ekus", policy.extendedUsages},
            {"key_usage", policy.usages},
            {"validity_months", policy.validityMonths},
            {"basic_constraints", {{"ca", false}}}};
}

Json ReadIssuer(const Json& policy)
{
    Json issuer = ReadObject(policy, "issuer");
    // The simulator has no issuing authority: every request waits for a merge.
    if (ReadText(issuer, "name", "Unknown") != "Unknown")
        throw BadParameter("The issuer of the policy is not known to this vault.");
    issuer["name"] = "Unknown";
    return issuer;
}

}  // namespace

Policy ReadPolicy(const Vault& vault, const Json& given)
{
    Policy policy;
    const Json keyProperties = ReadKeyProperties(vault, ReadObject(given, "key_props"), policy);
    const std::string contentType = ReadText(ReadObject(given, "secret_props"), "contentType", "application/x-pkcs12");
    if (contentType != "application/x-pkcs12" && contentType != "application/x-pem-file")
        throw BadParameter("Property contentType has invalid value: " + contentType);
    const Json x509Properties = ReadX509Properties(ReadObject(given, "x509_props"), policy);
    const Json action = {{"trigger", {{"lifetime_percentage", 80}}}, {"action", {{"action_type", "EmailContacts"}}}};
    policy.json = {{"key_props", keyProperties},
                   {"secret_props", {{"contentType", contentType}}},
                   {"x509_props", x509Properties},
                   {"lifetime_actions", Json::array({action})},
                   {"issuer", ReadIssuer(given)}};
    return policy;
}

std::vector<std::string> OperationsOf(const Policy& policy, bool rsa)
{
    std::vector<std::string> operations;
    if (Holds(policy.usages, "dataEncipherment") && rsa)
        operations = {"encrypt", "decrypt"};
    if (Holds(policy.usages, "digitalSignature") || Holds(policy.usages, "nonRepudiation"))
        operations.insert(operations.end(), {"sign", "verify"});
    if (Holds(policy.usages, "keyEncipherment") && rsa)
        operations.insert(operations.end(), {"wrapKey", "unwrapKey"});
    return operations;
}

}  // namespace vaultsim

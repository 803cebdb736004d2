// A certificate's policy: what the request asks for, with the service's defaults.
#pragma once

#include <string>
#include <vector>

#include "vaultsim/keys.h"
#include "vaultsim/request.h"

namespace vaultsim {

// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON value throws nothing.
struct Policy {
    Json json;  // as the service shows it, without "id" and "attributes"
    KeyKind kind;
    bool kindGiven = false;  // the request named a key type, or a size or curve
    bool reuseKey = false;
    std::string subject;
    std::vector<std::string> dnsNames;
    std::vector<std::string> usages;          // of the key, in the service's names
    std::vector<std::string> extendedUsages;  // object identifiers
    int64_t validityMonths = 12;
};

// Throws a Refusal if the policy is wrong.
Policy ReadPolicy(const Vault& vault, const Json& policy);

// What the certificate's key may do: it follows from the key usage.
std::vector<std::string> OperationsOf(const Policy& policy, bool rsa);

}  // namespace vaultsim

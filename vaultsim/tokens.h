// Bearer tokens: JWTs, signed and verified with a real key.
#pragma once

#include <string>

#include "vaultsim/call.h"
#include "vaultsim/openssl_ptr.h"
#include "vaultsim/settings.h"

namespace vaultsim {

inline constexpr char kVaultResource[] = "https://vault.azure.net";

class Tokens {
  public:
    explicit Tokens(std::string tenant);

    // A token service's answer: all members are strings.
    Json Issue(const std::string& clientId, const TokenSettings& settings) const;

    // Throws a Refusal with status 401 unless the call has a valid token for the vault.
    void Check(const Call& call) const;

  private:
    std::string Sign(const Json& claims) const;
    std::string ProblemOf(const std::string& token) const;  // empty: none

    const std::string tenant_;
    const Pkey key_;
    const std::string keyId_;
};

}  // namespace vaultsim

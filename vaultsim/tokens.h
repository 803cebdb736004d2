// Bearer tokens: JWTs that are really signed and really checked.
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

    // The answer of a token service: all members are texts.
    Json Issue(const std::string& clientId, const TokenSettings& settings) const;

    // Throws a Refusal with status 401 unless the call carries a token that the vault takes.
    void Check(const Call& call) const;

  private:
    std::string Sign(const Json& claims) const;
    std::string ProblemOf(const std::string& token) const;  // empty: none

    const std::string tenant_;
    const Pkey key_;
    const std::string keyId_;
};

}  // namespace vaultsim

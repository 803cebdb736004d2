// Handles the TLS listener's requests: the host name selects a vault or the sign-in endpoint.
#pragma once

#include "vaultsim/refusal.h"
#include "vaultsim/settings.h"
#include "vaultsim/signin.h"
#include "vaultsim/tokens.h"
#include "vaultsim/vault.h"

namespace vaultsim {

class Service {
  public:
    Service(const Vaults& vaults, const SignIn& signIn, const Tokens& tokens, const SettingsBox& settings,
            Pauser& pauser)
        : vaults_(vaults), signIn_(signIn), tokens_(tokens), settings_(settings), pauser_(pauser)
    {
    }
    Answer Handle(const Call& call) const;

  private:
    Answer HandleVault(const Call& call, const Settings& settings) const;

    const Vaults& vaults_;
    const SignIn& signIn_;
    const Tokens& tokens_;
    const SettingsBox& settings_;
    Pauser& pauser_;
};

// What `handler` returns, or the answer of the Refusal it throws.
template <class Handler>
Answer AnswerOf(Handler handler)
{
    try {
        return handler();
    } catch (const Refusal& refusal) {
        return refusal.answer();
    } catch (const Json::exception& error) {
        return BadParameter(error.what()).answer();
    } catch (const std::exception& error) {
        return ErrorAnswer(500, "InternalServerError", error.what());
    }
}

}  // namespace vaultsim

// The directory's sign-in endpoint: POST /TENANT/oauth2/token with client credentials.
#pragma once

#include <string>

#include "vaultsim/call.h"
#include "vaultsim/journal.h"
#include "vaultsim/options.h"
#include "vaultsim/settings.h"
#include "vaultsim/tokens.h"

namespace vaultsim {

class SignIn {
  public:
    SignIn(const Options& options, const Tokens& tokens, const SettingsBox& settings, Counts& counts)
        : options_(options), tokens_(tokens), settings_(settings), counts_(counts)
    {
    }
    Answer Handle(const Call& call) const;

  private:
    void CheckForm(const Call& call) const;

    const Options& options_;
    const Tokens& tokens_;
    const SettingsBox& settings_;
    Counts& counts_;
};

}  // namespace vaultsim

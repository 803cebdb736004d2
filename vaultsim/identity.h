// The two managed identity services: a virtual machine's instance metadata, and an Arc machine's agent.
#pragma once

#include <map>
#include <mutex>
#include <string>

#include "vaultsim/call.h"
#include "vaultsim/journal.h"
#include "vaultsim/options.h"
#include "vaultsim/settings.h"
#include "vaultsim/tokens.h"

namespace vaultsim {

class Identity {
  public:
    // Secrets of the Arc challenge are written to `secretDirectory`.
    Identity(const Options& options, const Tokens& tokens, const SettingsBox& settings, Counts& counts,
             std::string secretDirectory);

    Answer HandleMetadata(const Call& call);
    Answer HandleArc(const Call& call);

  private:
    void CheckRequest(const Call& call, const char* apiVersion) const;
    Answer Token(const Call& call);
    Answer Challenge();
    bool TakeSecret(const std::string& secret);  // good for one use

    const Options& options_;
    const Tokens& tokens_;
    const SettingsBox& settings_;
    Counts& counts_;
    const std::string secretDirectory_;
    std::mutex mutex_;
    std::map<std::string, std::string> secrets_;  // secret -> file
};

}  // namespace vaultsim

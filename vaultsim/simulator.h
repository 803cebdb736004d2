// The whole simulator but for its control interface: services and listeners.
#pragma once

#include <memory>

#include "vaultsim/authority.h"
#include "vaultsim/endpoint.h"
#include "vaultsim/faults.h"
#include "vaultsim/identity.h"
#include "vaultsim/journal.h"
#include "vaultsim/options.h"
#include "vaultsim/service.h"
#include "vaultsim/settings.h"
#include "vaultsim/signin.h"
#include "vaultsim/tokens.h"
#include "vaultsim/vault.h"

namespace vaultsim {

class Simulator {
  public:
    // Creates the directory and starts all listeners. Throws.
    explicit Simulator(const Options& options);
    ~Simulator();  // breaks all connections and wakes sleeping threads

    // Writes the file `env` of the directory. Throws.
    void WriteEnvironment(int controlPort) const;
    std::string ReadyLine(int controlPort) const;  // "ready control=.. tls=.. http=.. arc=.. dir=.."

    // Restores the initial state: vaults, settings, journal, counts, no faults, listeners up, the good certificate.
    void Reset();

    // For the control interface.
    Endpoint* FindEndpoint(const std::string& name);
    const Options options;
    Journal journal;
    Counts counts;
    Faults faults;
    Vaults vaults;
    Pauser pauser;
    SettingsBox settings;
    std::unique_ptr<Authority> authority;

  private:
    Settings InitialSettings() const;

    Tokens tokens_;
    SignIn signIn_;
    Service service_;
    std::unique_ptr<Identity> identity_;
    std::unique_ptr<Endpoint> tls_;
    std::unique_ptr<Endpoint> http_;
    std::unique_ptr<Endpoint> arc_;
};

}  // namespace vaultsim

// The vault to measure against: the simulator with two keys, and a root with settings for it.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/common/simulator.h"
#include "tests/common/test_root.h"

namespace bench {

// A request as the vault received it, for another client to repeat.
struct Recorded {
    std::string method;
    std::string url;
    std::vector<std::string> headers;  // those that the client set itself
    std::string body;
};

class Vault {
  public:
    Vault();  // keys "rsa" (2048 bits) and "p256"; settings for client credentials and plain keys, no log

    void LogAt(DWORD level) { root_.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", level); }
    void UseVault(const std::string& name) { root_.SetText(HKEY_LOCAL_MACHINE, "KeyVault", name); }
    void ClearJournal() { sim_.ClearJournal(); }
    std::vector<Recorded> Requests();  // of the journal, sign-in included
    Simulator& simulator() { return sim_; }
    const std::string& directory() const { return root_.directory(); }

  private:
    Simulator& sim_ = Simulator::Get();
    TestRoot root_;
};

}  // namespace bench

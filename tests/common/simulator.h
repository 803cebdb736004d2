// The simulator, driven over its control port. On Linux each test program starts a simulator; on Windows it uses the
// one on the port that VAULTSIM_CONTROL names.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/owner.h"

using nlohmann::json;

class Simulator : private NonCopyable {
  public:
    static Simulator& Get();  // started on first use, stopped at the end of the program

    void Reset();  // fresh vaults "contoso-keys" (premium) and "fabrikam" (standard), no faults, empty journal, all
                   // listeners up

    // A control call: the answer's JSON. Throws unless the status is 2xx.
    nlohmann::json Control(const std::string& method, const std::string& path, const nlohmann::json& body = nullptr);

    nlohmann::json Journal();  // the array "requests"
    // Requests of the journal as "POST /keys/a/sign?api-version=7.0", those of the vault only (no sign-in).
    std::vector<std::string> VaultRequests();
    void ClearJournal();
    int SignIns();
    void Fault(const nlohmann::json& fault);
    void AddKey(const std::string& vault, const nlohmann::json& key);  // {"name":"a","kty":"RSA","size":2048}
    std::string PublicKeyPem(const std::string& vault, const std::string& name);

    static constexpr const char* kVault = "contoso-keys";
    static constexpr const char* kStandardVault = "fabrikam";
    static constexpr const char* kTenant = "11111111-2222-3333-4444-555555555555";
    static constexpr const char* kClientId = "aaaaaaaa-bbbb-cccc-dddd-eeeeeeeeeeee";
    static constexpr const char* kClientSecret = "s3cret~Value.For-Tests";
    static constexpr const char* kObjectId = "0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0";

  private:
    // Throws. On Linux it also sets the environment of this process: connections and trusted root.
    Simulator();
    ~Simulator();
    int controlPort_ = 0;
    int pid_ = 0;            // 0 if this program did not start it
    std::string directory_;  // where its files are
    std::string drive_;      // in front of the paths that it names: "" or "Z:"
};

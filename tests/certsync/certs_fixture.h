// A machine and a vault with certificates: the vault keeps keys as certificates, and the stores are empty at first.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "tests/common/host.h"
#include "tests/common/row.h"

using Strings = std::vector<std::string>;

// A certificate from an authority outside the vault.
struct Issued {
    Bytes der;
    std::string base64;  // of it
    std::string pem;     // followed by the private key if that is new
    std::string hash;    // in the form of CertSync
};

void ClearStores();  // the machine's and the user's
// wanted: for the simulator's control call; {"key":..} for a key of the vault.
Issued Issue(const nlohmann::json& wanted);
// A new version of a certificate of the vault. more: for the simulator's control call; the default is a new key.
void AddVaultCertificate(const std::string& name, const nlohmann::json& more = nlohmann::json::object());
// The hash of the newest version of a certificate of the vault.
std::string VaultHash(const std::string& name);

class CertsTest : public HostTest {
  protected:
    static constexpr char kProvider[] = "Zandrel Key Storage Provider for Key Vault";
    static constexpr char kOtherProvider[] = "Some Other Provider";
    static constexpr char kStamp[] = "FromKVLastSyncTime";

    void SetUp() override
    {
        HostTest::SetUp();
        for (const HKEY hive : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER})
            root.SetNumber(hive, "CertificatesOrKeys", 0);
        ClearStores();  // on Windows they outlive a test
    }
    void TearDown() override
    {
        HostTest::TearDown();
        ClearStores();
    }

    // "HASH container of PROVIDER, flags N" of each certificate, or "HASH".
    Strings StoreInOrder(bool machine = true) const;  // in the platform's order
    Strings Store(bool machine = true) const { return Sorted(StoreInOrder(machine)); }
    static Strings Sorted(Strings texts)
    {
        std::sort(texts.begin(), texts.end());
        return texts;
    }
    // Of a certificate in the machine's store that is bound to a key of this provider.
    static std::string InMachine(const std::string& hash, const std::string& container)
    {
        return hash + " " + container + " of " + kProvider + ", flags 32";
    }
    // Without a provider it has no key.
    static void AddToStore(const Issued& issued, const std::string& container, bool machine = true,
                           const std::string& provider = kProvider);
    std::string CertSync(HKEY hive = HKEY_LOCAL_MACHINE) const { return root.GetText(hive, "CertSync"); }
    void SetList(const std::string& list) { root.SetText(HKEY_LOCAL_MACHINE, "CertSync", list); }

    // A fault of the simulator: this answer.
    static nlohmann::json Fault(const char* path, int status, int times = 1, const nlohmann::json& body = nullptr)
    {
        nlohmann::json fault = {{"path", path}, {"action", "status"}, {"status", status}, {"times", times}};
        if (!body.is_null())
            fault["body"] = body;
        return fault;
    }
    // Requests to the vault since the last call, without their queries.
    Strings TakeRequests();
};

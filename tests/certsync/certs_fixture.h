// A machine and a vault with certificates: keys live as certificates of the vault, and the stores begin empty.
#pragma once

#include <string>
#include <vector>

#include "tests/common/host.h"
#include "tests/common/row.h"

using Strings = std::vector<std::string>;

// A certificate as an authority hands it out.
struct Issued {
    Bytes der;
    std::string base64;  // of it
    std::string pem;     // with the private key behind it when it is of a new key
    std::string hash;    // as CertSync has it
};

// A certificate in a store of this machine.
struct Stored {
    std::string hash;
    std::string container;
    std::string provider;
    DWORD flags = 0;
};
bool operator==(const Stored& left, const Stored& right);
void PrintTo(const Stored& stored, std::ostream* out);

void ClearStores();  // the machine's and the user's are empty from then on

class CertsTest : public HostTest {
  protected:
    static constexpr char kProvider[] = "Zandrel Key Storage Provider for Key Vault";
    static constexpr char kOtherProvider[] = "Some Other Provider";
    static constexpr char kStamp[] = "FromKVLastSyncTime";

    void SetUp() override;
    void TearDown() override;

    // spec: as the simulator's control call takes it; {"key":..} for a key of the vault.
    Issued Issue(const nlohmann::json& spec);
    // A certificate object of the vault with a key of its own. kty: "RSA" or "EC".
    void AddVaultCertificate(const std::string& name, const std::string& kty = "EC", const std::string& subject = "");
    // A new version of one, as it was issued.
    void AddVaultCertificate(const std::string& name, const Issued& issued);
    // Hashes of the versions of a certificate of the vault, the newest last; of all certificates for "".
    Strings VaultHashes(const std::string& name);

    static Stored InMachine(const std::string& hash, const std::string& container)
    {
        return {hash, container, kProvider, NCRYPT_MACHINE_KEY_FLAG};
    }
    std::vector<Stored> StoreInOrder(bool machine = true) const;    // as the platform walks over it
    static std::vector<Stored> Sorted(std::vector<Stored> stored);  // by their hashes
    std::vector<Stored> Store(bool machine = true) const { return Sorted(StoreInOrder(machine)); }
    static void AddToStore(const Issued& issued, const std::string& container, bool machine = true,
                           const std::string& provider = kProvider);
    std::string CertSync(HKEY hive = HKEY_LOCAL_MACHINE) const { return root.GetText(hive, "CertSync"); }

    // Requests to the vault since the last call, without their queries.
    Strings TakeRequests();
    Strings LinesUpTo(int level, const std::string& from) const;  // those that begin with `from`
};

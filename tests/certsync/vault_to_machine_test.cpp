// Certificates of the vault on their way into the machine's store, started by the open of a machine key.
#include "certsync/vault_to_machine.h"

#include <algorithm>

#include "certsync/certificate_store.h"
#include "provider/provider.h"
#include "support/text.h"
#include "tests/certsync/certs_fixture.h"
#include "tests/provider/fail_each.h"

using nlohmann::json;

namespace {

class VaultToMachineTest : public CertsTest {
  protected:
    // The first open of a machine key on a provider of its own, of a key that isn't there.
    void Run()
    {
        NCRYPT_PROV_HANDLE opened = 0;
        ASSERT_EQ(0, table->OpenProvider(&opened, Wide(kProvider).c_str(), 0));
        TryOpen(opened);
        EXPECT_EQ(0, table->FreeProvider(opened));
    }
    void TryOpen(NCRYPT_PROV_HANDLE opened, const char* name = "absent", DWORD flags = NCRYPT_MACHINE_KEY_FLAG)
    {
        NCRYPT_KEY_HANDLE key = 0;
        const SECURITY_STATUS status = table->OpenKey(opened, &key, Wide(name).c_str(), 0, flags);
        EXPECT_TRUE(status == 0 || status == NTE_NOT_FOUND) << Hex(status);
        if (key) {
            EXPECT_EQ(0, table->FreeKey(opened, key));
        }
    }
    // The same, once the stamp allows it again.
    void RunLater()
    {
        clock.Advance(1201);
        sim.ClearJournal();
        root.ClearLog();
        Run();
    }
    int64_t Stamp() const
    {
        HKEY key = nullptr;
        DWORD value = 0;
        DWORD size = sizeof(value);
        RegOpenKeyW(HKEY_LOCAL_MACHINE, TEXT("Software\\Zandrel\\Kelvaro"), &key);
        RegQueryValueExW(key, Wide(kStamp).c_str(), nullptr, nullptr, reinterpret_cast<BYTE*>(&value), &size);
        RegCloseKey(key);
        return value;
    }
    static std::vector<Stored> Sorted(std::vector<Stored> stored)
    {
        std::sort(stored.begin(), stored.end(), [](const Stored& a, const Stored& b) { return a.hash < b.hash; });
        return stored;
    }
    std::string Hash(const std::string& name) { return VaultHashes(name).back(); }
};

TEST_F(VaultToMachineTest, TheUsersStoreIsLeftAlone)
{
    AddVaultCertificate("web", "RSA");
    OpenKey("web");
    EXPECT_EQ(1u, Store().size());
    EXPECT_TRUE(Store(false).empty());
}

TEST_F(VaultToMachineTest, NewCertificatesComeBoundAndDummiesAreOnlyRemembered)
{
    AddVaultCertificate("-vBAgAAwBA" + std::string(33, 'z'));
    AddVaultCertificate("dummy", "EC", "CN=Dummy Certificate Name");
    AddVaultCertificate("web", "RSA");
    const std::string coded = Hash("-vBAgAAwBA" + std::string(33, 'z'));
    const std::string list = coded + "," + Hash("dummy") + "," + Hash("web") + ",";
    OpenKey("web");
    EXPECT_EQ((Strings{"GET /certificates", "GET /certificates/-vBAgAAwBA" + std::string(33, 'z'),
                       "GET /certificates/dummy", "GET /certificates/web", "GET /keys/web"}),
              TakeRequests());
    EXPECT_EQ(Sorted({InMachine(coded, "a b"), InMachine(Hash("web"), "web")}), Store());
    EXPECT_EQ(list, CertSync());
    EXPECT_FALSE(root.Has(HKEY_CURRENT_USER, "CertSync"));
    EXPECT_TRUE(root.Logged("KVCSyncCertsFromKVToMachine Save Changed " + list, 10));
    EXPECT_TRUE(root.Logged("KVCPropogateCertificateFromKeyVault Found Dummy Cert", 10));
    EXPECT_EQ(Strings{}, LinesUpTo(1, "KVC"));

    // What is known is not fetched again.
    RunLater();
    EXPECT_EQ((Strings{"GET /certificates", "GET /keys/absent"}), TakeRequests());
    EXPECT_EQ(list, CertSync());
}

TEST_F(VaultToMachineTest, TheLinesOfARun)
{
    AddVaultCertificate("web");
    const std::string hash = Hash("web");
    const std::string x5t =
        sim.Control("GET", std::string("/vaults/") + Simulator::kVault)["certificates"][0]["versions"][0]["x5t"];
    Run();
    const std::string sync = "KVCSyncCertsFromKVToMachine ";
    EXPECT_EQ((Strings{"KVCSyncCertsFromKVToMachine 8", sync + "Time Check 10", sync + "Update Time 10",
                       sync + "CertSync  10", sync + "KVCGetCerts OK 10", sync + "KVCGetCerts Loop Name web 10",
                       sync + "KVCGetCerts Loop Thumbprint " + x5t + " 10", sync + "Found New Cert web 10",
                       sync + "Save Changed " + hash + ", 10"}),
              LinesUpTo(10, "KVCSync"));
    const std::string propagate = "KVCPropogateCertificateFromKeyVault ";
    EXPECT_EQ((Strings{"KVCPropogateCertificateFromKeyVault 8", propagate + "Certificate Store Open OK 10",
                       propagate + "Certificate Added to Store OK 10", propagate + "Certificate Provider Set OK 10"}),
              LinesUpTo(10, "KVCPropogate"));
    EXPECT_EQ(1u, LinesUpTo(8, "KVCGetCertsFree").size());
}

TEST_F(VaultToMachineTest, WhichOpensStartARun)
{
    AddVaultCertificate("web");
    const Strings open = {"GET /keys/web"};
    const Strings run = {"GET /certificates", "GET /keys/web"};

    root.SetNumber(HKEY_LOCAL_MACHINE, "CertificatesOrKeys", 1);
    OpenKey("web");
    EXPECT_EQ(open, TakeRequests()) << "with plain keys";
    FreeKey(OpenKey("web", 0));
    EXPECT_EQ(open, TakeRequests()) << "of a user key";
    EXPECT_FALSE(root.Has(HKEY_LOCAL_MACHINE, kStamp));

    root.SetNumber(HKEY_LOCAL_MACHINE, "CertificatesOrKeys", 0);
    NCRYPT_PROV_HANDLE fresh = 0;
    ASSERT_EQ(0, table->OpenProvider(&fresh, Wide(kProvider).c_str(), 0));
    TryOpen(fresh, "web", 0);
    EXPECT_EQ(open, TakeRequests()) << "of a user key";
    TryOpen(fresh, "absent");
    EXPECT_EQ((Strings{"GET /certificates", "GET /certificates/web", "GET /keys/absent"}), TakeRequests())
        << "of a key that is not there";
    clock.Advance(1300);
    TryOpen(fresh, "web");
    EXPECT_EQ(open, TakeRequests()) << "on the same provider";
    EXPECT_EQ(0, table->FreeProvider(fresh));

    ASSERT_EQ(0, table->OpenProvider(&fresh, Wide(kProvider).c_str(), 0));
    TryOpen(fresh, "web");
    EXPECT_EQ(run, TakeRequests()) << "on the next provider";
    EXPECT_EQ(0, table->FreeProvider(fresh));
    ASSERT_EQ(0, table->OpenProvider(&fresh, Wide(kProvider).c_str(), 0));
    TryOpen(fresh, "web");
    EXPECT_EQ(open, TakeRequests()) << "before its time";
    EXPECT_EQ(0, table->FreeProvider(fresh));
}

TEST_F(VaultToMachineTest, ASignInThatFailsLeavesTheRunToALaterOpen)
{
    AddVaultCertificate("web");
    sim.Fault({{"path", "/oauth2/token"}, {"action", "status"}, {"status", 401}});
    NCRYPT_KEY_HANDLE key = 0;
    EXPECT_EQ(Hex(SEC_E_LOGON_DENIED),
              Hex(table->OpenKey(OpenProvider(), &key, TEXT("web"), 0, NCRYPT_MACHINE_KEY_FLAG)));
    EXPECT_FALSE(root.Has(HKEY_LOCAL_MACHINE, kStamp));
    OpenKey("web");
    EXPECT_EQ(1u, Store().size());
}

TEST_F(VaultToMachineTest, TheStampDecides)
{
    constexpr int64_t kNow = 1800000000;
    constexpr int64_t kLate = 0xFFFFFF00;  // in 2106
    const struct {
        const char* name;
        int64_t now;
        int64_t stamp;  // -1: none
        bool runs;
    } rows[] = {
        {"none", kNow, -1, true},
        {"as old as the period", kNow, kNow - 600, false},
        {"older by a second", kNow, kNow - 601, true},
        {"now", kNow, kNow, false},
        {"in the future, as after a run", kNow, kNow + 600, false},
        {"from 2037, in 2040", 2208988800, 2147483647, true},
        {"beyond the sign bit", 2208988800, 2208988800 - 600, false},
        {"in the far future", kNow, 0xFFFFFFFF, false},
        {"a stamp that is cut", kLate, -1, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        root.ClearLog();
        clock.Set(row.now);
        RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, TEXT("Software\\Zandrel\\Kelvaro"), Wide(kStamp).c_str());
        if (row.stamp >= 0)
            root.SetNumber(HKEY_LOCAL_MACHINE, kStamp, static_cast<DWORD>(row.stamp));
        Run();
        const Strings requests = TakeRequests();
        EXPECT_EQ(row.runs ? "GET /certificates" : "GET /keys/absent", requests.front());
        EXPECT_EQ(row.runs, root.Logged("KVCSyncCertsFromKVToMachine Time Check", 10));
        EXPECT_EQ(row.runs ? static_cast<DWORD>(row.now + 600) : static_cast<DWORD>(row.stamp), Stamp());
    }
    clock.Set(kNow);
    root.SetText(HKEY_LOCAL_MACHINE, kStamp, "1800000600");
    Run();
    EXPECT_EQ("GET /certificates", TakeRequests().front()) << "a stamp of another type";
    clock.Set(kNow + 1200);
    Run();
    EXPECT_EQ("GET /keys/absent", TakeRequests().front());
    clock.Set(kNow + 1201);
    Run();
    EXPECT_EQ("GET /certificates", TakeRequests().front());
}

TEST_F(VaultToMachineTest, WhatRemainsAfterAFailure)
{
    AddVaultCertificate("a");
    AddVaultCertificate("b");
    const std::string both = Hash("a") + "," + Hash("b") + ",";
    const std::string onlyB = Hash("b") + ",";
    const auto status = [](const char* path, int code) {
        return json{{"path", path}, {"action", "status"}, {"status", code}, {"times", 1}};
    };
    const auto answer = [&](const char* path, const json& body) {
        json fault = status(path, 200);
        fault["body"] = body;
        return fault;
    };
    const struct {
        const char* name;
        json fault;
        std::string list;
        Strings lines;  // of level 1
    } rows[] = {
        {"the listing fails", status("/certificates?", 403), "",
         Strings(2, "KVCGetCerts REST Call Error Error 0x193 1")},
        {"a certificate is gone", status("/certificates/a?", 404), onlyB, {"KVCGetCert REST Call Error Error 0x194 1"}},
        {"an answer without a certificate", answer("/certificates/a?", json::object()), onlyB, {}},
        {"a thumbprint that cannot be decoded",
         answer("/certificates?", {{"value",
                                    {{{"id", "https://v/certificates/a"}, {"x5t", "***"}},
                                     {{"id", "https://v/certificates/a"}, {"x5t", std::string(90, 'A')}},
                                     {{"id", "https://v/certificates/b"}, {"x5t", "AAEC"}}}}}),
         "000102,",
         {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        root.SetText(HKEY_LOCAL_MACHINE, "CertSync", "");
        sim.Fault(row.fault);
        RunLater();
        EXPECT_EQ(row.list, CertSync());
        EXPECT_EQ(row.lines, LinesUpTo(1, "KVC"));
        EXPECT_LT(0, Stamp()) << "the stamp has moved all the same";
    }
    // What failed is tried again.
    root.SetText(HKEY_LOCAL_MACHINE, "CertSync", "");
    sim.Fault(status("/certificates/a?", 500));
    RunLater();
    RunLater();
    EXPECT_EQ(onlyB + Hash("a") + ",", CertSync());
    EXPECT_EQ((Strings{"GET /certificates", "GET /certificates/a", "GET /keys/absent"}), TakeRequests());
    EXPECT_EQ(Sorted({InMachine(Hash("a"), "a"), InMachine(Hash("b"), "b")}), Store());
}

TEST_F(VaultToMachineTest, BytesThatAreNoCertificateAreLogged)
{
    AddVaultCertificate("a");
    sim.Fault({{"path", "/certificates/a?"}, {"action", "status"}, {"status", 200}, {"body", {{"cer", "AQID"}}}});
    Run();
    const Strings lines = LinesUpTo(1, "KVC");
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(0u, lines[0].find("KVCPropogateCertificateFromKeyVault CertCreateCertificateContext Failed Error 0x"));
    EXPECT_FALSE(root.Has(HKEY_LOCAL_MACHINE, "CertSync"));
    EXPECT_TRUE(Store().empty());
}

TEST_F(VaultToMachineTest, AThrottledPageIsWaitedForAndAListThatStaysThrottledIsNot)
{
    AddVaultCertificate("web");
    const json throttle = {{"path", "/certificates?"}, {"action", "status"}, {"status", 429}, {"times", 4}};
    sim.Fault(throttle);
    Run();
    EXPECT_EQ((std::vector<DWORD>{1000, 2000, 4000, 8000}), clock.Waits());
    EXPECT_EQ(1u, Store().size());
    json longer = throttle;
    longer["times"] = 5;
    sim.Fault(longer);
    RunLater();
    EXPECT_TRUE(root.Logged("KVCSyncCertsFromKVToMachine KVCGetCerts Failed", 10));
    EXPECT_EQ(Hash("web") + ",", CertSync());
}

TEST_F(VaultToMachineTest, ARenewedCertificateComesBesideTheOldOne)
{
    const Issued first = Issue({{"subject", "CN=web"}});
    const Issued second = Issue({{"subject", "CN=web"}});
    AddVaultCertificate("web", first);
    Run();
    AddVaultCertificate("web", second);
    RunLater();
    EXPECT_EQ(Sorted({InMachine(first.hash, "web"), InMachine(second.hash, "web")}), Store());
    EXPECT_EQ(first.hash + "," + second.hash + ",", CertSync());
}

TEST_F(VaultToMachineTest, TheSameCertificateUnderTwoNamesIsFetchedOnce)
{
    const Issued issued = Issue({{"subject", "CN=shared"}});
    AddVaultCertificate("one", issued);
    AddVaultCertificate("two", issued);
    Run();
    EXPECT_EQ((Strings{"GET /certificates", "GET /certificates/one", "GET /keys/absent"}), TakeRequests());
    EXPECT_EQ(std::vector<Stored>{InMachine(issued.hash, "one")}, Store());
    EXPECT_EQ(issued.hash + ",", CertSync());
}

TEST_F(VaultToMachineTest, AListOfAnyFormIsOnlySearched)
{
    AddVaultCertificate("web");
    const std::string hash = Hash("web");
    std::string lower = hash;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char ch) { return static_cast<char>(std::tolower(ch)); });
    const struct {
        const char* name;
        std::string list;
        bool known;
    } rows[] = {
        {"glued to another without a comma", std::string(40, 'A') + hash + std::string(40, 'B'), true},
        {"commas on both sides", ",," + hash + ",", true},
        {"rubbish around it", "\xC3\xBC%s\n" + hash + ";;", true},
        {"lower-case digits", lower + ",", false},
        {"one digit short", hash.substr(1) + ",", false},
        {"broken by a blank", hash.substr(0, 20) + " " + hash.substr(20), false},
        {"rubbish", "%s%s%s%n,,,", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        root.SetText(HKEY_LOCAL_MACHINE, "CertSync", row.list);
        RunLater();
        EXPECT_EQ(row.known ? row.list : row.list + hash + ",", CertSync());
        EXPECT_EQ(row.known ? 2u : 3u, TakeRequests().size());
    }
    // A value of another type counts as an empty list, and is replaced.
    root.SetNumber(HKEY_LOCAL_MACHINE, "CertSync", 7);
    RunLater();
    EXPECT_EQ(hash + ",", CertSync());
}

TEST_F(VaultToMachineTest, AnEmptyVaultWritesNothing)
{
    Run();
    EXPECT_FALSE(root.Has(HKEY_LOCAL_MACHINE, "CertSync"));
    EXPECT_TRUE(root.Logged("KVCSyncCertsFromKVToMachine Count  0", 10));
}

TEST_F(VaultToMachineTest, AnInterruptedRunIsRepeatedWithoutHarm)
{
    AddVaultCertificate("a");
    AddVaultCertificate("b");
    // In the middle of the run the settings go away, so that its list cannot be written.
    sim.Fault({{"path", "/certificates/b?"}, {"action", "status"}, {"status", 429}});
    clock.OnSleep([this](DWORD, size_t) { root.RemoveKey(HKEY_LOCAL_MACHINE); });
    Run();
    clock.OnSleep(nullptr);
    const std::vector<Stored> both = Sorted({InMachine(Hash("a"), "a"), InMachine(Hash("b"), "b")});
    EXPECT_EQ(both, Store());
    EXPECT_FALSE(root.Has(HKEY_LOCAL_MACHINE, "CertSync"));

    WriteClientSettings(root);
    root.SetNumber(HKEY_LOCAL_MACHINE, "CertificatesOrKeys", 0);
    Run();
    EXPECT_EQ(both, Store());
    EXPECT_EQ(Hash("a") + "," + Hash("b") + ",", CertSync());
}

TEST_F(VaultToMachineTest, ACertificateThatStandsInTheStoreIsBound)
{
    const Issued issued = Issue({{"subject", "CN=web"}});
    AddVaultCertificate("web", issued);
    AddToStore(issued, "elsewhere", true, kOtherProvider);
    Run();
    EXPECT_EQ(std::vector<Stored>{InMachine(issued.hash, "web")}, Store());
}

TEST_F(VaultToMachineTest, TwoRunsAtOnceComeToTheSameList)
{
    AddVaultCertificate("a");
    AddVaultCertificate("b");
    // While the first run waits for the vault, a second one starts that read the stamp before it was written.
    sim.Fault({{"path", "/certificates/b?"}, {"action", "status"}, {"status", 429}});
    clock.OnSleep([this](DWORD, size_t) {
        root.SetNumber(HKEY_LOCAL_MACHINE, kStamp, 0);
        Run();
    });
    Run();
    clock.OnSleep(nullptr);
    EXPECT_EQ(Sorted({InMachine(Hash("a"), "a"), InMachine(Hash("b"), "b")}), Store());
    EXPECT_EQ(Hash("a") + "," + Hash("b") + ",", CertSync());
    const Strings requests = TakeRequests();
    EXPECT_EQ(2, std::count(requests.begin(), requests.end(), "GET /certificates"));
}

TEST_F(VaultToMachineTest, OfTwoThousandOnesOnlyTheUnknownIsFetched)
{
    sim.Control("POST", std::string("/vaults/") + Simulator::kVault + "/certificates",
                {{"count", 2000}, {"kty", "EC"}, {"crv", "P-256"}});
    root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 0);
    Reattach();
    Strings hashes = VaultHashes("");
    ASSERT_EQ(2000u, hashes.size());
    std::string list;
    for (size_t i = 0; i < hashes.size(); i++)
        list += i == 1234 ? "" : hashes[i] + ",";
    root.SetText(HKEY_LOCAL_MACHINE, "CertSync", list);
    Run();
    const Strings requests = TakeRequests();
    ASSERT_EQ(82u, requests.size());
    EXPECT_EQ("GET /certificates", requests[79]);
    EXPECT_EQ("GET /certificates/cert-001234", requests[80]);
    EXPECT_EQ(list + hashes[1234] + ",", CertSync());
}

TEST_F(VaultToMachineTest, EveryAllocationOfARunMayFail)
{
    AddVaultCertificate("a");
    const std::string old = std::string(40, '0') + ",";
    root.SetText(HKEY_LOCAL_MACHINE, "CertSync", old);
    const auto run = [&, this]() -> SECURITY_STATUS {
        clock.Advance(1201);
        const KVCCall call(KVCBeginCall(reinterpret_cast<KSP_PROVIDER*>(OpenProvider())->machineKvc));
        if (!call || !KVCAuthenticate(call.get()))
            return NTE_NO_MEMORY;
        KVCSyncCertsFromKVToMachine(call.get());
        const std::string list = CertSync();
        return list == old ? NTE_NO_MEMORY : 0;
    };
    OpenProvider();
    const size_t failures = FailEach(run, [&](SECURITY_STATUS, size_t failAt) {
        EXPECT_EQ(0u, CertSync().find(old)) << failAt << ": the list is never lost";
        root.SetText(HKEY_LOCAL_MACHINE, "CertSync", old);
    });
    EXPECT_GT(failures, 10u);
    EXPECT_EQ(old + Hash("a") + ",", CertSync());
}

}  // namespace

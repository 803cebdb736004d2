// Opening a machine key copies the vault's certificates into the machine's store.
#include "certsync/vault_to_machine.h"

#include "provider/provider.h"
#include "support/settings.h"
#include "tests/certsync/certs_fixture.h"
#include "tests/provider/fail_each.h"

namespace {

const std::string kSettingsKey = "Software\\Zandrel\\Kelvaro";

class VaultToMachineTest : public CertsTest {
  protected:
    // Opens "web", or a missing key, on a new provider, and returns the requests.
    Strings Run(const char* key = "absent", DWORD flags = NCRYPT_MACHINE_KEY_FLAG)
    {
        NCRYPT_PROV_HANDLE opened = 0;
        EXPECT_EQ(0, table->OpenProvider(&opened, Wide(kProvider).c_str(), 0));
        const Strings requests = Open(opened, key, flags);
        EXPECT_EQ(0, table->FreeProvider(opened));
        return requests;
    }
    Strings Open(NCRYPT_PROV_HANDLE opened, const char* name, DWORD flags = NCRYPT_MACHINE_KEY_FLAG)
    {
        TakeRequests();
        NCRYPT_KEY_HANDLE key = 0;
        const SECURITY_STATUS status = table->OpenKey(opened, &key, Wide(name).c_str(), 0, flags);
        EXPECT_EQ(Hex(name == std::string("absent") ? NTE_NOT_FOUND : 0), Hex(status));
        if (key) {
            EXPECT_EQ(0, table->FreeKey(opened, key));
        }
        return TakeRequests();
    }
    // The same, once the stamp allows it again.
    Strings RunLater()
    {
        clock.Advance(1201);
        root.ClearLog();
        return Run();
    }
    static int64_t Stamp() { return SettingsReadNumber(HKEY_LOCAL_MACHINE, Wide(kStamp).c_str()); }
};

TEST_F(VaultToMachineTest, TheUsersStoreIsLeftAlone)
{
    AddVaultCertificate("web");
    Run("web");
    EXPECT_EQ(1u, Store().size());
    EXPECT_TRUE(Store(false).empty());
}

TEST_F(VaultToMachineTest, NewCertificatesAreBoundAndDummiesAreOnlyRecorded)
{
    Run();
    EXPECT_FALSE(root.Has(HKEY_LOCAL_MACHINE, "CertSync")) << "with an empty vault";
    const std::string coded = "-vBAgAAwBA" + std::string(33, 'z');
    AddVaultCertificate(coded);
    AddVaultCertificate("dummy", {{"subject", "CN=Dummy Certificate Name"}});
    AddVaultCertificate("web");
    EXPECT_EQ((Strings{"GET /certificates", "GET /certificates/" + coded, "GET /certificates/dummy",
                       "GET /certificates/web", "GET /keys/absent"}),
              RunLater());
    const std::string list = VaultHash(coded) + "," + VaultHash("dummy") + "," + VaultHash("web") + ",";
    EXPECT_EQ(Sorted({InMachine(VaultHash(coded), "a b"), InMachine(VaultHash("web"), "web")}), Store());
    EXPECT_EQ(list, CertSync());
    EXPECT_FALSE(root.Has(HKEY_CURRENT_USER, "CertSync"));
    EXPECT_EQ((Strings{"GET /certificates", "GET /keys/absent"}), RunLater()) << "nothing is fetched again";
    EXPECT_EQ(list, CertSync());
}

TEST_F(VaultToMachineTest, WhichOpensStartARun)
{
    AddVaultCertificate("web");
    const Strings open = {"GET /keys/web"};
    root.SetNumber(HKEY_LOCAL_MACHINE, "CertificatesOrKeys", 1);
    EXPECT_EQ(open, Run("web")) << "with plain keys";
    root.SetNumber(HKEY_LOCAL_MACHINE, "CertificatesOrKeys", 0);
    EXPECT_FALSE(root.Has(HKEY_LOCAL_MACHINE, kStamp));

    NCRYPT_PROV_HANDLE fresh = 0;
    ASSERT_EQ(0, table->OpenProvider(&fresh, Wide(kProvider).c_str(), 0));
    EXPECT_EQ(open, Open(fresh, "web", 0)) << "of a user key";
    EXPECT_EQ((Strings{"GET /certificates", "GET /certificates/web", "GET /keys/absent"}), Open(fresh, "absent"))
        << "of a key that isn't there";
    clock.Advance(1300);
    EXPECT_EQ(open, Open(fresh, "web")) << "on the same provider";
    EXPECT_EQ(0, table->FreeProvider(fresh));

    EXPECT_EQ((Strings{"GET /certificates", "GET /keys/web"}), Run("web")) << "on the next provider";
    EXPECT_EQ(open, Run("web")) << "before its time";
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
    // stamp: -1 for none, -2 for text
    const Row<const char*, int64_t, int64_t, bool> rows[] = {
        {"none", kNow, -1, true},
        {"text", kNow, -2, true},
        {"as old as the period", kNow, kNow - 600, false},
        {"older by a second", kNow, kNow - 601, true},
        {"now", kNow, kNow, false},
        {"in the future, as after a run", kNow, kNow + 600, false},
        {"from 2037, in 2040", 2208988800, 2147483647, true},
        {"beyond the sign bit", 2208988800, 2208988800 - 600, false},
        {"in the far future", kNow, 0xFFFFFFFF, false},
        {"in 2106, with the next stamp truncated", 0xFFFFFF00, -1, true},
    };
    for (const auto& [name, now, stamp, runs] : rows) {
        SCOPED_TRACE(name);
        clock.Set(now);
        RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, Wide(kSettingsKey).c_str(), Wide(kStamp).c_str());
        if (stamp >= 0)
            root.SetNumber(HKEY_LOCAL_MACHINE, kStamp, static_cast<DWORD>(stamp));
        else if (stamp == -2)
            root.SetText(HKEY_LOCAL_MACHINE, kStamp, "1800000600");
        EXPECT_EQ(runs ? "GET /certificates" : "GET /keys/absent", Run().front());
        EXPECT_EQ(static_cast<DWORD>(runs ? now + 600 : stamp), Stamp());
    }
}

TEST_F(VaultToMachineTest, StoreAndListAfterAFailure)
{
    AddVaultCertificate("a");
    AddVaultCertificate("b");
    const std::string both = VaultHash("a") + "," + VaultHash("b") + ",";
    const std::string onlyB = VaultHash("b") + ",";
    const json badThumbprints = {{"value",
                                  {{{"id", "https://v/certificates/a"}, {"x5t", "***"}},
                                   {{"id", "https://v/certificates/a"}, {"x5t", std::string(90, 'A')}},
                                   {{"id", "https://v/certificates/b"}, {"x5t", "AAEC"}}}}};
    const Row<const char*, json, std::string, size_t> rows[] = {
        {"the listing is refused", Fault("/certificates?", 403), "", 0},
        {"a throttled page", Fault("/certificates?", 429, 4), both, 4},
        {"a list that stays throttled", Fault("/certificates?", 429, 5), "", 5},
        {"a certificate is gone", Fault("/certificates/a?", 404), onlyB, 0},
        {"an answer without a certificate", Fault("/certificates/a?", 200, 1, json::object()), onlyB, 0},
        {"not a certificate", Fault("/certificates/a?", 200, 1, {{"cer", "AQID"}}), onlyB, 0},
        {"thumbprints that can't be decoded", Fault("/certificates?", 200, 1, badThumbprints), "000102,", 0},
    };
    for (const auto& [name, failure, list, waits] : rows) {
        SCOPED_TRACE(name);
        SetList("");
        clock.ClearWaits();
        sim.Fault(failure);
        RunLater();
        EXPECT_EQ(list, CertSync());
        EXPECT_EQ(waits, clock.Waits().size());
        EXPECT_LT(0, Stamp()) << "the stamp is updated in any case";
    }
    // A later run tries again.
    SetList("");
    sim.Fault(Fault("/certificates/a?", 500));
    RunLater();
    EXPECT_EQ((Strings{"GET /certificates", "GET /certificates/a", "GET /keys/absent"}), RunLater());
    EXPECT_EQ(onlyB + VaultHash("a") + ",", CertSync());
    EXPECT_EQ(2u, Store().size());
}

TEST_F(VaultToMachineTest, RenewedCertificatesAndOnesUnderTwoNames)
{
    const Issued first = Issue({{"subject", "CN=web"}});
    const Issued second = Issue({{"subject", "CN=web"}});
    AddVaultCertificate("web", {{"pem", first.pem}});
    AddVaultCertificate("web2", {{"pem", first.pem}});
    EXPECT_EQ((Strings{"GET /certificates", "GET /certificates/web", "GET /keys/absent"}), Run());
    AddVaultCertificate("web", {{"pem", second.pem}});
    RunLater();
    EXPECT_EQ(Sorted({InMachine(first.hash, "web"), InMachine(second.hash, "web")}), Store());
    EXPECT_EQ(first.hash + "," + second.hash + ",", CertSync());
}

TEST_F(VaultToMachineTest, AListOfAnyFormIsSearched)
{
    AddVaultCertificate("web");
    const std::string hash = VaultHash("web");
    for (const auto& [list, known] : {std::pair("\xC3\xBC%s\n" + hash + ";;", true), {"%s%s%s%n,,,", false}}) {
        SCOPED_TRACE(list);
        SetList(list);
        EXPECT_EQ(known ? 2u : 3u, RunLater().size());
        EXPECT_EQ(known ? list : list + hash + ",", CertSync());
    }
    // A number counts as an empty list, and is replaced.
    root.SetNumber(HKEY_LOCAL_MACHINE, "CertSync", 7);
    RunLater();
    EXPECT_EQ(hash + ",", CertSync());
}

TEST_F(VaultToMachineTest, ACertificateInTheStoreIsBound)
{
    const Issued issued = Issue({{"subject", "CN=web"}});
    AddVaultCertificate("web", {{"pem", issued.pem}});
    AddToStore(issued, "elsewhere", true, kOtherProvider);
    Run();
    EXPECT_EQ(Strings{InMachine(issued.hash, "web")}, Store());
}

TEST_F(VaultToMachineTest, EveryAllocationOfARunMayFail)
{
    AddVaultCertificate("a");
    const std::string old = std::string(40, '0') + ",";
    SetList(old);
    OpenProvider();
    const auto run = [&, this]() -> SECURITY_STATUS {
        clock.Advance(1201);
        const KVCCall call(KVCBeginCall(reinterpret_cast<KSP_PROVIDER*>(provider)->machineKvc));
        if (!call || !KVCAuthenticate(call.get()))
            return NTE_NO_MEMORY;
        KVCSyncCertsFromKVToMachine(call.get());
        return CertSync() == old ? NTE_NO_MEMORY : 0;
    };
    const size_t failures = FailEach(run, [&](SECURITY_STATUS status, size_t failAt) {
        EXPECT_EQ(0u, CertSync().find(old)) << failAt << ": the list is never lost";
        EXPECT_TRUE(status || Store().size() == 1) << failAt << ": recorded but not stored";
        ClearStores();
        SetList(old);
    });
    EXPECT_GT(failures, 10u);
    EXPECT_EQ(old + VaultHash("a") + ",", CertSync());
}

}  // namespace

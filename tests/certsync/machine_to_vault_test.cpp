// Certificates that a host has installed are published to the vault when the key's handle is released.
#include "certsync/machine_to_vault.h"

#include "provider/key_object.h"
#include "provider/provider.h"
#include "tests/certsync/certs_fixture.h"
#include "tests/provider/fail_each.h"

namespace {

// A curve is requested in hardware first, which the vault refuses for a software key.
const Strings kPublication = {"GET /certificates/web", "POST /certificates/web/create", "POST /certificates/web/create",
                              "POST /certificates/web/pending/merge", "GET /keys/web"};

class MachineToVaultTest : public CertsTest {
  protected:
    void SetUp() override
    {
        CertsTest::SetUp();
        // Nothing is copied the other way.
        root.SetNumber(HKEY_LOCAL_MACHINE, kStamp, 0xFFFFFFFF);
    }
    // A certificate of the vault's key "web", bound to it in the machine's store.
    Issued Install(json wanted = json::object())
    {
        wanted["key"] = "web";
        const Issued issued = Issue(wanted);
        AddToStore(issued, "web");
        return issued;
    }
    // Opens "web" and marks it by reading the property: releasing it publishes its certificate.
    NCRYPT_KEY_HANDLE OpenMarked(DWORD flags = NCRYPT_MACHINE_KEY_FLAG)
    {
        const NCRYPT_KEY_HANDLE key = OpenKey("web", flags);
        DWORD size = 0;
        EXPECT_EQ(Hex(NTE_NOT_SUPPORTED),
                  Hex(table->GetKeyProperty(provider, key, TEXT("SmartCardKeyCertificate"), nullptr, 0, &size, 0)));
        return key;
    }
    // The requests of the release alone.
    Strings Release(NCRYPT_KEY_HANDLE key)
    {
        TakeRequests();
        root.ClearLog();
        FreeKey(key);
        EXPECT_FALSE(root.Logged("KelvaroFreeKey publishCert Out of memory", 1));
        return TakeRequests();
    }
    Strings Publish(DWORD flags = NCRYPT_MACHINE_KEY_FLAG) { return Release(OpenMarked(flags)); }
};

TEST_F(MachineToVaultTest, TheHostsCertificateReplacesTheVaults)
{
    const Strings& all = kPublication;
    const Row<const char*, bool, Strings> rows[] = {
        {"EC", true, all},
        {"EC", false, all},
        {"RSA", true, {all[0], all[1], all[3], all[4]}},
    };
    for (const auto& [kty, machine, requests] : rows) {
        SCOPED_TRACE(std::string(kty) + (machine ? " machine" : " user"));
        sim.Reset();
        ClearStores();
        AddVaultCertificate("web", {{"kty", kty}});
        const Issued issued = Issue({{"key", "web"}, {"subject", "CN=web01"}});
        AddToStore(issued, "web", machine);
        SetList("");
        root.SetText(HKEY_CURRENT_USER, "CertSync", "");
        const DWORD flags = machine ? NCRYPT_MACHINE_KEY_FLAG : 0;
        EXPECT_EQ(requests, Publish(flags));
        EXPECT_EQ(issued.hash, VaultHash("web"));
        EXPECT_EQ(Strings{}, Publish(flags)) << "a published certificate";
        EXPECT_EQ(issued.hash, CertSync(machine ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER));
        EXPECT_EQ("", CertSync(machine ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE));
    }
}

TEST_F(MachineToVaultTest, OnlyAPublishedCertificateIsRecorded)
{
    AddVaultCertificate("web");
    const Issued issued = Install({{"size", 1200}});
    const json same = Fault("/certificates/web?", 200, 1, {{"cer", issued.base64}});
    const json other = Fault("/certificates/web?", 200, 1, {{"cer", Issue({{"key", "web"}, {"size", 1200}}).base64}});
    const Strings& all = kPublication;
    const Row<const char*, std::vector<json>, Strings, bool> rows[] = {
        {"the vault's can't be read", {Fault("/certificates/web?", 404)}, all, true},
        {"the vault's has its size", {other}, all, true},
        {"the vault's is the same", {same}, {all[0]}, true},
        {"the creation is refused", {other, Fault("/create", 500)}, {all[0], all[1]}, false},
        {"it is refused in software too", {other, Fault("/create", 403, 2)}, {all[0], all[1], all[1]}, false},
        {"it is throttled to the end",
         {other, Fault("/create", 429, 5)},
         {all[0], all[1], all[1], all[1], all[1], all[1]},
         false},
        {"the key can't be read back", {other, Fault("/keys/web", 403)}, all, false},
        {"the merge is refused", {other, Fault("/merge", 400)}, all, true},
        {"the token is refused", {Fault("/certificates/web", 401, 3)}, {all[0], all[1], all[1]}, false},
    };
    for (const auto& [name, faults, requests, recorded] : rows) {
        SCOPED_TRACE(name);
        SetList("");
        const NCRYPT_KEY_HANDLE key = OpenMarked();
        sim.Control("DELETE", "/faults");
        for (const json& fault : faults)
            sim.Fault(fault);
        EXPECT_EQ(requests, Release(key));
        EXPECT_EQ(recorded ? issued.hash : "", CertSync());
    }
}

TEST_F(MachineToVaultTest, WhichReleasesPublish)
{
    AddVaultCertificate("web");
    Install();
    const std::string longName(43, 'n');
    AddToStore(Issue({{"subject", "CN=long"}}), longName);
    OpenProvider();
    const auto release = [this](const WCHAR* name, KVCClient* client) {
        KSP_KEY* key = nullptr;
        EXPECT_EQ(0, CreateNewKeyObject(name, TEXT("RSA"), &key, NCRYPT_MACHINE_KEY_FLAG));
        key->kvc = client;
        key->publishCert = 1;
        EXPECT_EQ(0, table->FreeKey(provider, reinterpret_cast<NCRYPT_KEY_HANDLE>(key)));
        return sim.Journal().size();
    };
    EXPECT_EQ(0u, release(TEXT("web"), reinterpret_cast<KSP_PROVIDER*>(provider)->machineKvc)) << "not signed in";
    EXPECT_EQ(0u, release(nullptr, nullptr)) << "a key without a name";
    EXPECT_EQ(0u, release(Wide(longName).c_str(), nullptr)) << "a name too long for the vault";
    EXPECT_EQ(Strings{}, Release(OpenKey("web"))) << "a key that is not marked";
    EXPECT_EQ(std::string::npos, root.WholeLog().find("KVCEvaluateCertsInStore")) << "the store isn't searched";
    EXPECT_EQ("", CertSync());

    // The token is used although it has expired for the client.
    const NCRYPT_KEY_HANDLE marked = OpenMarked();
    const int signIns = sim.SignIns();
    clock.Advance(4000);
    EXPECT_EQ(kPublication, Release(marked));
    EXPECT_EQ(signIns, sim.SignIns());

    // A host that sets the property, in whatever letter case.
    Install({{"notBefore", 1900000000}});
    const NCRYPT_KEY_HANDLE key = OpenKey("web");
    BYTE value = 0;
    table->SetKeyProperty(provider, key, TEXT("smartcardkeycertificate"), &value, 1, 0);
    EXPECT_EQ(kPublication, Release(key));
}

TEST_F(MachineToVaultTest, TheNewestCertificateOfTheKeyIsTaken)
{
    AddVaultCertificate("web");
    constexpr int64_t kDay = 24 * 60 * 60;
    constexpr int64_t kNow = 1800000000;
    // start: in days. winner: an index, -1 for none.
    using Bound = Row<int64_t, size_t, std::string, std::string>;
    const std::string own = kProvider;
    const Row<const char*, std::vector<Bound>, int> cases[] = {
        {"by the start, whatever the end",
         {{-30, 1500, "web", own}, {-1, 1500, "web", own}, {-9, 1500, "web", own}},
         1},
        {"even one that isn't valid yet", {{-30, 1500, "web", own}, {300, 1500, "web", own}}, 1},
        {"of this key alone", {{-30, 1500, "web", own}, {-1, 1500, "Web", own}, {-1, 1500, "web2", own}}, 0},
        {"of this provider alone", {{-30, 1500, "web", own}, {-1, 1500, "web", kOtherProvider}, {0, 1500, "", ""}}, 0},
        {"the largest", {{-30, 1500, "web", own}, {-1, 4999, "web", own}}, 1},
        {"an older one rather than one that is too large", {{-30, 1500, "web", own}, {-1, 5000, "web", own}}, 0},
        {"too large", {{-1, 5000, "web", own}}, -1},
        {"none", {{-1, 1500, "other", own}}, -1},
    };
    for (const auto& [name, store, winner] : cases) {
        SCOPED_TRACE(name);
        ClearStores();
        SetList("");
        Strings hashes;
        int64_t end = kNow + 900 * kDay;
        for (const auto& [start, size, container, bound] : store) {
            // The one that starts last ends first.
            const Issued issued =
                Issue({{"key", "web"}, {"notBefore", kNow + start * kDay}, {"notAfter", end -= kDay}, {"size", size}});
            AddToStore(issued, container, true, bound);
            hashes.push_back(issued.hash);
        }
        EXPECT_EQ(winner < 0 ? Strings{} : kPublication, Publish());
        EXPECT_EQ(winner < 0 ? "" : hashes[static_cast<size_t>(winner)], CertSync());
    }
    // If several start at the same time, the first one is taken.
    ClearStores();
    SetList("");
    for (int i = 0; i < 4; i++)
        Install({{"notBefore", 1700000000}});
    Publish();
    EXPECT_EQ(0u, StoreInOrder().front().find(CertSync() + " "));
}

TEST_F(MachineToVaultTest, SubjectsReachThePolicyIntact)
{
    AddVaultCertificate("web");
    // The simulator reads names from the end, as the service does.
    const std::pair<std::string, std::string> rows[] = {
        {"O=\"Acme, Inc.\", CN=web01", "CN=web01, O=\"Acme, Inc.\""},
        {"CN=back\\slash", "CN=back\\slash"},
        {"", "CN=CertificateDummySubject"},
        {"CN=Gru\xC3\x9F", "CN=Gru\xC3\x9F"},
        // Some code pages turn this one into a plain quotation mark.
        {"CN=a\xEF\xBC\x82z", "CN=a\xEF\xBC\x82z"},
    };
    int64_t start = 1700000000;
    for (const auto& [subject, written] : rows) {
        SCOPED_TRACE(subject);
        const Issued issued = Install({{"subject", subject}, {"notBefore", ++start}});
        const NCRYPT_KEY_HANDLE key = OpenMarked();
        sim.ClearJournal();
        FreeKey(key);
        const std::string body = sim.Journal()[1]["body"];
        EXPECT_EQ(written, json::parse(body)["policy"]["x509_props"]["subject"]);
        EXPECT_EQ(std::string::npos, body.find_first_of("\xC3\xEF")) << body;
        EXPECT_EQ(issued.hash, VaultHash("web"));
    }
}

TEST_F(MachineToVaultTest, TheListGrowsWithACommaInFront)
{
    AddVaultCertificate("web");
    const std::string hash = Install().hash;
    // The other direction's comma is followed by a second one; a hash counts anywhere in the list.
    const Row<const char*, std::string, bool> rows[] = {
        {"0A", "0A," + hash, false}, {"0A,", "0A,," + hash, false}, {"", hash, false}, {"x", "x" + hash + "x", true}};
    for (const auto& [before, after, known] : rows) {
        SetList(known ? after : before);
        EXPECT_EQ(known, Publish().empty());
        EXPECT_EQ(after, CertSync());
    }
}

TEST_F(MachineToVaultTest, WithPlainKeysTheVaultDecides)
{
    root.SetNumber(HKEY_LOCAL_MACHINE, "CertificatesOrKeys", 1);
    sim.AddKey(Simulator::kVault, {{"name", "web"}, {"kty", "EC"}, {"crv", "P-256"}});
    Install();
    const Strings requests = Publish();
    EXPECT_EQ("GET /keys/web", requests.at(0));
    EXPECT_EQ("POST /keys/web/create", requests.at(1));
    EXPECT_EQ("", CertSync());
}

TEST_F(MachineToVaultTest, EveryAllocationOfAReleaseMayFail)
{
    AddVaultCertificate("web");
    const Issued issued = Install();
    const std::string old = std::string(40, '0');
    OpenProvider();
    size_t outOfMemory = 0;
    const auto release = [&, this]() -> SECURITY_STATUS {
        NCRYPT_KEY_HANDLE key = 0;
        {
            const AllocFaultPause pause;  // for the release alone
            SetList(old);
            key = OpenMarked();
            root.ClearLog();
        }
        FreeKey(key);
        return 0;
    };
    const size_t failures = FailEach(release, [&](SECURITY_STATUS, size_t failAt) {
        EXPECT_EQ(0u, CertSync().find(old)) << failAt << ": the list is never lost";
        outOfMemory += root.Logged("KelvaroFreeKey publishCert Out of memory", 1) ? 1 : 0;
    });
    EXPECT_GT(failures, 10u);
    EXPECT_GT(outOfMemory, 3u) << "for the list, the certificate and the call";
    EXPECT_EQ(old + "," + issued.hash, CertSync());
}

}  // namespace

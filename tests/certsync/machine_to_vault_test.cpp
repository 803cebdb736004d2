// Certificates that a host installed, on their way into the vault when the key's handle is released.
#include "certsync/machine_to_vault.h"

#include "provider/key_object.h"
#include "provider/provider.h"
#include "tests/certsync/certs_fixture.h"

using nlohmann::json;

namespace {

const Strings kPublication = {"GET /certificates/web", "POST /certificates/web/create",
                              "POST /certificates/web/pending/merge", "GET /keys/web"};

class MachineToVaultTest : public CertsTest {
  protected:
    void SetUp() override
    {
        CertsTest::SetUp();
        // Nothing comes the other way.
        root.SetNumber(HKEY_LOCAL_MACHINE, kStamp, 0xFFFFFFFF);
    }
    // A certificate of the vault's key "web", bound to it in the machine's store.
    Issued Install(json spec = json::object())
    {
        spec["key"] = "web";
        const Issued issued = Issue(spec);
        AddToStore(issued, "web");
        return issued;
    }
    // Opens "web" and marks it by asking for the property; releasing it is to publish its certificate.
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
        clock.ClearWaits();
        FreeKey(key);
        EXPECT_TRUE(LinesUpTo(1, "KelvaroFreeKey").empty());
        return TakeRequests();
    }
    Strings Publish(DWORD flags = NCRYPT_MACHINE_KEY_FLAG) { return Release(OpenMarked(flags)); }
    void SetList(const std::string& list) { root.SetText(HKEY_LOCAL_MACHINE, "CertSync", list); }
};

TEST_F(MachineToVaultTest, TheHostsCertificateReplacesTheVaults)
{
    const Strings& all = kPublication;
    const Row<const char*, const char*, bool, Strings> rows[] = {
        {"RSA, machine", "RSA", true, all},
        {"RSA, user", "RSA", false, all},
        // The curve is asked for in hardware first, and the certificate's key is none.
        {"curve", "EC", true, {all[0], all[1], all[1], all[2], all[3]}},
    };
    for (const auto& [name, kty, machine, requests] : rows) {
        SCOPED_TRACE(name);
        sim.Reset();
        ClearStores();
        AddVaultCertificate("web", kty);
        const Issued issued = Issue({{"key", "web"}, {"subject", "CN=web01"}});
        AddToStore(issued, "web", machine);
        const HKEY hive = machine ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
        const HKEY other = machine ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
        SetList("");
        root.SetText(HKEY_CURRENT_USER, "CertSync", "");
        const DWORD flags = machine ? NCRYPT_MACHINE_KEY_FLAG : 0;
        EXPECT_EQ(requests, Publish(flags));
        EXPECT_EQ(issued.hash, VaultHashes("web").back());
        EXPECT_EQ(Strings{}, Publish(flags)) << "once in step, a later release sends nothing";
        EXPECT_EQ(issued.hash, CertSync(hive));
        EXPECT_EQ("", CertSync(other));
    }
}

TEST_F(MachineToVaultTest, WhatIsSentAndWhatIsRecorded)
{
    AddVaultCertificate("web", "RSA");
    const Issued issued = Install({{"size", 1200}});
    const Issued sameSize = Issue({{"key", "web"}, {"size", 1200}});
    const auto status = [](const char* path, int code, int times = 1) {
        return json{{"path", path}, {"action", "status"}, {"status", code}, {"times", times}};
    };
    const auto certificate = [&](const Issued& vaults) {
        json fault = status("/certificates/web?", 200);
        fault["body"] = {{"cer", vaults.base64}};
        return fault;
    };
    const json other = certificate(sameSize);
    const Strings& all = kPublication;
    const Row<const char*, std::vector<json>, Strings, bool> rows[] = {
        {"the vault's can't be read", {status("/certificates/web?", 404)}, all, true},
        {"the vault's has its size", {other}, all, true},
        {"the vault's is the same", {certificate(issued)}, {all[0]}, true},
        {"the creation is refused", {other, status("/create", 500)}, {all[0], all[1]}, false},
        {"it is refused in software too", {other, status("/create", 403, 2)}, {all[0], all[1], all[1]}, false},
        {"it is throttled to the end",
         {other, status("/create", 429, 5)},
         {all[0], all[1], all[1], all[1], all[1], all[1]},
         false},
        {"the key can't be read back", {other, status("/keys/web", 403)}, all, false},
        {"the merge is refused", {other, status("/merge", 400)}, all, true},
        {"the token is refused", {status("/certificates/web", 401, 3)}, {all[0], all[1], all[1]}, false},
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
    AddVaultCertificate("web", "RSA");
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
    EXPECT_TRUE(root.Logged("KVCGetCert REST Call Error Error 0x0", 1));
    root.ClearLog();
    EXPECT_EQ(0u, release(nullptr, nullptr)) << "a key without a name";
    EXPECT_EQ(0u, release(Wide(longName).c_str(), nullptr)) << "a name without a form in the vault";
    EXPECT_EQ(Strings{}, Release(OpenKey("web"))) << "a key that is not marked";
    EXPECT_TRUE(LinesUpTo(10, "KVCEvaluateCertsInStore").empty());
    EXPECT_EQ("", CertSync());

    // The token is used as it is, though to the client it has run out.
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
    AddVaultCertificate("web", "RSA");
    constexpr int64_t kDay = 24 * 60 * 60;
    constexpr int64_t kNow = 1800000000;
    struct Bound {
        int64_t start;  // days
        size_t size;
        std::string container, provider;
    };
    const std::string own = kProvider;
    // winner: -1: none
    const Row<const char*, std::vector<Bound>, int> cases[] = {
        {"by the start, whatever the end",
         {{-30, 1500, "web", own}, {-1, 1500, "web", own}, {-9, 1500, "web", own}},
         1},
        {"even one that is not valid yet", {{-30, 1500, "web", own}, {300, 1500, "web", own}}, 1},
        {"of this key alone", {{-30, 1500, "web", own}, {-1, 1500, "Web", own}, {-1, 1500, "web2", own}}, 0},
        {"of this provider alone", {{-30, 1500, "web", own}, {-1, 1500, "web", kOtherProvider}, {0, 1500, "", ""}}, 0},
        {"the largest", {{-30, 1500, "web", own}, {-1, 4999, "web", own}}, 1},
        {"a larger one gives way to an older one", {{-30, 1500, "web", own}, {-1, 5000, "web", own}}, 0},
        {"a larger one alone", {{-1, 5000, "web", own}}, -1},
        {"none", {{-1, 1500, "other", own}}, -1},
    };
    for (const auto& [name, store, winner] : cases) {
        SCOPED_TRACE(name);
        ClearStores();
        SetList("");
        Strings hashes;
        int64_t end = kNow + 900 * kDay;
        for (const Bound& certificate : store) {
            // The one that starts last ends first.
            const Issued issued = Issue({{"key", "web"},
                                         {"notBefore", kNow + certificate.start * kDay},
                                         {"notAfter", end -= kDay},
                                         {"size", certificate.size}});
            AddToStore(issued, certificate.container, true, certificate.provider);
            hashes.push_back(issued.hash);
        }
        EXPECT_EQ(winner < 0 ? Strings{} : kPublication, Publish());
        EXPECT_EQ(winner < 0 ? "" : hashes[static_cast<size_t>(winner)], CertSync());
    }
    // Of those that start together the first one that is found stays.
    ClearStores();
    SetList("");
    for (int i = 0; i < 4; i++)
        Install({{"notBefore", 1700000000}});
    Publish();
    EXPECT_EQ(StoreInOrder().front().hash, CertSync());
}

TEST_F(MachineToVaultTest, SubjectsReachThePolicyIntact)
{
    AddVaultCertificate("web", "RSA");
    // The simulator reads names as the service does, from the end.
    const std::pair<std::string, std::string> rows[] = {
        {"O=\"Acme, Inc.\", CN=web01", "CN=web01, O=\"Acme, Inc.\""},
        {"CN=back\\slash", "CN=back\\slash"},
        {"", "CN=CertificateDummySubject"},
        {"CN=Gru\xC3\x9F", "CN=Gru\xC3\x9F"},
        // A code page may take a plain quotation mark for this one.
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
        EXPECT_EQ(issued.hash, VaultHashes("web").back());
    }
}

TEST_F(MachineToVaultTest, TheListGrowsWithACommaInFront)
{
    AddVaultCertificate("web", "RSA");
    const std::string first = Install({{"notBefore", 1700000000}}).hash;
    Publish();
    const std::string second = Install({{"notBefore", 1700000001}}).hash;
    // Behind what the other direction wrote comes a second comma; a hash that is known in any place is known.
    const Row<std::string, std::string, bool> rows[] = {
        {first, first + "," + second, false},
        {first + ",", first + ",," + second, false},
        {"x" + second + "x", "x" + second + "x", true},
    };
    for (const auto& [before, after, known] : rows) {
        SetList(before);
        EXPECT_EQ(known, Publish().empty());
        EXPECT_EQ(after, CertSync());
    }
}

TEST_F(MachineToVaultTest, WhatCameFromTheVaultDoesNotGoBack)
{
    root.SetNumber(HKEY_LOCAL_MACHINE, kStamp, 0);
    AddVaultCertificate("web");
    const NCRYPT_KEY_HANDLE key = OpenMarked();
    ASSERT_EQ(1u, Store().size());
    EXPECT_EQ(Strings{}, Release(key));
}

TEST_F(MachineToVaultTest, WithPlainKeysTheVaultDecides)
{
    root.SetNumber(HKEY_LOCAL_MACHINE, "CertificatesOrKeys", 1);
    sim.AddKey(Simulator::kVault, {{"name", "web"}, {"kty", "RSA"}, {"size", 2048}});
    Install();
    const Strings requests = Publish();
    EXPECT_EQ("GET /keys/web", requests.front());
    EXPECT_EQ("POST /keys/web/create", requests[1]);
    EXPECT_EQ("", CertSync());
}

TEST_F(MachineToVaultTest, EveryAllocationOfAReleaseMayFail)
{
    AddVaultCertificate("web", "RSA");
    const Issued issued = Install();
    const std::string old = std::string(40, '0');
    OpenProvider();
    size_t failAt = 0;
    size_t outOfMemory = 0;
    for (size_t seen = 0;; failAt++) {
        SetList(old);
        const NCRYPT_KEY_HANDLE key = OpenMarked();
        root.ClearLog();
        {
            const AllocFault fault(failAt);
            FreeKey(key);
            seen = fault.Seen();
        }
        EXPECT_EQ(0u, CertSync().find(old)) << failAt << ": the list is never lost";
        outOfMemory += root.Logged("KelvaroFreeKey publishCert Out of memory", 1) ? 1 : 0;
        if (seen <= failAt)
            break;
    }
    EXPECT_GT(failAt, 10u);
    EXPECT_GT(outOfMemory, 3u) << "for the list, the certificate and the call";
    EXPECT_EQ(old + "," + issued.hash, CertSync());
}

}  // namespace

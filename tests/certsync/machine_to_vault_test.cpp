// Certificates that a host installed, on their way into the vault when the key's handle is released.
#include "certsync/machine_to_vault.h"

#include "provider/key_object.h"
#include "provider/provider.h"
#include "tests/certsync/certs_fixture.h"
#include "tests/provider/fail_each.h"

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

    // Asks for the property that marks a key.
    void Mark(NCRYPT_KEY_HANDLE key)
    {
        DWORD size = 0;
        EXPECT_EQ(Hex(NTE_NOT_SUPPORTED),
                  Hex(table->GetKeyProperty(provider, key, TEXT("SmartCardKeyCertificate"), nullptr, 0, &size, 0)));
    }
    // Opens the key, marks it, and gives it back: the requests of the release alone.
    Strings Publish(const std::string& name = "web", DWORD flags = NCRYPT_MACHINE_KEY_FLAG)
    {
        const NCRYPT_KEY_HANDLE key = OpenKey(name, flags);
        Mark(key);
        TakeRequests();
        root.ClearLog();
        clock.ClearWaits();
        FreeKey(key);
        return TakeRequests();
    }
    // The body of the last request of the journal whose target ends so.
    std::string Body(const std::string& action)
    {
        std::string body;
        for (const json& request : sim.Journal()) {
            if (request.value("target", "").find(action) != std::string::npos)
                body = request.value("body", "");
        }
        return body;
    }
    // Publishes a certificate of this subject for "web". written: the subject in the policy, as JSON has it.
    void ExpectSubject(const std::string& subject, const std::string& written)
    {
        SCOPED_TRACE(subject);
        const Issued issued = Issue({{"key", "web"}, {"subject", subject}, {"notBefore", ++start_}});
        AddToStore(issued, "web");
        const NCRYPT_KEY_HANDLE key = OpenKey("web");
        Mark(key);
        sim.ClearJournal();
        FreeKey(key);
        const std::string body = Body("/create");
        EXPECT_NE(std::string::npos, body.find("\"subject\":\"" + written + "\"")) << body;
        EXPECT_EQ(issued.hash, VaultHashes("web").back());
    }

  private:
    int64_t start_ = 1700000000;
};

TEST_F(MachineToVaultTest, TheHostsCertificateReplacesTheVaults)
{
    const struct {
        const char* name;
        const char* kty;
        bool machine;
        Strings requests;
    } rows[] = {
        {"RSA, machine", "RSA", true, kPublication},
        {"RSA, user", "RSA", false, kPublication},
        // The curve is asked for in hardware first, and the certificate's key is none.
        {"curve", "EC", true, {kPublication[0], kPublication[1], kPublication[1], kPublication[2], kPublication[3]}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        sim.Reset();
        ClearStores();
        AddVaultCertificate("web", row.kty);
        const Issued issued = Issue({{"key", "web"}, {"subject", "CN=web01"}});
        AddToStore(issued, "web", row.machine);
        const HKEY hive = row.machine ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
        const HKEY other = row.machine ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
        root.SetText(HKEY_LOCAL_MACHINE, "CertSync", "");
        root.SetText(HKEY_CURRENT_USER, "CertSync", "");
        const DWORD flags = row.machine ? NCRYPT_MACHINE_KEY_FLAG : 0;
        EXPECT_EQ(row.requests, Publish("web", flags));
        EXPECT_EQ(issued.hash, VaultHashes("web").back());
        EXPECT_EQ(issued.hash, CertSync(hive));
        EXPECT_EQ("", CertSync(other));
        // Once in step, a later release sends nothing.
        EXPECT_EQ(Strings{}, Publish("web", flags));
        EXPECT_EQ(issued.hash, CertSync(hive));
    }
}

TEST_F(MachineToVaultTest, TheLinesOfAPublication)
{
    AddVaultCertificate("web", "RSA");
    const Issued issued = Issue({{"key", "web"}, {"subject", "CN=web01"}});
    AddToStore(issued, "web");
    Publish();
    const std::string evaluate = "KVCEvaluateCertsInStore ";
    EXPECT_EQ((Strings{evaluate + "store Machine 8", evaluate + "Look for Certificate web 10",
                       evaluate + "kspInfoP->pwszContainerName web 10",
                       evaluate + "kspInfoP->pwszProvName " + std::string(kProvider) + " 10",
                       evaluate + "Found Matching Certificate web 10", evaluate + "Found certificate OK Blob 10"}),
              LinesUpTo(10, evaluate));
    const std::string set = "KelvaroSetKeyProperty ";
    EXPECT_EQ((Strings{set + "EvaluateCertsInStore Found Certificate Hash " + issued.hash + " 10",
                       set + "EvaluateCertsInStore Found Certificate CN=web01 10",
                       set + "EvaluateCertsInStore Certificate Different Sizes CN=web01 10",
                       set + "KVCLowLevelCreateKeyCertificate OK CN=web01 10"}),
              LinesUpTo(10, set));
    EXPECT_TRUE(root.Logged("KelvaroFreeKey publishCert web", 6));

    // The vault's own certificate is compared byte by byte.
    root.SetText(HKEY_LOCAL_MACHINE, "CertSync", "");
    EXPECT_EQ(Strings{kPublication[0]}, Publish());
    EXPECT_TRUE(root.Logged(set + "EvaluateCertsInStore Certificate Already in KV - Skip Sync CN=web01", 10));
    EXPECT_TRUE(root.Logged(set + "KVCLowLevelCreateKeyCertificate OK CN=web01", 10));
    EXPECT_EQ(issued.hash, CertSync());
}

TEST_F(MachineToVaultTest, WhatIsSentAndWhatIsRecorded)
{
    AddVaultCertificate("web", "RSA");
    const Issued issued = Issue({{"key", "web"}, {"size", 1200}});
    const Issued sameSize = Issue({{"key", "web"}, {"size", 1200}});
    AddToStore(issued, "web");
    const auto status = [](const char* path, int code, int times = 1) {
        return json{{"path", path}, {"action", "status"}, {"status", code}, {"times", times}};
    };
    const auto certificate = [&](const Issued& vaults) {
        json fault = status("/certificates/web?", 200);
        fault["body"] = {{"cer", vaults.base64}};
        return fault;
    };
    const json other = certificate(sameSize);
    const Strings upToCreation(kPublication.begin(), kPublication.begin() + 2);
    const Strings withRetry = {kPublication[0], kPublication[1], kPublication[1]};
    const struct {
        const char* name;
        std::vector<json> faults;
        Strings requests;
        bool recorded;
        const char* line;  // of level 10, after "KelvaroSetKeyProperty EvaluateCertsInStore "
    } rows[] = {
        {"the vault's cannot be read",
         {status("/certificates/web?", 404)},
         kPublication,
         true,
         "Could not find KV Certificate"},
        {"the vault's has its size", {other}, kPublication, true, "Certificate Different"},
        {"the vault's is the same",
         {certificate(issued)},
         {kPublication[0]},
         true,
         "Certificate Already in KV - Skip Sync"},
        {"the creation is refused", {other, status("/create", 500)}, upToCreation, false, "Certificate Different"},
        {"it is refused in software too",
         {other, status("/create", 403, 2)},
         withRetry,
         false,
         "Certificate Different"},
        {"the key cannot be read back",
         {other, status("/keys/web", 403)},
         kPublication,
         false,
         "Certificate Different"},
        {"the merge is refused", {other, status("/merge", 400)}, kPublication, true, "Certificate Different"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        root.SetText(HKEY_LOCAL_MACHINE, "CertSync", "");
        const NCRYPT_KEY_HANDLE key = OpenKey("web");
        Mark(key);
        sim.Control("DELETE", "/faults");
        TakeRequests();
        root.ClearLog();
        for (const json& fault : row.faults)
            sim.Fault(fault);
        FreeKey(key);
        EXPECT_EQ(row.requests, TakeRequests());
        EXPECT_EQ(row.recorded ? issued.hash : "", CertSync());
        EXPECT_FALSE(LinesUpTo(10, std::string("KelvaroSetKeyProperty EvaluateCertsInStore ") + row.line).empty());
    }
}

TEST_F(MachineToVaultTest, WhatFailedIsTriedAgainOnTheNextRelease)
{
    AddVaultCertificate("web", "RSA");
    const Issued issued = Issue({{"key", "web"}});
    AddToStore(issued, "web");
    sim.Fault({{"path", "/create"}, {"action", "status"}, {"status", 429}, {"times", 5}});
    EXPECT_EQ(6u, Publish().size());
    EXPECT_EQ((std::vector<DWORD>{1000, 2000, 4000, 8000, 16000}), clock.Waits());
    EXPECT_EQ("", CertSync());
    EXPECT_EQ(kPublication, Publish());
    EXPECT_EQ(issued.hash, CertSync());
}

TEST_F(MachineToVaultTest, TheTokenIsUsedAsItIs)
{
    AddVaultCertificate("web", "RSA");
    AddToStore(Issue({{"key", "web"}}), "web");
    const NCRYPT_KEY_HANDLE key = OpenKey("web");
    Mark(key);
    TakeRequests();
    const int signIns = sim.SignIns();
    clock.Advance(4000);  // to the client the token has run out
    FreeKey(key);
    EXPECT_EQ(signIns, sim.SignIns());
    EXPECT_EQ(kPublication, TakeRequests());

    // A vault that no longer takes it: nothing is recorded, and the host does not notice.
    AddToStore(Issue({{"key", "web"}, {"notBefore", 1900000000}}), "web");
    const std::string before = CertSync();
    sim.Fault({{"path", "/certificates/web"}, {"action", "status"}, {"status", 401}, {"times", 3}});
    EXPECT_EQ((Strings{kPublication[0], kPublication[1], kPublication[1]}), Publish());
    EXPECT_EQ(before, CertSync());
}

TEST_F(MachineToVaultTest, WhichReleasesPublish)
{
    AddVaultCertificate("web", "RSA");
    AddToStore(Issue({{"key", "web"}}), "web");
    KSP_KEY* unopened = nullptr;
    ASSERT_EQ(0, CreateNewKeyObject(TEXT("web"), TEXT("RSA"), &unopened, NCRYPT_MACHINE_KEY_FLAG));
    unopened->kvc = reinterpret_cast<KSP_PROVIDER*>(OpenProvider())->machineKvc;
    unopened->publishCert = 1;
    EXPECT_EQ(0, table->FreeKey(provider, reinterpret_cast<NCRYPT_KEY_HANDLE>(unopened)));
    EXPECT_TRUE(root.Logged("KVCGetCert REST Call Error Error 0x0", 1)) << "a client that never signed in";
    EXPECT_TRUE(sim.Journal().empty() && CertSync().empty());

    root.ClearLog();
    FreeKey(OpenKey("web"));
    EXPECT_EQ((Strings{"GET /keys/web"}), TakeRequests()) << "a key that is not marked";
    EXPECT_TRUE(LinesUpTo(10, "KVCEvaluateCertsInStore").empty());

    KSP_KEY* nameless = nullptr;
    ASSERT_EQ(0, CreateNewKeyObject(nullptr, TEXT("RSA"), &nameless, NCRYPT_MACHINE_KEY_FLAG));
    nameless->publishCert = 1;
    EXPECT_EQ(0, table->FreeKey(provider, reinterpret_cast<NCRYPT_KEY_HANDLE>(nameless)));
    EXPECT_TRUE(LinesUpTo(10, "KVCEvaluateCertsInStore").empty()) << "a key without a name";

    AddToStore(Issue({{"subject", "CN=long"}}), std::string(43, 'n'));
    KSP_KEY* tooLong = nullptr;
    ASSERT_EQ(0, CreateNewKeyObject(Wide(std::string(43, 'n')).c_str(), TEXT("RSA"), &tooLong, 0x20));
    tooLong->publishCert = 1;
    EXPECT_EQ(0, table->FreeKey(provider, reinterpret_cast<NCRYPT_KEY_HANDLE>(tooLong)));
    EXPECT_EQ(Strings{}, TakeRequests()) << "a name without a form in the vault";

    // A host that sets the property, in whatever letter case.
    const NCRYPT_KEY_HANDLE key = OpenKey("web");
    BYTE value = 0;
    table->SetKeyProperty(provider, key, TEXT("smartcardkeycertificate"), &value, 1, 0);
    TakeRequests();
    FreeKey(key);
    EXPECT_EQ(kPublication, TakeRequests());
}

TEST_F(MachineToVaultTest, TheNewestCertificateOfTheKeyIsTaken)
{
    AddVaultCertificate("web", "RSA");
    constexpr int64_t kDay = 24 * 60 * 60;
    constexpr int64_t kNow = 1800000000;
    struct Row {
        int64_t start;  // days
        size_t size;
        std::string container;
        std::string provider;
    };
    const std::string own = kProvider;
    const struct {
        const char* name;
        std::vector<Row> store;
        int winner;  // -1: none
    } cases[] = {
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
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        ClearStores();
        root.SetText(HKEY_LOCAL_MACHINE, "CertSync", "");
        Strings hashes;
        int64_t end = kNow + 900 * kDay;
        for (const Row& certificate : row.store) {
            // The one that starts last ends first.
            const Issued issued = Issue({{"key", "web"},
                                         {"notBefore", kNow + certificate.start * kDay},
                                         {"notAfter", end -= kDay},
                                         {"size", certificate.size}});
            AddToStore(issued, certificate.container, true, certificate.provider);
            hashes.push_back(issued.hash);
        }
        const Strings requests = Publish();
        EXPECT_EQ(row.winner < 0 ? Strings{} : kPublication, requests);
        EXPECT_EQ(row.winner < 0 ? "" : hashes[static_cast<size_t>(row.winner)], CertSync());
        EXPECT_EQ(row.winner < 0, root.Logged("KVCEvaluateCertsInStore Failed to find certificate Blob", 10));
    }
}

TEST_F(MachineToVaultTest, OfTwoThatStartTogetherTheOneFoundFirstStays)
{
    AddVaultCertificate("web", "RSA");
    for (int i = 0; i < 4; i++)
        AddToStore(Issue({{"key", "web"}, {"notBefore", 1700000000}}), "web");
    Publish();
    EXPECT_EQ(StoreInOrder().front().hash, CertSync());
}

TEST_F(MachineToVaultTest, SubjectsReachThePolicyIntact)
{
    AddVaultCertificate("web", "RSA");
    // The simulator reads names as the service does, from the end.
    ExpectSubject("O=\"Acme, Inc.\", CN=web01", "CN=web01, O=\\\"Acme, Inc.\\\"");
    ExpectSubject("CN=back\\slash", "CN=back\\\\slash");
    ExpectSubject("", "CN=CertificateDummySubject");
    ExpectSubject("CN=Gru\xC3\x9F", "CN=Gru\\u00df");
    // A code page may take a plain quotation mark for this one.
    ExpectSubject("CN=a\xEF\xBC\x82z", "CN=a\\uff02z");
}

TEST_F(MachineToVaultTest, TheListGrowsWithACommaInFront)
{
    AddVaultCertificate("web", "RSA");
    const Issued first = Issue({{"key", "web"}, {"notBefore", 1700000000}});
    const Issued second = Issue({{"key", "web"}, {"notBefore", 1700000001}});
    AddToStore(first, "web");
    Publish();
    AddToStore(second, "web");
    Publish();
    EXPECT_EQ(first.hash + "," + second.hash, CertSync());

    // Behind what the other direction wrote stands a second comma; a hash that is known in any place is known.
    root.SetText(HKEY_LOCAL_MACHINE, "CertSync", first.hash + ",");
    Publish();
    EXPECT_EQ(first.hash + ",," + second.hash, CertSync());
    root.SetText(HKEY_LOCAL_MACHINE, "CertSync", "x" + second.hash + "x");
    EXPECT_EQ(Strings{}, Publish());
}

TEST_F(MachineToVaultTest, WhatCameFromTheVaultDoesNotGoBack)
{
    root.SetNumber(HKEY_LOCAL_MACHINE, kStamp, 0);
    AddVaultCertificate("web");
    const NCRYPT_KEY_HANDLE key = OpenKey("web");
    ASSERT_EQ(1u, Store().size());
    Mark(key);
    TakeRequests();
    FreeKey(key);
    EXPECT_EQ(Strings{}, TakeRequests());
}

TEST_F(MachineToVaultTest, WithPlainKeysTheVaultDecides)
{
    root.SetNumber(HKEY_LOCAL_MACHINE, "CertificatesOrKeys", 1);
    sim.AddKey(Simulator::kVault, {{"name", "web"}, {"kty", "RSA"}, {"size", 2048}});
    AddToStore(Issue({{"key", "web"}}), "web");
    const Strings requests = Publish();
    EXPECT_EQ("GET /keys/web", requests.front());
    EXPECT_EQ("POST /keys/web/create", requests[1]);
    EXPECT_EQ("", CertSync());
}

TEST_F(MachineToVaultTest, EveryAllocationOfAReleaseMayFail)
{
    AddVaultCertificate("web", "RSA");
    const Issued issued = Issue({{"key", "web"}});
    AddToStore(issued, "web");
    const std::string old = std::string(40, '0');
    OpenProvider();
    size_t failAt = 0;
    for (size_t seen = 0;; failAt++) {
        root.SetText(HKEY_LOCAL_MACHINE, "CertSync", old);
        const NCRYPT_KEY_HANDLE key = OpenKey("web");
        Mark(key);
        {
            const AllocFault fault(failAt);
            FreeKey(key);
            seen = fault.Seen();
        }
        EXPECT_EQ(0u, CertSync().find(old)) << failAt << ": the list is never lost";
        if (seen <= failAt)
            break;
    }
    EXPECT_GT(failAt, 10u);
    EXPECT_EQ(old + "," + issued.hash, CertSync());
}

}  // namespace

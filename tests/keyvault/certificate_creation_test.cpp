// New keys of certificates, and the publication of a certificate that is there.
#include "keyvault/key_certificate_creation.h"
#include "support/base64.h"
#include "support/guards.h"
#include "tests/keyvault/creation_fixture.h"

using nlohmann::json;

namespace {

class CertificateModeCreationTest : public CreationTest {
  protected:
    DWORD certificateMode() const override { return 1; }

    static std::string Body(const std::string& keyProperties, const std::string& algId)
    {
        return R"({"attributes":{"enabled": true},"policy": {"key_props": {"exportable": false )" + keyProperties +
               R"(,"reuse_key": true },"secret_props": {"contentType":"application/x-pkcs12"},)"
               R"("x509_props": {"subject":"CN=CertificateDummySubject","validity_months": 600 ,)"
               R"("ekus":["1.3.6.1.5.5.7.3.1","1.3.6.1.5.5.7.3.2"],"key_usage":["digitalSignature"]}},)"
               R"("tags": {"KSPManaged":"KSP","AlgID":")" +
               algId + R"(","KeyName":"mykey"}})";
    }
    const RequestBodies kCurve = {Body(R"(,"kty":"EC-HSM","key_size": 256 ,"crv":"P-256")", "ECDSA_P256"),
                                  Body(R"(,"kty":"EC","key_size": 256 ,"crv":"P-256")", "ECDSA_P256")};

    // The certificate that the last merge brought.
    std::string MergedCertificate()
    {
        const std::vector<json> merges = ClientTest::Requests("/pending/merge?");
        return merges.empty() ? "" : json::parse(merges.back().value("body", ""))["x5c"][0].get<std::string>();
    }
};

TEST_F(CertificateModeCreationTest, EachAlgorithmHasItsPolicy)
{
    const struct {
        const char* algId;
        LONG bits;
        const char* keyProperties;
        const char* kty;
    } rows[] = {
        {"RSA", 2048, R"(,"kty":"RSA-HSM","key_size": 2048 )", "RSA-HSM"},
        {"ECDSA_P256", 0, R"(,"kty":"EC-HSM","key_size": 256 ,"crv":"P-256")", "EC-HSM"},
        {"ECDSA_P384", 384, R"(,"kty":"EC-HSM","key_size": 384 ,"crv":"P-384")", "EC-HSM"},
        {"ECDSA_P521", 512, R"(,"kty":"EC-HSM","key_size": 521 ,"crv":"P-521")", "EC-HSM"},
        {"ECDH_P256", 256, R"(,"kty":"EC-HSM","key_size": 256 ,"crv":"P-256")", "EC-HSM"},
        {"ECDH_P384", 384, R"(,"kty":"EC-HSM","key_size": 384 ,"crv":"P-384")", "EC-HSM"},
        {"ECDH_P521", 2048, R"(,"kty":"EC-HSM","key_size": 521 ,"crv":"P-521")", "EC-HSM"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.algId);
        Fresh();
        OwnKey key;
        EXPECT_EQ(1, Create("mykey", row.algId, row.bits, &key));
        const std::string body = Body(row.keyProperties, row.algId);
        EXPECT_EQ("hardware merge read", Requests({body, ""}));
        EXPECT_EQ(
            (Strings{"KVCCreateKey 8", "KVCCreateKey Calling KVCLowLevelCreateKeyCertificate 8",
                     "KVCLowLevelCreateKeyCertificate 8", "KVCLowLevelCreateKeyCertificate JSON Body " + body + " 10",
                     "KVCLowLevelCreateKeyCertificate Found CSR 10",
                     "KVCLowLevelCreateKeyCertificate DummyCert Good dummyCert 8", "KVCImportCertificate mykey 8",
                     "KVCImportCertificate Body  mykey {\"x5c\": [\"" + MergedCertificate() + "\"]} 10"}),
            Trace());
        EXPECT_EQ(Strings{}, LinesUpTo(2));
        EXPECT_EQ(row.algId, Narrow(key.AlgID));
        EXPECT_EQ(row.kty, Kty(key));
        const json state = StateOf();
        const json certificate = state["certificates"][0];
        EXPECT_EQ("mykey", certificate["name"]);
        EXPECT_EQ(MergedCertificate(), certificate["versions"][0]["cer"]);
        EXPECT_EQ("completed", certificate["pending"]);
        EXPECT_EQ("KSP", certificate["versions"][0]["tags"]["KSPManaged"]);
        EXPECT_EQ(true, state["keys"][0]["managed"]);
        EXPECT_EQ(state["keys"][0]["versions"][0]["version"], Narrow(key.version));
    }
}

TEST_F(CertificateModeCreationTest, AnswersOfEveryKind)
{
    const json known = {{"error", {{"code", "BadParameter"}, {"message", "kty RSA-HSM is not valid"}}}};
    const std::string detail = "KVCLowLevelCreateKeyCertificate HSM Key Failed - detail error ";
    const std::string refusedDetail = detail + "refused";
    const std::string knownDetail = detail + known.dump();
    const std::vector<Message> messages = {
        {"call", "KVCLowLevelCreateKeyCertificate REST Call Error", 1},
        {"throttled", "KVCLowLevelCreateKeyCertificate ActionThrottled", 2},
        {"fallback", "KVCLowLevelCreateKeyCertificate HSM Key Failed - retry with software key", 2},
        {"detail", refusedDetail.c_str(), 2},
        {"known-detail", knownDetail.c_str(), 2},
        {"no-detail", detail.c_str(), 2},
        {"failed", "KVCLowLevelCreateKeyCertificate Failed", 1},
        {"merge-error", "KVCImportCertificate Error", 1},
        {"merge-throttled", "KVCImportCertificate THROLLED - RETRY ", 2},
        {"merge-failed", "KVCImportCertificate Failed", 1},
        {"no-json", "KVCLowLevelCreateKeyCertificate answer is not JSON unexpected character", 1},
        {"read-error", "KVCGetKey KVCDoKVRESTCall Error", 1},
        {"read-failed", "KVCGetKey KVCDoKVRESTCall Failed", 1},
    };
    const struct {
        const char* name;
        const char* creations;  // then the vault answers for itself
        const char* merges;
        const char* requests;
        size_t waits;
        int result;
        const char* lines;
    } rows[] = {
        {"no hardware", "403", "", "hardware software merge read", 0, 1, "call:403 fallback:403"},
        {"no hardware in the known words", "400k", "", "hardware software merge read", 0, 1, "call:400 fallback:400"},
        {"no hardware in other words", "400", "", "hardware software merge read", 0, 1, "call:400 fallback:400 detail"},
        {"the known words with another status", "404k", "", "hardware software merge read", 0, 1,
         "call:404 fallback:404 known-detail"},
        {"410", "410", "", "hardware software merge read", 0, 1, "call:410 fallback:410 detail"},
        {"411 is final", "411", "", "hardware", 0, 0, "call:411 failed:411 detail"},
        {"refused twice", "403 400k", "", "hardware software", 0, 0,
         "call:403 fallback:403 call:400 failed:400 known-detail"},
        {"throttled to the end", "429 429 429 429 429", "", "hardware hardware hardware hardware hardware", 5, 0,
         "call:429 throttled:429 call:429 throttled:429 call:429 throttled:429 call:429 "
         "throttled:429 call:429 throttled:429"},
        {"throttled around the fall-back", "429 403 429", "", "hardware hardware software software merge read", 2, 1,
         "call:429 throttled:429 call:403 fallback:403 call:429 throttled:429"},
        {"the longest road", "429 429 429 429 403 429", "", "hardware hardware hardware hardware hardware software", 5,
         0,
         "call:429 throttled:429 call:429 throttled:429 call:429 throttled:429 call:429 "
         "throttled:429 call:403 fallback:403 call:429 throttled:429"},
        {"200", "200", "", "hardware", 0, 0, "failed:200 detail"},
        {"204", "204", "", "hardware", 0, 0, "failed:204 no-detail"},
        {"a server error", "503", "", "hardware", 0, 0, "call:503 failed:503 detail"},
        {"taken without JSON", "202", "", "hardware read", 0, 0, "no-json read-error read-failed:404"},
        {"merge throttled", "", "429 429", "hardware merge merge merge read", 2, 1,
         "merge-throttled:429 merge-throttled:429"},
        {"merge throttled to the end", "", "429 429 429 429 429", "hardware merge merge merge merge merge read", 5, 0,
         "merge-throttled:429 merge-throttled:429 merge-throttled:429 merge-throttled:429 "
         "merge-throttled:429 read-error read-failed:404"},
        {"merge refused", "", "400", "hardware merge read", 0, 0, "merge-error:400 read-error read-failed:404"},
        {"merge in conflict", "", "409", "hardware merge read", 0, 0, "merge-error:409 read-error read-failed:404"},
        {"merge without content", "", "204", "hardware merge read", 0, 0,
         "merge-failed:204 read-error read-failed:404"},
        {"merge answered 200", "", "200", "hardware merge read", 0, 0, "read-error read-failed:404"},
        {"merge answered 202", "", "202", "hardware merge read", 0, 0, "read-error read-failed:404"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Fresh();
        AnswerAll("/certificates/mykey/create?", row.creations, known);
        AnswerAll("/pending/merge?", row.merges);
        OwnKey key;
        EXPECT_EQ(row.result, Create("mykey", "ECDSA_P256", 256, &key));
        EXPECT_EQ(row.requests, Requests(kCurve));
        EXPECT_EQ(FirstWaits(row.waits), clock.Waits());
        EXPECT_EQ(Lines(row.lines, messages), LinesUpTo(2));
        EXPECT_EQ(row.result ? 1u : 0u, StateOf()["keys"].size());
    }
}

TEST_F(CertificateModeCreationTest, RequestsThatCannotBeAnswered)
{
    const struct {
        const char* name;
        json csr;
        const char* line;  // of level 1, its beginning
    } rows[] = {
        {"not Base64", "*", "KVCLowLevelCreateKeyCertificate Decode Request Failed 1"},
        {"a number", 17, "KVCLowLevelCreateKeyCertificate SignDummyCert Request Failed 1"},
        {"over the decoder's limit", std::string(4096, 'A'), "KVCLowLevelCreateKeyCertificate Decode Request Failed 1"},
        {"no request", "AQID", "KVCLowLevelCreateKeyCertificate SignDummyCert Request Failed 1"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Fresh();
        Answer("/create?", 202, {{"csr", row.csr}});
        OwnKey key;
        EXPECT_EQ(0, Create("mykey", "ECDSA_P256", 256, &key));
        EXPECT_EQ("hardware", Requests(kCurve));
        ASSERT_FALSE(LinesUpTo(2).empty());
        EXPECT_EQ(row.line, LinesUpTo(2).back());
    }
}

// What the vault said decides, and the read-back alone: with a key of that name there the same answers end well.
TEST_F(CertificateModeCreationTest, TheReadBackDecides)
{
    sim.AddKey(Simulator::kVault, {{"name", "mykey"}, {"kty", "EC"}, {"crv", "P-256"}});
    for (const json& answer : {json::object(), json{{"csr", nullptr}}, json("no JSON")}) {
        Answer("/create?", 202, answer);
        OwnKey key;
        EXPECT_EQ(1, Create("mykey", "ECDSA_P256", 256, &key)) << answer;
        EXPECT_EQ("EC", Kty(key));
    }
    EXPECT_EQ("hardware read hardware read hardware read", Requests(kCurve));
}

TEST_F(CertificateModeCreationTest, APublicationKeepsTheKeyAndMergesTheCertificateAtHand)
{
    const auto policy = [](const std::string& keyProperties, const std::string& subject, const std::string& algId) {
        return R"({"attributes":{"enabled": true},"policy": {"key_props": {"exportable": false )" + keyProperties +
               R"(,"reuse_key": true },"secret_props": {"contentType":"application/x-pkcs12"},)"
               R"("x509_props": {"subject":")" +
               subject + R"(","validity_months": 600 }},"tags": {"KSPManaged":"KSP","AlgID":")" + algId +
               R"(","KeyName":"mykey"}})";
    };
    const std::string curve = R"(,"kty":"EC-HSM","key_size": 256 ,"crv":"P-256")";
    const struct {
        const char* name;
        const char* algId;
        const WCHAR* subject;
        std::string body;
    } rows[] = {
        {"RSA", "RSA", TEXT("CN=web01"), policy("", "CN=web01", "RSA")},
        {"a quoted subject", "RSA", TEXT("CN=a, O=\"Acme, Inc.\""), policy("", R"(CN=a, O=\"Acme, Inc.\")", "RSA")},
        {"an empty subject", "RSA", TEXT(""), policy("", "CN=CertificateDummySubject", "RSA")},
        {"no subject", "RSA", nullptr, policy("", "CN=CertificateDummySubject", "RSA")},
        {"a curve", "ECDSA_P256", TEXT("CN=web01"), policy(curve, "CN=web01", "ECDSA_P256")},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Fresh();
        const TextString algId = Wide(row.algId);
        OwnKey before;
        ASSERT_EQ(1, Create("mykey", row.algId, 2048, &before));
        // Any certificate of the key will do.
        const std::string text = MergedCertificate();
        BYTE* bytes = nullptr;
        DWORD size = 0;
        ASSERT_EQ(1, KVCKelvaro_FromBase64(Wide(text).c_str(), &bytes, &size, 1));
        const MallocPtr<BYTE> certificate(bytes);
        sim.ClearJournal();
        root.ClearLog();
        OwnKey after;
        EXPECT_EQ(1, KVCLowLevelCreateKeyCertificate(call.get(), TEXT("mykey"), TEXT("mykey"), algId.c_str(), 2048,
                                                     &after, 0, certificate.get(), size, row.subject));
        EXPECT_EQ("hardware merge read", Requests({row.body, ""}));
        EXPECT_EQ(text, MergedCertificate());
        EXPECT_EQ(Strings{}, LinesUpTo(2));
        EXPECT_TRUE(root.Logged("KVCLowLevelCreateKeyCertificate KVC_ToBase64 b64Cert Good b64Cert", 8));
        EXPECT_NE(Narrow(before.version), Narrow(after.version));
        EXPECT_EQ(Bytes(before.n, before.n + before.n_siz), Bytes(after.n, after.n + after.n_siz));
        EXPECT_EQ(2u, StateOf()["certificates"][0]["versions"].size());
    }
}

TEST_F(CertificateModeCreationTest, APublicationFallsBackWithTheSameTextAndFollowsTheMode)
{
    call->certificateMode = 0;
    Answer("/keys/mykey/create?", 403, "");
    Answer("/keys/mykey/create?", 202, "whatever this says");
    Answer("/keys/mykey/pending/merge?", 201, "");
    sim.AddKey(Simulator::kVault, {{"name", "mykey"}, {"kty", "RSA"}});
    const BYTE certificate[] = {0xFF, 0xEF, 0xBE};
    OwnKey key;
    EXPECT_EQ(1, KVCLowLevelCreateKeyCertificate(call.get(), TEXT("mykey"), TEXT("mykey"), TEXT("RSA"), 2048, &key, 1,
                                                 certificate, 3, TEXT("CN=x")));
    const std::string body =
        R"({"attributes":{"enabled": true},"policy": {"key_props": {"exportable": true ,"reuse_key": true },)"
        R"("secret_props": {"contentType":"application/x-pkcs12"},"x509_props": {"subject":"CN=x",)"
        R"("validity_months": 600 }},"tags": {"KSPManaged":"KSP","AlgID":"RSA","KeyName":"mykey"}})";
    EXPECT_EQ((Strings{body, body, R"({"x5c": ["/+++"]})", ""}), Bodies());
    EXPECT_EQ((Strings{"POST /keys/mykey/create?api-version=7.0", "POST /keys/mykey/create?api-version=7.0",
                       "POST /keys/mykey/pending/merge?api-version=7.0", "GET /keys/mykey?api-version=2016-10-01"}),
              sim.VaultRequests());
}

TEST_F(CertificateModeCreationTest, WithoutMemoryACreationFailsAndNoHalfRequestGoesOut)
{
    SetLogging(0);
    OwnKey first;
    ASSERT_EQ(1, Create("mykey", "ECDSA_P256", 256, &first));
    int result = 0;
    SweepAllocations(
        [&] {
            OwnKey key;
            result = Create("mykey", "ECDSA_P256", 256, &key);
        },
        [&](bool whole) {
            EXPECT_TRUE(result == 1 || !whole);
            // A request left pending is never answered, and would block the next one.
            KVCDoKVRESTCall(call.get(), nullptr, 1, TEXT("mykey"), TEXT("DELETE"), TEXT("pending"), nullptr,
                            kApiVersionWrite);
        });
    // The creation and the merge, each always the same.
    EXPECT_EQ(2u, Posts().size()) << json(Posts());
}

}  // namespace

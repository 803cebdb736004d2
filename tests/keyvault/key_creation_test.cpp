// New keys, plain and of certificates, and the publication of a certificate.
#include "keyvault/key_creation.h"

#include "keyvault/key_certificate_creation.h"
#include "tests/keyvault/client_fixture.h"

namespace {

class KeyCreationTest : public VaultTest {
  protected:
    int Create(const std::string& algId, KVKey* key, const std::string& name = "mykey", LONG bits = 2048)
    {
        return KVCCreateKey(call.get(), Wide(name).c_str(), Wide(algId).c_str(), bits, key, 0);
    }
    // All requests to the vault. A creation is "hardware" or "software" after the type of key that it asks for, a merge
    // "merge", and reading the key "read".
    Strings Steps()
    {
        Strings steps;
        const std::string area = call->certificateMode ? "/certificates" : "/keys";
        for (const json& request : Requests("?api-version=")) {
            const std::string line = request.value("method", "") + " " + request.value("target", "");
            const json body = json::parse(request.value("body", ""), nullptr, false);
            if (line == "POST " + area + "/mykey/create?api-version=7.0") {
                const std::string kty = (body.contains("policy") ? body["policy"]["key_props"] : body)["kty"];
                steps.push_back(kty.find("-HSM") != std::string::npos ? "hardware" : "software");
            } else if (line == "POST " + area + "/mykey/pending/merge?api-version=7.0") {
                steps.push_back("merge");
            } else if (line == "GET /keys/mykey?api-version=2016-10-01") {
                steps.push_back("read");
            } else {
                steps.push_back(line);
            }
        }
        return steps;
    }
    // The body of the last request whose target contains `action`.
    std::string BodyText(const std::string& action)
    {
        const std::vector<json> requests = Requests(action);
        return requests.empty() ? "" : requests.back().value("body", "");
    }
    json BodyOf(const std::string& action)
    {
        const std::string text = BodyText(action);
        return text.empty() ? json() : json::parse(text);
    }
    // A request for a certificate, byte for byte: the blanks belong to it.
    static std::string CertificateRequest(const std::string& keyProperties, const std::string& x509Properties,
                                          const std::string& algId)
    {
        return R"({"attributes":{"enabled": true},"policy": {"key_props": {)" + keyProperties +
               R"(,"reuse_key": true },"secret_props": {"contentType":"application/x-pkcs12"},"x509_props": {)" +
               x509Properties + R"(}},"tags": {"KSPManaged":"KSP",)" + Tags(algId);
    }
    static std::string Tags(const std::string& algId) { return R"("AlgID":")" + algId + R"(","KeyName":"mykey"}})"; }
    void ExpectRequests();
    void ExpectAnswers();
};

// What each algorithm asks for. hostBits: of no effect on a curve.
void KeyCreationTest::ExpectRequests()
{
    const bool plain = call->certificateMode == 0;
    const Row<const char*, LONG, const char*, int> rows[] = {
        {"RSA", 2048, nullptr, 2048},      {"ECDSA_P256", 0, "P-256", 256},   {"ECDSA_P384", 384, "P-384", 384},
        {"ECDSA_P521", 512, "P-521", 521}, {"ECDH_P256", 2048, "P-256", 256}, {"ECDH_P384", 384, "P-384", 384},
        {"ECDH_P521", -1, "P-521", 521},
    };
    for (const auto& [algId, hostBits, crv, bits] : rows) {
        SCOPED_TRACE(algId);
        Fresh();
        OwnKey key;
        EXPECT_EQ(1, Create(algId, &key, "mykey", hostBits));
        EXPECT_EQ(plain ? Strings{"hardware"} : (Strings{"hardware", "merge", "read"}), Steps());
        const std::string kty = std::string(R"("kty":")") + (crv ? "EC-HSM" : "RSA-HSM") + '"';
        const std::string curve = crv ? std::string(R"(,"crv":")") + crv + '"' : "";
        const std::string plainSize = crv ? "" : R"(,"key_size":"2048")";
        const std::string body =
            plain ? "{" + kty + plainSize + curve + R"(,"tags": {)" + Tags(algId)
                  : CertificateRequest(
                        R"("exportable": false ,)" + kty + R"(,"key_size": )" + std::to_string(bits) + " " + curve,
                        R"("subject":"CN=CertificateDummySubject","validity_months": 600 ,)"
                        R"("ekus":["1.3.6.1.5.5.7.3.1","1.3.6.1.5.5.7.3.2"],"key_usage":["digitalSignature"])",
                        algId);
        EXPECT_EQ(body, BodyText("/create?"));
        EXPECT_EQ(Strings{}, LinesUpTo(2));
        EXPECT_EQ(algId, Narrow(key.AlgID));
        const json version = State()["keys"][0]["versions"][0];
        EXPECT_EQ(version["version"], Narrow(key.version));
        EXPECT_EQ(version["kty"], TextOf(key.kty));
    }
}

// Answers to creations, after which the vault carries them out. The request in hardware is repeated, then that in
// software; both share the five attempts.
void KeyCreationTest::ExpectAnswers()
{
    const Row<std::vector<int>, size_t, size_t, size_t, bool> rows[] = {
        {{403}, 1, 1, 0, true},
        {{400}, 1, 1, 0, true},
        {{410}, 1, 1, 0, true},
        {{411}, 1, 0, 0, false},
        {{403, 404}, 1, 1, 0, false},
        {{409, 409}, 1, 1, 0, false},
        {{429, 429, 429, 429}, 5, 0, 4, true},
        {{429, 429, 429, 429, 429}, 5, 0, 5, false},
        {{429, 403, 429}, 2, 2, 2, true},
        {{429, 429, 429, 429, 403, 429}, 5, 1, 5, false},
        {{500}, 1, 0, 0, false},
        {{call->certificateMode ? 200 : 202}, 1, 0, 0, false},  // the other mode's good answer
        {{201}, 1, 0, 0, false},
        {{204}, 1, 0, 0, false},
    };
    for (const auto& [answers, inHardware, inSoftware, waits, made] : rows) {
        SCOPED_TRACE(json(answers));
        Fresh();
        for (const int status : answers)
            Answer("/mykey/create?", status, "refused");
        OwnKey key;
        EXPECT_EQ(made ? 1 : 0, Create("ECDSA_P256", &key));
        Strings steps(inHardware, "hardware");
        steps.resize(inHardware + inSoftware, "software");
        if (made && call->certificateMode)
            steps.insert(steps.end(), {"merge", "read"});
        EXPECT_EQ(steps, Steps());
        EXPECT_EQ(RetryWaits(waits), clock.Waits());
        EXPECT_EQ(made ? 1u : 0u, State()["keys"].size());
        EXPECT_EQ(made ? "mykey" : "", Narrow(key.keyName));
    }
}

TEST_F(KeyCreationTest, PlainKeys)
{
    call->certificateMode = 0;
    ExpectRequests();
    ExpectAnswers();
    // Only exact names are curves. Anything else is RSA, of the size that the host asks for.
    Answer("/create?", 500, "");
    OwnKey key;
    EXPECT_EQ(0, Create("ecdsa_p256", &key, "mykey", -256));
    EXPECT_EQ("RSA-HSM", BodyOf("/create?")["kty"]);
    EXPECT_EQ("-256", BodyOf("/create?")["key_size"]);
    Answer("/create?", 403, "");
    Answer("/create?", 200, "not JSON");
    EXPECT_EQ(1, Create("RSA", &key));
    EXPECT_EQ("RSA", BodyOf("/create?")["kty"]) << "in software";
    EXPECT_EQ("mykey", Narrow(key.keyName));
}

TEST_F(KeyCreationTest, NamesAreEncodedInTheTargetAndClearInTheTag)
{
    call->certificateMode = 0;
    OwnKey unused;
    EXPECT_EQ(0, Create("RSA", &unused, std::string(43, 'n')));
    EXPECT_EQ(0, KVCCreateKey(call.get(), nullptr, TEXT("RSA"), 2048, &unused, 0));
    EXPECT_EQ(0, KVCCreateKey(nullptr, TEXT("k"), TEXT("RSA"), 2048, &unused, 0));
    EXPECT_EQ(Strings{}, sim.VaultRequests());
    for (const std::string name : {"a b", "\"}/\\\t", "line\n\x01\x1F", "\xC3\xA9\x7F\xC2\x80", "\xF0\x9D\x84\x9E",
                                   // Some code pages turn a full-width quotation mark into a plain one.
                                   "a\xEF\xBC\x82,\xEF\xBC\x82Injected\xEF\xBC\x82:\xEF\xBC\x82\xEF\xBC\xBC"}) {
        OwnKey key;
        EXPECT_EQ(1, Create("ECDSA_P256", &key, name));
        EXPECT_EQ(name, Narrow(key.clearName));
        const std::string body = sim.Journal().back()["body"];
        for (const char ch : body)
            EXPECT_GE(ch, 0x20) << body;
        EXPECT_EQ(json({{"AlgID", "ECDSA_P256"}, {"KeyName", name}}), json::parse(body)["tags"]);
    }
    EXPECT_EQ("POST /keys/" + kCodedName + "/create?api-version=7.0", sim.VaultRequests().front());
}

class CertificateModeCreationTest : public KeyCreationTest {
  protected:
    // In Base64.
    std::string MergedCertificate()
    {
        const std::string certificate = BodyOf("/pending/merge?")["x5c"][0];
        EXPECT_EQ(R"({"x5c": [")" + certificate + R"("]})", BodyText("/pending/merge?"));
        return certificate;
    }
};

TEST_F(CertificateModeCreationTest, CertificatesWithNewKeys)
{
    ExpectRequests();
    const json certificate = State()["certificates"][0];
    EXPECT_EQ(MergedCertificate(), certificate["versions"][0]["cer"]);
    EXPECT_EQ("completed", certificate["pending"]);
    ExpectAnswers();
    // After a merge that fails, reading the key decides.
    for (const int status : {400, 409, 204, 200, 202}) {
        SCOPED_TRACE(status);
        Fresh();
        Answer("/pending/merge?", status, "refused");
        OwnKey key;
        EXPECT_EQ(0, Create("ECDSA_P256", &key));
        EXPECT_EQ((Strings{"hardware", "merge", "read"}), Steps());
    }
}

// Without a certificate request in the answer only reading the key decides. A request that can't be answered ends the
// creation.
TEST_F(CertificateModeCreationTest, AnswersWithoutAUsableRequest)
{
    const std::pair<json, bool> rows[] = {
        {json::object(), true},
        {json{{"csr", nullptr}}, true},
        {"not JSON", true},
        {json{{"csr", "*"}}, false},
        {json{{"csr", 17}}, false},
        {json{{"csr", "AQID"}}, false},
        {json{{"csr", std::string(4096, 'A')}}, false},
    };
    for (const bool exists : {false, true}) {
        if (exists)
            sim.AddKey(Simulator::kVault, {{"name", "mykey"}, {"kty", "EC"}, {"crv", "P-256"}});
        for (const auto& [answer, goesOn] : rows) {
            SCOPED_TRACE(answer);
            sim.ClearJournal();
            Answer("/create?", 202, answer);
            OwnKey key;
            EXPECT_EQ(exists && goesOn ? 1 : 0, Create("ECDSA_P256", &key));
            EXPECT_EQ(goesOn ? (Strings{"hardware", "read"}) : Strings{"hardware"}, Steps());
        }
    }
}

TEST_F(CertificateModeCreationTest, APublicationKeepsTheKeyAndMergesTheGivenCertificate)
{
    const Row<const char*, const char*, const WCHAR*, const char*> rows[] = {
        {"RSA", R"("exportable": true )", nullptr, "CN=CertificateDummySubject"},
        {"ECDSA_P256", R"("exportable": false ,"kty":"EC-HSM","key_size": 256 ,"crv":"P-256")", TEXT("CN=web01"),
         "CN=web01"},
    };
    for (const auto& [algId, keyProperties, subject, policySubject] : rows) {
        SCOPED_TRACE(algId);
        Fresh();
        OwnKey before;
        ASSERT_EQ(1, Create(algId, &before));
        // Any certificate of the key will do.
        const std::string text = MergedCertificate();
        const Bytes certificate = FromBase64(text);
        sim.ClearJournal();
        OwnKey after;
        EXPECT_EQ(1, KVCLowLevelCreateKeyCertificate(call.get(), TEXT("mykey"), TEXT("mykey"), Wide(algId).c_str(),
                                                     2048, &after, subject ? 0 : 1, certificate.data(),
                                                     static_cast<DWORD>(certificate.size()), subject));
        const std::string x509Properties =
            std::string(R"("subject":")") + policySubject + R"(","validity_months": 600 )";
        EXPECT_EQ(CertificateRequest(keyProperties, x509Properties, algId), BodyText("/create?"));
        EXPECT_EQ(3u, sim.VaultRequests().size());
        EXPECT_EQ(text, MergedCertificate());
        EXPECT_NE(Narrow(before.version), Narrow(after.version));
        EXPECT_EQ(Bytes(before.n, before.n + before.n_siz), Bytes(after.n, after.n + after.n_siz));
        EXPECT_EQ(2u, State()["certificates"][0]["versions"].size());
    }
}

TEST_F(CertificateModeCreationTest, WithoutMemoryACreationFailsAndNothingIncompleteIsSent)
{
    SetLogging(0);
    OwnKey first;
    ASSERT_EQ(1, Create("ECDSA_P256", &first));
    int result = 0;
    SweepAllocations(
        [&] {
            OwnKey key;
            result = Create("ECDSA_P256", &key);
        },
        [&](bool whole) {
            EXPECT_TRUE(result == 1 || !whole);
            // A request left pending is never answered, and would block the next one.
            KVCDoKVRESTCall(call.get(), nullptr, 1, TEXT("mykey"), TEXT("DELETE"), TEXT("pending"), nullptr,
                            kApiVersionWrite);
        });
    EXPECT_EQ(2u, Posts().size()) << "the creation and the merge, always the same";
}

}  // namespace

// New keys, plain and of certificates, and the publication of a certificate: what is asked, in which order, and what
// comes of it.
#include "keyvault/key_creation.h"

#include "keyvault/key_certificate_creation.h"
#include "support/base64.h"
#include "support/guards.h"
#include "tests/keyvault/client_fixture.h"

using nlohmann::json;

namespace {

const struct Algorithm {
    const char* algId;
    LONG bits;  // as the host says; a curve has its own
    const char* crv;
    int size;
} kAlgorithms[] = {
    {"RSA", 2048, nullptr, 2048},      {"ECDSA_P256", 0, "P-256", 256},   {"ECDSA_P384", 384, "P-384", 384},
    {"ECDSA_P521", 512, "P-521", 521}, {"ECDH_P256", 2048, "P-256", 256}, {"ECDH_P384", 384, "P-384", 384},
    {"ECDH_P521", -1, "P-521", 521},
};

class KeyCreationTest : public VaultTest {
  protected:
    int Create(const std::string& name, const std::string& algId, LONG bits, KVKey* key)
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
    json BodyOf(const std::string& action)
    {
        const std::vector<json> requests = Requests(action);
        return requests.empty() ? json() : json::parse(requests.back().value("body", ""));
    }
    json State() { return sim.Control("GET", std::string("/vaults/") + Simulator::kVault); }
    void ExpectAnswers();
};

// Answers to creations, after which the vault answers for itself, and what the client does. The request in hardware is
// repeated, then that in software; both share the five attempts.
void KeyCreationTest::ExpectAnswers()
{
    const Row<const char*, std::vector<int>, size_t, size_t, size_t, bool> rows[] = {
        {"no hardware", {403}, 1, 1, 0, true},
        {"no hardware by 400", {400}, 1, 1, 0, true},
        {"no hardware by 410", {410}, 1, 1, 0, true},
        {"411 is final", {411}, 1, 0, 0, false},
        {"refused twice", {403, 404}, 1, 1, 0, false},
        {"a conflict", {409, 409}, 1, 1, 0, false},
        {"throttled", {429, 429, 429, 429}, 5, 0, 4, true},
        {"throttled to the end", {429, 429, 429, 429, 429}, 5, 0, 5, false},
        {"throttled before and after the fall-back", {429, 403, 429}, 2, 2, 2, true},
        {"the last attempt is in software", {429, 429, 429, 429, 403, 429}, 5, 1, 5, false},
        {"a server error", {500}, 1, 0, 0, false},
        {"the other kind's good answer", {call->certificateMode ? 200 : 202}, 1, 0, 0, false},
        {"201", {201}, 1, 0, 0, false},
        {"204", {204}, 1, 0, 0, false},
    };
    for (const auto& [name, answers, inHardware, inSoftware, waits, made] : rows) {
        SCOPED_TRACE(name);
        Fresh();
        for (const int status : answers)
            Answer("/mykey/create?", status, "refused");
        OwnKey key;
        EXPECT_EQ(made ? 1 : 0, Create("mykey", "ECDSA_P256", 256, &key));
        Strings steps(inHardware, "hardware");
        steps.resize(inHardware + inSoftware, "software");
        if (made && call->certificateMode)
            steps.insert(steps.end(), {"merge", "read"});
        EXPECT_EQ(steps, Steps());
        EXPECT_EQ(RetryWaits(waits), clock.Waits());
        EXPECT_EQ(inSoftware ? 1u : 0u, LinesWith(" HSM Key Failed - retry with software key Error 0x"));
        EXPECT_EQ(made ? 1u : 0u, State()["keys"].size());
        EXPECT_EQ(made ? "mykey" : "", Narrow(key.keyName));
    }
    Fresh();
    SetNetwork(false);
    OwnKey key;
    EXPECT_EQ(0, Create("mykey", "RSA", 2048, &key));
    EXPECT_EQ(2u, LinesWith(" Error 0x0 1"));
}

TEST_F(KeyCreationTest, EachAlgorithmHasItsRequest)
{
    call->certificateMode = 0;
    for (const Algorithm& row : kAlgorithms) {
        SCOPED_TRACE(row.algId);
        Fresh();
        OwnKey key;
        EXPECT_EQ(1, Create("mykey", row.algId, row.bits, &key));
        EXPECT_EQ(Strings{"hardware"}, Steps());
        json body =
            row.crv ? json{{"kty", "EC-HSM"}, {"crv", row.crv}} : json{{"kty", "RSA-HSM"}, {"key_size", "2048"}};
        body["tags"] = {{"AlgID", row.algId}, {"KeyName", "mykey"}};
        EXPECT_EQ(body, BodyOf("/create?"));
        EXPECT_EQ(Strings{}, LinesUpTo(2));
        EXPECT_EQ(row.algId, Narrow(key.AlgID));
        const json version = State()["keys"][0]["versions"][0];
        EXPECT_EQ(version["version"], Narrow(key.version));
        EXPECT_EQ(version["kty"], TextOf(key.kty));
    }
    // What isn't a curve name, letter for letter, counts as RSA, and the size goes out as it is.
    Answer("/create?", 500, "");
    OwnKey key;
    EXPECT_EQ(0, Create("mykey", "ecdsa_p256", -256, &key));
    EXPECT_EQ("RSA-HSM", BodyOf("/create?")["kty"]);
    EXPECT_EQ("-256", BodyOf("/create?")["key_size"]);
    Answer("/create?", 403, "");
    EXPECT_EQ(1, Create("mykey", "RSA", 2048, &key));
    EXPECT_EQ("RSA", BodyOf("/create?")["kty"]) << "in software";
    Answer("/create?", 200, "no JSON");
    OwnKey unread;
    EXPECT_EQ(1, Create("mykey", "RSA", 2048, &unread));
    EXPECT_EQ("mykey", Narrow(unread.keyName));
}

TEST_F(KeyCreationTest, AnswersOfEveryKind)
{
    call->certificateMode = 0;
    ExpectAnswers();
}

TEST_F(KeyCreationTest, NamesGoOutEncodedInTheTargetAndClearInTheTag)
{
    call->certificateMode = 0;
    for (const std::string name : {"a b", "\"}/\\\t", "line\n\x01\x1F", "\xC3\xA9\x7F\xC2\x80", "\xF0\x9D\x84\x9E",
                                   // A code page may take a plain quotation mark for a full-width one.
                                   "a\xEF\xBC\x82,\xEF\xBC\x82Injected\xEF\xBC\x82:\xEF\xBC\x82\xEF\xBC\xBC"}) {
        OwnKey key;
        EXPECT_EQ(1, Create(name, "ECDSA_P256", 256, &key));
        EXPECT_EQ(name, Narrow(key.clearName));
        const std::string body = sim.Journal().back()["body"];
        for (const char ch : body)
            EXPECT_GE(ch, 0x20) << body;
        EXPECT_EQ(json({{"AlgID", "ECDSA_P256"}, {"KeyName", name}}), json::parse(body)["tags"]);
    }
    EXPECT_EQ("POST /keys/" + kCodedName + "/create?api-version=7.0", sim.VaultRequests().front());
}

TEST_F(KeyCreationTest, WhatCannotBeAskedSendsNothing)
{
    OwnKey key;
    EXPECT_EQ(0, Create(std::string(43, 'n'), "RSA", 2048, &key));
    EXPECT_EQ(0, KVCCreateKey(call.get(), nullptr, TEXT("RSA"), 2048, &key, 0));
    EXPECT_EQ(0, KVCCreateKey(nullptr, TEXT("k"), TEXT("RSA"), 2048, &key, 0));
    EXPECT_EQ(3u, LinesUpTo(1).size());
    EXPECT_EQ(Strings{}, sim.VaultRequests());
}

class CertificateModeCreationTest : public KeyCreationTest {
  protected:
    // What the system asks for. keyProperties: without the two that all have.
    static json Request(const json& keyProperties, const char* algId)
    {
        json properties = keyProperties;
        properties["exportable"] = false;
        properties["reuse_key"] = true;
        return {{"attributes", {{"enabled", true}}},
                {"policy",
                 {{"key_props", properties},
                  {"secret_props", {{"contentType", "application/x-pkcs12"}}},
                  {"x509_props",
                   {{"subject", "CN=CertificateDummySubject"},
                    {"validity_months", 600},
                    {"ekus", {"1.3.6.1.5.5.7.3.1", "1.3.6.1.5.5.7.3.2"}},
                    {"key_usage", json::array({"digitalSignature"})}}}}},
                {"tags", {{"KSPManaged", "KSP"}, {"AlgID", algId}, {"KeyName", "mykey"}}}};
    }
    // In Base64.
    std::string MergedCertificate() { return BodyOf("/pending/merge?")["x5c"][0]; }
};

TEST_F(CertificateModeCreationTest, EachAlgorithmHasItsPolicy)
{
    for (const Algorithm& row : kAlgorithms) {
        SCOPED_TRACE(row.algId);
        Fresh();
        OwnKey key;
        EXPECT_EQ(1, Create("mykey", row.algId, row.bits, &key));
        EXPECT_EQ((Strings{"hardware", "merge", "read"}), Steps());
        json properties = {{"kty", row.crv ? "EC-HSM" : "RSA-HSM"}, {"key_size", row.size}};
        if (row.crv)
            properties["crv"] = row.crv;
        EXPECT_EQ(Request(properties, row.algId), BodyOf("/create?"));
        EXPECT_EQ(Strings{}, LinesUpTo(2));
        EXPECT_EQ(row.algId, Narrow(key.AlgID));
        EXPECT_EQ(properties["kty"], TextOf(key.kty));
        const json state = State();
        const json certificate = state["certificates"][0];
        EXPECT_EQ(MergedCertificate(), certificate["versions"][0]["cer"]);
        EXPECT_EQ("completed", certificate["pending"]);
        EXPECT_EQ(true, state["keys"][0]["managed"]);
        EXPECT_EQ(state["keys"][0]["versions"][0]["version"], Narrow(key.version));
    }
}

TEST_F(CertificateModeCreationTest, AnswersOfEveryKind)
{
    ExpectAnswers();
    // A merge that fails leaves it to the vault whether there is a key.
    for (const int status : {400, 409, 204, 200, 202}) {
        SCOPED_TRACE(status);
        Fresh();
        Answer("/pending/merge?", status, "refused");
        OwnKey key;
        EXPECT_EQ(0, Create("mykey", "ECDSA_P256", 256, &key));
        EXPECT_EQ((Strings{"hardware", "merge", "read"}), Steps());
        EXPECT_EQ(status == 200 || status == 202 ? 0u : 1u,
                  LinesUpTo(1).size() - LinesWith("KVCGetKey KVCDoKVRESTCall"));
    }
    // A refusal of hardware for a known reason doesn't need the vault's words in the log.
    const json known = {{"error", {{"code", "BadParameter"}, {"message", "kty RSA-HSM is not valid"}}}};
    const Row<int, json, size_t> rows[] = {{403, "refused", 0}, {400, known, 0}, {400, "refused", 1}, {404, known, 1}};
    for (const auto& [status, body, details] : rows) {
        Fresh();
        Answer("/create?", status, body);
        OwnKey key;
        EXPECT_EQ(1, Create("mykey", "ECDSA_P256", 256, &key));
        EXPECT_EQ(details, LinesWith("HSM Key Failed - detail error ")) << status << body;
    }
}

// Without a request of the vault only the read-back decides: with a key of that name it ends well. One that can't be
// answered ends the creation.
TEST_F(CertificateModeCreationTest, TheReadBackDecidesUnlessARequestCannotBeAnswered)
{
    const std::pair<json, bool> rows[] = {
        {json::object(), true},
        {json{{"csr", nullptr}}, true},
        {"no JSON", true},
        {json{{"csr", "*"}}, false},
        {json{{"csr", 17}}, false},
        {json{{"csr", "AQID"}}, false},
        {json{{"csr", std::string(4096, 'A')}}, false},
    };
    for (const bool isThere : {false, true}) {
        if (isThere)
            sim.AddKey(Simulator::kVault, {{"name", "mykey"}, {"kty", "EC"}, {"crv", "P-256"}});
        for (const auto& [answer, goesOn] : rows) {
            SCOPED_TRACE(answer);
            sim.ClearJournal();
            Answer("/create?", 202, answer);
            OwnKey key;
            EXPECT_EQ(isThere && goesOn ? 1 : 0, Create("mykey", "ECDSA_P256", 256, &key));
            EXPECT_EQ(goesOn ? (Strings{"hardware", "read"}) : Strings{"hardware"}, Steps());
        }
    }
}

TEST_F(CertificateModeCreationTest, APublicationKeepsTheKeyAndMergesTheCertificateAtHand)
{
    const Row<const char*, const char*, const WCHAR*, const char*> rows[] = {
        {"RSA", "RSA", TEXT("CN=web01"), "CN=web01"},
        {"a quoted subject", "RSA", TEXT("CN=a, O=\"Acme, Inc.\""), "CN=a, O=\"Acme, Inc.\""},
        {"an empty subject", "RSA", TEXT(""), "CN=CertificateDummySubject"},
        {"no subject", "RSA", nullptr, "CN=CertificateDummySubject"},
        {"a curve", "ECDSA_P256", TEXT("CN=web01"), "CN=web01"},
    };
    for (const auto& [name, algId, subject, policySubject] : rows) {
        SCOPED_TRACE(name);
        Fresh();
        OwnKey before;
        ASSERT_EQ(1, Create("mykey", algId, 2048, &before));
        // Any certificate of the key will do.
        const std::string text = MergedCertificate();
        BYTE* bytes = nullptr;
        DWORD size = 0;
        ASSERT_EQ(1, KVCKelvaro_FromBase64(Wide(text).c_str(), &bytes, &size, 1));
        const MallocPtr<BYTE> certificate(bytes);
        sim.ClearJournal();
        OwnKey after;
        EXPECT_EQ(1, KVCLowLevelCreateKeyCertificate(call.get(), TEXT("mykey"), TEXT("mykey"), Wide(algId).c_str(),
                                                     2048, &after, 0, certificate.get(), size, subject));
        const bool isCurve = algId != std::string("RSA");
        json request =
            Request(isCurve ? json{{"kty", "EC-HSM"}, {"key_size", 256}, {"crv", "P-256"}} : json::object(), algId);
        request["policy"]["x509_props"] = {{"subject", policySubject}, {"validity_months", 600}};
        EXPECT_EQ(request, BodyOf("/create?"));
        EXPECT_EQ(3u, sim.VaultRequests().size());
        EXPECT_EQ(text, MergedCertificate());
        EXPECT_NE(Narrow(before.version), Narrow(after.version));
        EXPECT_EQ(Bytes(before.n, before.n + before.n_siz), Bytes(after.n, after.n + after.n_siz));
        EXPECT_EQ(2u, State()["certificates"][0]["versions"].size());
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
    EXPECT_EQ((Strings{"POST /keys/mykey/create?api-version=7.0", "POST /keys/mykey/create?api-version=7.0",
                       "POST /keys/mykey/pending/merge?api-version=7.0", "GET /keys/mykey?api-version=2016-10-01"}),
              sim.VaultRequests());
    EXPECT_EQ(2u, Posts().size()) << "both creations have one text";
    EXPECT_EQ(true, BodyOf("/create?")["policy"]["key_props"]["exportable"]);
    EXPECT_EQ(R"({"x5c": ["/+++"]})", Requests("/merge?")[0]["body"]);
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
    EXPECT_EQ(2u, Posts().size()) << "the creation and the merge, always the same";
}

}  // namespace

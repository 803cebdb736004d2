// New plain keys: what is asked, in which order, and what comes of it.
#include "keyvault/key_creation.h"

#include "tests/keyvault/creation_fixture.h"

using nlohmann::json;

namespace {

class KeyCreationTest : public CreationTest {
  protected:
    const RequestBodies kRsa = {R"({"kty":"RSA-HSM","key_size":"2048","tags": {"AlgID":"RSA","KeyName":"mykey"}})",
                                R"({"kty":"RSA","key_size":"2048","tags": {"AlgID":"RSA","KeyName":"mykey"}})"};
    const RequestBodies kCurve = {R"({"kty":"EC-HSM","crv":"P-256","tags": {"AlgID":"ECDSA_P256","KeyName":"mykey"}})",
                                  R"({"kty":"EC","crv":"P-256","tags": {"AlgID":"ECDSA_P256","KeyName":"mykey"}})"};
};

TEST_F(KeyCreationTest, EachAlgorithmHasItsRequest)
{
    const struct {
        const char* algId;
        LONG bits;
        RequestBodies bodies;
    } rows[] = {
        {"RSA", 2048, kRsa},
        {"ECDSA_P256", 2048, kCurve},
        {"ECDSA_P384", 384, {R"({"kty":"EC-HSM","crv":"P-384","tags": {"AlgID":"ECDSA_P384","KeyName":"mykey"}})", ""}},
        {"ECDSA_P521", 0, {R"({"kty":"EC-HSM","crv":"P-521","tags": {"AlgID":"ECDSA_P521","KeyName":"mykey"}})", ""}},
        {"ECDH_P256", 256, {R"({"kty":"EC-HSM","crv":"P-256","tags": {"AlgID":"ECDH_P256","KeyName":"mykey"}})", ""}},
        {"ECDH_P384", 384, {R"({"kty":"EC-HSM","crv":"P-384","tags": {"AlgID":"ECDH_P384","KeyName":"mykey"}})", ""}},
        {"ECDH_P521", -1, {R"({"kty":"EC-HSM","crv":"P-521","tags": {"AlgID":"ECDH_P521","KeyName":"mykey"}})", ""}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.algId);
        Fresh();
        OwnKey key;
        EXPECT_EQ(1, Create("mykey", row.algId, row.bits, &key));
        EXPECT_EQ("hardware", Requests(row.bodies));
        const std::string body = "KVCCreateKey JSON Body " + row.bodies.hardware + " 10";
        EXPECT_EQ((Strings{"KVCCreateKey 8", "KVCCreateKey Calling KVCLowLevelCreateKey 8", "KVCLowLevelCreateKey 8",
                           body, body}),
                  Trace());
        EXPECT_EQ(Strings{}, LinesUpTo(2));
        EXPECT_EQ(row.algId, Narrow(key.AlgID));
        EXPECT_EQ("mykey", Narrow(key.keyName));
        const json version = StateOf()["keys"][0]["versions"][0];
        EXPECT_EQ(version["version"], Narrow(key.version));
        EXPECT_EQ(version["kty"], Kty(key));
        EXPECT_EQ(json({{"AlgID", row.algId}, {"KeyName", "mykey"}}), version["tags"]);
    }
    // What is no curve name, letter for letter, is taken for RSA, and the size goes out as it is.
    Answer("/create?", 500, "");
    OwnKey key;
    sim.ClearJournal();
    EXPECT_EQ(0, Create("mykey", "ecdsa_p256", -256, &key));
    EXPECT_EQ(
        "hardware",
        Requests({R"({"kty":"RSA-HSM","key_size":"-256","tags": {"AlgID":"ecdsa_p256","KeyName":"mykey"}})", ""}));
    // The fall-back of an RSA key; that of a curve stands below.
    Answer("/create?", 403, "");
    sim.ClearJournal();
    EXPECT_EQ(1, Create("mykey", "RSA", 2048, &key));
    EXPECT_EQ("hardware software", Requests(kRsa));
    EXPECT_EQ("RSA", Kty(key));
}

TEST_F(KeyCreationTest, AnswersOfEveryKind)
{
    const std::vector<Message> messages = {
        {"call", "KVCLowLevelCreateKey REST Call Error", 1},
        {"throttled", "KVCLowLevelCreateKey ActionThrottled", 2},
        {"fallback", "KVCLowLevelCreateKey HSM Key Failed - retry with software key", 2},
        {"failed", "KVCLowLevelCreateKey Failed", 1},
        {"no-json", "KVCParseJSONKey answer is not JSON unexpected character", 1},
    };
    const struct {
        const char* name;
        const char* answers;  // then the vault answers for itself
        const char* requests;
        size_t waits;
        int result;
        const char* lines;
    } rows[] = {
        {"no hardware", "403", "hardware software", 0, 1, "call:403 fallback:403"},
        {"no hardware by 400", "400", "hardware software", 0, 1, "call:400 fallback:400"},
        {"no hardware by 410", "410", "hardware software", 0, 1, "call:410 fallback:410"},
        {"411 is final", "411", "hardware", 0, 0, "call:411 failed:411"},
        {"refused twice", "403 403", "hardware software", 0, 0, "call:403 fallback:403 call:403 failed:403"},
        {"another refusal", "400 404", "hardware software", 0, 0, "call:400 fallback:400 call:404 failed:404"},
        {"a conflict", "409 409", "hardware software", 0, 0, "call:409 fallback:409 call:409 failed:409"},
        {"throttled", "429 429 429 429", "hardware hardware hardware hardware hardware", 4, 1,
         "call:429 throttled:429 call:429 throttled:429 call:429 throttled:429 call:429 "
         "throttled:429"},
        {"throttled to the end", "429 429 429 429 429", "hardware hardware hardware hardware hardware", 5, 0,
         "call:429 throttled:429 call:429 throttled:429 call:429 throttled:429 call:429 "
         "throttled:429 call:429 throttled:429"},
        {"throttled after the fall-back", "403 429 429", "hardware software software software", 2, 1,
         "call:403 fallback:403 call:429 throttled:429 call:429 throttled:429"},
        {"the longest road", "429 429 429 429 403 429", "hardware hardware hardware hardware hardware software", 5, 0,
         "call:429 throttled:429 call:429 throttled:429 call:429 throttled:429 call:429 "
         "throttled:429 call:403 fallback:403 call:429 throttled:429"},
        {"a server error", "500", "hardware", 0, 0, "call:500 failed:500"},
        {"201", "201", "hardware", 0, 0, "failed:201"},
        {"202", "202", "hardware", 0, 0, "failed:202"},
        {"204", "204", "hardware", 0, 0, "failed:204"},
        {"no JSON", "200", "hardware", 0, 1, "no-json"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Fresh();
        AnswerAll("/keys/mykey/create?", row.answers);
        OwnKey key;
        EXPECT_EQ(row.result, Create("mykey", "ECDSA_P256", 256, &key));
        EXPECT_EQ(row.requests, Requests(kCurve));
        EXPECT_EQ(FirstWaits(row.waits), clock.Waits());
        EXPECT_EQ(Lines(row.lines, messages), LinesUpTo(2));
        const bool made = row.result && std::string(row.answers) != "200";
        EXPECT_EQ(made ? 1u : 0u, StateOf()["keys"].size());
        EXPECT_EQ(row.result ? "mykey" : "", Narrow(key.keyName));
    }
    sim.Control("PUT", "/listener", {{"name", "tls"}, {"mode", "down"}});
    root.ClearLog();
    OwnKey key;
    EXPECT_EQ(0, Create("mykey", "RSA", 2048, &key));
    EXPECT_EQ(Lines("call:0 failed:0", messages), LinesUpTo(2));
}

TEST_F(KeyCreationTest, NamesGoOutEncodedInTheTargetAndClearInTheTag)
{
    const std::string coded = "-vBAgAAwBA" + std::string(33, 'z');
    OwnKey key;
    EXPECT_EQ(1, Create("a b", "ECDSA_P256", 256, &key));
    EXPECT_EQ("a b", Narrow(key.clearName));
    EXPECT_EQ("POST /keys/" + coded + "/create?api-version=7.0", sim.VaultRequests().back());
    EXPECT_EQ(R"({"kty":"EC-HSM","crv":"P-256","tags": {"AlgID":"ECDSA_P256","KeyName":"a b"}})", Bodies().back());
    EXPECT_EQ(coded, StateOf()["keys"][0]["name"]);

    // Escaped is what would break the JSON, there or on its way through a code page, which may take a plain quotation
    // mark for a full-width one.
    const std::string quote = "\xEF\xBC\x82";
    for (const std::string& name : {std::string("\"}/\\\t"), std::string("\xC3\xA9"),
                                    "a" + quote + "," + quote + "Injected" + quote + ":" + quote + "b"}) {
        OwnKey named;
        EXPECT_EQ(1, Create(name, "ECDSA_P256", 256, &named));
        EXPECT_EQ(std::string::npos, Bodies().back().find_first_of("\xC3\xE9\xEF"));
        const json tags = json::parse(Bodies().back())["tags"];
        EXPECT_EQ(json({{"AlgID", "ECDSA_P256"}, {"KeyName", name}}), tags);
    }
}

TEST_F(KeyCreationTest, WhatCannotBeAskedSendsNothing)
{
    OwnKey key;
    EXPECT_EQ(0, Create(std::string(43, 'n'), "RSA", 2048, &key));
    EXPECT_EQ(0, KVCCreateKey(call.get(), nullptr, TEXT("RSA"), 2048, &key, 0));
    EXPECT_EQ(0, KVCCreateKey(nullptr, TEXT("k"), TEXT("RSA"), 2048, &key, 0));
    EXPECT_EQ((Strings{"KVCCreateKey KVCConvertClearKeyNameToEncoded Failed 1",
                       "KVCCreateKey Bad (NULL) KVC or Key Name 1", "KVCCreateKey Bad (NULL) KVC or Key Name 1"}),
              LinesUpTo(2));
    // A record that nobody signed in.
    call.reset(KVCBeginCall(client.get()));
    call->certificateMode = certificateMode();
    call->lastStatus = 200;
    EXPECT_EQ(0, Create("mykey", "RSA", 2048, &key));
    EXPECT_TRUE(root.Logged("KVCLowLevelCreateKey Failed Error 0x0", 1));
    EXPECT_EQ(Strings{}, sim.VaultRequests());
}

TEST_F(KeyCreationTest, WithoutMemoryACreationFailsAndNoHalfRequestGoesOut)
{
    SetLogging(0);
    Answer("/create?", 200, "{}", -1);
    int result = 0;
    int failed = 0;
    SweepAllocations(
        [&] {
            OwnKey key;
            result = Create(std::string(42, '"'), "ECDSA_P256", 256, &key);
        },
        [&](bool whole) {
            EXPECT_TRUE(result == 1 || !whole);
            failed += result ? 0 : 1;
        });
    EXPECT_GT(failed, 5);
    EXPECT_EQ(1u, Posts().size()) << json(Posts());
}

}  // namespace

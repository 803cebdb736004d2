#include "keyvault/crypto_op.h"

#include "keyvault/json_text.h"
#include "keyvault/key_lookup.h"
#include "support/guards.h"
#include "tests/common/alloc_fault.h"
#include "tests/keyvault/vault_fixture.h"

using nlohmann::json;

namespace {

constexpr char kVersion[] = "0123456789abcdef0123456789abcdef";

class CryptoOpTest : public VaultTest {
  protected:
    struct Outcome {
        std::string status;
        DWORD length = 0;  // *outputLen
        Bytes output;      // the buffer, cut to length after a success
    };

    // With a buffer of `room` bytes, or without one when it is 0.
    Outcome Run(const char* action, const std::string& key, const std::string& version, const char* alg,
                const Bytes& input, DWORD room = 1024)
    {
        Outcome outcome;
        outcome.output.assign(room, 0xEE);
        outcome.length = room;
        const SECURITY_STATUS status = KVCCryptoOp(
            call.get(), Wide(action).c_str(), Wide(key).c_str(), Wide(version).c_str(), 0, Wide(alg).c_str(),
            input.data(), static_cast<DWORD>(input.size()), room ? outcome.output.data() : nullptr, &outcome.length);
        outcome.status = Hex(status);
        if (status == 0 && room)
            outcome.output.resize(outcome.length);
        return outcome;
    }
    Outcome Sign(const Bytes& digest = Digest(32), DWORD room = 1024)
    {
        return Run("sign", "web01", kVersion, "RS256", digest, room);
    }
    std::string Verify(const std::string& key, const std::string& version, const char* alg, Bytes digest,
                       const Bytes& signature)
    {
        const Bytes before = digest;
        DWORD size = static_cast<DWORD>(digest.size());
        const SECURITY_STATUS status =
            KVCCryptoOp(call.get(), TEXT("verify"), Wide(key).c_str(), Wide(version).c_str(), 1, Wide(alg).c_str(),
                        signature.data(), static_cast<DWORD>(signature.size()), digest.data(), &size);
        EXPECT_EQ(before, digest) << "the digest only goes out";
        EXPECT_EQ(before.size(), size);
        return Hex(status);
    }
    void AnswerValue(const json& value) { Answer("/sign?", 200, {{"value", value}}); }

    // Its Base64 holds "+" and "/".
    static Bytes Digest(size_t size)
    {
        Bytes digest(size, 0xFB);
        digest[0] = 0xFF;
        return digest;
    }
};

constexpr char kDone[] = "0x00000000";
constexpr char kBadSignature[] = "0x80090006";
constexpr char kFail[] = "0x80090020";
constexpr char kInvalid[] = "0x80090027";

TEST_F(CryptoOpTest, TheBufferMayBeMissingTooSmallOrExact)
{
    sim.AddKey(Simulator::kVault, {{"name", "web01"}, {"kty", "RSA"}, {"size", 2048}});
    OwnKey key;
    ASSERT_EQ(1, KVCGetKey(call.get(), TEXT("web01"), &key, 0));
    const std::string version = Narrow(key.version);
    sim.ClearJournal();
    root.ClearLog();
    const Outcome size = Run("sign", "web01", version, "RS256", Digest(32), 0);
    EXPECT_EQ(Strings{"KVCCryptoOp called sign 8"}, LinesUpTo(8));
    EXPECT_EQ(kDone, size.status);
    EXPECT_EQ(256u, size.length);
    EXPECT_EQ(1u, sim.VaultRequests().size()) << "the size is learned by signing";
    EXPECT_EQ(256u, Run("sign", "web01", "", "RS256", Digest(32)).length) << "the current version";
    EXPECT_EQ("POST /keys/web01//sign?api-version=7.0", sim.VaultRequests().back());

    const Outcome small = Run("sign", "web01", version, "RS256", Digest(32), 255);
    EXPECT_EQ(kFail, small.status);
    EXPECT_EQ(256u, small.length);
    EXPECT_EQ(Bytes(255, 0xEE), small.output);
    EXPECT_EQ(kDone, Run("sign", "web01", version, "RS256", Digest(32), 256).status);
    EXPECT_TRUE(LinesUpTo(2).empty());
}

struct AnswerRow {
    const char* name;
    int status;
    json body;
    const char* sign;    // NULL: no answer to a signature
    const char* verify;  // NULL: no answer to a verification
    const char* line;    // of level 1, or NULL
};

TEST_F(CryptoOpTest, FalseIsNoSignature)
{
    Answer("/sign?", 200, {{"value", false}});
    EXPECT_EQ(kFail, Sign().status);
}

TEST_F(CryptoOpTest, AnswersOfEveryKind)
{
    const AnswerRow rows[] = {
        {"true", 200, {{"value", true}}, kDone, kDone, nullptr},
        {"false", 200, {{"value", false}}, nullptr, kBadSignature, nullptr},
        {"no value", 200, {{"kid", "x"}}, kInvalid, kInvalid, nullptr},
        {"null", 200, {{"value", nullptr}}, kInvalid, kInvalid, nullptr},
        {"value deeper", 200, {{"key", {{"value", true}}}}, kInvalid, kInvalid, nullptr},
        {"no JSON", 200, "<html>", kInvalid, kInvalid, "KVCCryptoOp answer is not JSON unexpected character 1"},
        {"empty", 200, "", kInvalid, kInvalid, "KVCCryptoOp answer is not JSON unexpected end of data 1"},
        {"not Base64", 200, {{"value", "*"}}, kFail, nullptr, nullptr},
        {"over the decoder's limit", 200, {{"value", std::string(4096, 'A')}}, kFail, nullptr, nullptr},
        {"201", 201, {{"value", true}}, kFail, kFail, "KVCCryptoOp Failed Error 0xc9 1"},
        {"204", 204, "", kFail, kFail, "KVCCryptoOp Failed Error 0xcc 1"},
        {"400", 400, {{"value", true}}, kFail, kFail, "KVCCryptoOp KVCDoKVRESTCall Error Error 0x190 1"},
        {"403", 403, ReadServiceSample("error-403-key-operation-forbidden"), kFail, kFail,
         "KVCCryptoOp KVCDoKVRESTCall Error Error 0x193 1"},
        {"503", 503, "", kFail, kFail, "KVCCryptoOp KVCDoKVRESTCall Error Error 0x1f7 1"},
    };
    for (const AnswerRow& row : rows) {
        SCOPED_TRACE(row.name);
        const Strings lines = row.line ? Strings{row.line} : Strings{};
        if (row.sign) {
            root.ClearLog();
            Answer("/sign?", row.status, row.body);
            EXPECT_EQ(row.sign, Sign().status);
            EXPECT_EQ(lines, LinesUpTo(2));
        }
        if (!row.verify)
            continue;
        root.ClearLog();
        Answer("/verify?", row.status, row.body);
        EXPECT_EQ(row.verify, Verify("web01", kVersion, "RS256", Digest(32), Digest(256)));
        EXPECT_EQ(lines, LinesUpTo(2));
    }
}

TEST_F(CryptoOpTest, ValuesOfBothAlphabetsDecode)
{
    for (size_t size = 1; size < 9; size++) {
        const Bytes bytes = Digest(size);
        for (const std::string& text : {Base64Url(bytes), Base64(bytes)}) {
            AnswerValue(text);
            EXPECT_EQ(bytes, Sign().output) << text;
        }
    }
    for (const char* file : {"rsa-sign", "ec-p521-sign"}) {
        const std::string body = ReadServiceSample(file);
        Answer("/sign?", 200, body);
        EXPECT_EQ(json::parse(body)["value"], Base64Url(Sign().output)) << file;
    }
}

TEST_F(CryptoOpTest, AThrottledOperationIsRepeatedFiveTimesAtMost)
{
    for (const int throttled : {4, 5}) {
        SCOPED_TRACE(throttled);
        sim.Control("DELETE", "/faults");
        Throttle("/sign?", throttled);
        AnswerValue("AQID");
        sim.ClearJournal();
        clock.ClearWaits();
        root.ClearLog();
        const Outcome outcome = Sign();
        EXPECT_EQ(throttled < 5 ? kDone : kFail, outcome.status);
        const Waits waits = {1000, 2000, 4000, 8000, 16000};
        EXPECT_EQ(Waits(waits.begin(), waits.begin() + throttled), clock.Waits());

        const size_t attempts = static_cast<size_t>(throttled < 5 ? throttled + 1 : 5);
        EXPECT_EQ(Strings(attempts, "{\"alg\":\"RS256\",\"value\":\"" + Base64(Digest(32)) + "\"}"), Bodies());
        Strings lines(static_cast<size_t>(throttled), "KVCCryptoOp ActionThrottled Error 0x1ad 2");
        if (throttled == 5)
            lines.push_back("KVCCryptoOp KVCDoKVRESTCall Error Error 0x1ad 1");
        EXPECT_EQ(lines, LinesUpTo(2));
    }
}

TEST_F(CryptoOpTest, WithoutAnAnswerTheOperationFails)
{
    sim.Control("PUT", "/listener", {{"name", "tls"}, {"mode", "down"}});
    EXPECT_EQ(kFail, Sign().status);
    EXPECT_TRUE(root.Logged("KVCCryptoOp KVCDoKVRESTCall Error Error 0x0", 1));

    // A status that an operation before left behind is not taken for the answer of one that could not be sent.
    call.reset(KVCBeginCall(client.get()));
    call->lastStatus = 429;
    clock.ClearWaits();
    EXPECT_EQ(kFail, Sign().status);
    EXPECT_TRUE(clock.Waits().empty());
    EXPECT_EQ(0u, LinesWith("ActionThrottled"));

    // The name is tested first.
    for (KVC* kvc : {static_cast<KVC*>(call.get()), static_cast<KVC*>(nullptr)})
        EXPECT_EQ(NTE_INVALID_PARAMETER,
                  KVCCryptoOp(kvc, TEXT("sign"), nullptr, TEXT("v"), 0, TEXT("RS256"), nullptr, 0, nullptr, nullptr));
    EXPECT_EQ(2u, LinesWith("KVCCryptoOp NULL Key Name 1"));
}

TEST_F(CryptoOpTest, WithoutMemoryNoHalfRequestGoesOut)
{
    SetLogging(0);
    Bytes digest = Digest(32);
    const Bytes signature = Digest(512);  // more than the first block of the text holds
    Answer("/verify?", 200, {{"value", true}}, -1);
    SECURITY_STATUS status = 0;
    SweepAllocations(
        [&] {
            DWORD size = 32;
            status = KVCCryptoOp(call.get(), TEXT("verify"), TEXT("web01"), TEXT("v"), 1, TEXT("RS256"),
                                 signature.data(), 512, digest.data(), &size);
        },
        [&](bool whole) { EXPECT_TRUE(status == 0 || (!whole && status == NTE_FAIL)) << Hex(status); });
    EXPECT_EQ(1u, Posts().size()) << json(Posts());
}

TEST(JsonTextTest, WhatWouldBreakTheJsonInAnyCodePageIsEscaped)
{
    const std::string values[] = {"",
                                  "CN=web01",
                                  "O=\"Acme, Inc.\"",
                                  "a\\b",
                                  "line\nline\t\x01\x1F",
                                  "\xC3\xA9/\x7F",
                                  "\xEF\xBC\x82\xEF\xBC\xBC\xC2\x80",
                                  "\xF0\x9D\x84\x9E"};
    for (const std::string& value : values) {
        SCOPED_TRACE(value);
        const BldStrPtr text(BldStrNewStr(TEXT("{\"v\":\"")));
        ASSERT_EQ(1, BldStrCatJson(text.get(), Wide(value).c_str()));
        ASSERT_EQ(1, BldStrCat(text.get(), TEXT("\"}")));
        for (const WCHAR ch : TextString(text->cStr))
            EXPECT_LT(ch, 0x80);
        const json parsed = json::parse(Narrow(text->cStr), nullptr, false);
        ASSERT_FALSE(parsed.is_discarded()) << Narrow(text->cStr);
        EXPECT_EQ(value, parsed["v"].get<std::string>());
    }
    const BldStrPtr text(BldStrNewStr(TEXT("x")));
    {
        const AllocFault fault(0);
        EXPECT_EQ(0, BldStrCatJson(text.get(), TEXT("\"")));
    }
    EXPECT_EQ("x", Narrow(text->cStr));
    EXPECT_EQ(1, BldStrCatJson(text.get(), TEXT("a\"\\\r\uFF02")));
    EXPECT_EQ("xa\\\"\\\\\\u000d\\uff02", Narrow(text->cStr));
}

}  // namespace

// The vault's cryptographic operations.
#include "keyvault/crypto_op.h"

#include "keyvault/key_lookup.h"
#include "tests/keyvault/client_fixture.h"

using nlohmann::json;

namespace {

class CryptoOpTest : public VaultTest {
  protected:
    struct Signature {
        SECURITY_STATUS status;
        DWORD length;
        Bytes bytes;  // the buffer, cut to length after a success
    };
    // With a buffer of `room` bytes, or without one if it's 0.
    Signature Sign(const Bytes& digest = Digest(32), DWORD room = 1024, const std::string& version = "v")
    {
        Signature signature = {0, room, Bytes(room, 0xEE)};
        signature.status =
            KVCCryptoOp(call.get(), TEXT("sign"), TEXT("web01"), Wide(version).c_str(), 0, TEXT("ES256"), digest.data(),
                        static_cast<DWORD>(digest.size()), room ? signature.bytes.data() : nullptr, &signature.length);
        if (signature.status == 0 && room)
            signature.bytes.resize(signature.length);
        return signature;
    }
    SECURITY_STATUS Verify()
    {
        const Bytes before = Digest(32);
        Bytes digest = before;
        DWORD size = 32;
        const Bytes signature = Digest(256);
        const SECURITY_STATUS status = KVCCryptoOp(call.get(), TEXT("verify"), TEXT("web01"), TEXT("v"), 1,
                                                   TEXT("ES256"), signature.data(), 256, digest.data(), &size);
        EXPECT_EQ(before, digest) << "the digest is input";
        EXPECT_EQ(32u, size);
        return status;
    }
    // Its Base64 has "+" and "/".
    static Bytes Digest(size_t size)
    {
        Bytes digest(size, 0xFB);
        digest[0] = 0xFF;
        return digest;
    }
};

TEST_F(CryptoOpTest, TheBufferMayBeMissingTooSmallOrExact)
{
    sim.AddKey(Simulator::kVault, {{"name", "web01"}, {"kty", "EC"}, {"crv", "P-256"}});
    OwnKey key;
    ASSERT_EQ(1, KVCGetKey(call.get(), TEXT("web01"), &key, 0));
    const std::string version = Narrow(key.version);
    sim.ClearJournal();
    for (const auto& [room, status] : {std::pair<DWORD, SECURITY_STATUS>{0, 0}, {63, NTE_FAIL}, {64, 0}}) {
        const Signature signature = Sign(Digest(32), room, version);
        EXPECT_EQ(Hex(status), Hex(signature.status));
        EXPECT_EQ(64u, signature.length);
        EXPECT_EQ(status != 0, signature.bytes == Bytes(63, 0xEE));
        EXPECT_EQ("POST /keys/web01/" + version + "/sign?api-version=7.0", sim.VaultRequests().back());
    }
    EXPECT_EQ(64u, Sign(Digest(32), 1024, "").length) << "the current version";
    EXPECT_EQ("POST /keys/web01//sign?api-version=7.0", sim.VaultRequests().back());
    EXPECT_EQ(4u, sim.VaultRequests().size()) << "asking for the size signs";
    EXPECT_EQ(R"({"alg":"ES256","value":")" + Base64(Digest(32)) + "\"}", sim.Journal().back()["body"]);
}

TEST_F(CryptoOpTest, Answers)
{
    constexpr SECURITY_STATUS kNotAsked = 1;
    const Row<const char*, json, SECURITY_STATUS, SECURITY_STATUS> rows[] = {
        {"true", {{"value", true}}, 0, 0},
        {"false", {{"value", false}}, kNotAsked, NTE_BAD_SIGNATURE},
        {"no value", {{"kid", "x"}}, NTE_INVALID_PARAMETER, NTE_INVALID_PARAMETER},
        {"null", {{"value", nullptr}}, NTE_INVALID_PARAMETER, NTE_INVALID_PARAMETER},
        {"value deeper", {{"key", {{"value", true}}}}, NTE_INVALID_PARAMETER, NTE_INVALID_PARAMETER},
        {"not JSON", "<html>", NTE_INVALID_PARAMETER, NTE_INVALID_PARAMETER},
        {"empty", "", NTE_INVALID_PARAMETER, NTE_INVALID_PARAMETER},
        {"not Base64", {{"value", "*"}}, NTE_FAIL, kNotAsked},
        {"over the decoder's limit", {{"value", std::string(4096, 'A')}}, NTE_FAIL, kNotAsked},
    };
    for (const auto& [name, body, sign, verify] : rows) {
        SCOPED_TRACE(name);
        if (sign != kNotAsked) {
            Answer("/sign?", 200, body);
            EXPECT_EQ(Hex(sign), Hex(Sign().status));
        }
        if (verify != kNotAsked) {
            Answer("/verify?", 200, body);
            EXPECT_EQ(Hex(verify), Hex(Verify()));
        }
    }
    const std::string body = ReadServiceSample("ec-p521-sign");
    Answer("/sign?", 200, body);
    EXPECT_EQ(json::parse(body)["value"], Base64Url(Sign().bytes));
    for (KVC* kvc : {call.get(), static_cast<KVC*>(nullptr)}) {
        for (const WCHAR* name : {TEXT("web01"), static_cast<const WCHAR*>(nullptr)})
            EXPECT_EQ(NTE_INVALID_PARAMETER,
                      KVCCryptoOp(kvc, TEXT("sign"), name, TEXT("v"), 0, TEXT("ES256"), nullptr, 0, nullptr, nullptr));
    }
}

}  // namespace

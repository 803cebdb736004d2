// The vault's cryptographic operations.
#include "keyvault/crypto_op.h"

#include "tests/keyvault/client_fixture.h"

namespace {

// Its Base64 has "+" and "/".
const Bytes kDigest(32, 0xFB);

class CryptoOpTest : public VaultTest {
  protected:
    SECURITY_STATUS Sign(Bytes* signature)
    {
        DWORD size = 1024;
        signature->assign(size, 0xEE);
        const SECURITY_STATUS status = KVCCryptoOp(call.get(), TEXT("sign"), TEXT("web01"), TEXT("v"), 0, TEXT("ES256"),
                                                   kDigest.data(), 32, signature->data(), &size);
        signature->resize(size);
        return status;
    }
    SECURITY_STATUS Verify()
    {
        Bytes digest = kDigest;
        DWORD size = 32;
        const SECURITY_STATUS status = KVCCryptoOp(call.get(), TEXT("verify"), TEXT("web01"), TEXT("v"), 1,
                                                   TEXT("ES256"), Bytes(256).data(), 256, digest.data(), &size);
        EXPECT_EQ(kDigest, digest) << "the digest is input";
        EXPECT_EQ(32u, size);
        return status;
    }
};

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
    Bytes signature;
    for (const auto& [name, body, sign, verify] : rows) {
        SCOPED_TRACE(name);
        if (sign != kNotAsked) {
            Answer("/sign?", 200, body);
            EXPECT_EQ(Hex(sign), Hex(Sign(&signature)));
        }
        if (verify != kNotAsked) {
            Answer("/verify?", 200, body);
            EXPECT_EQ(Hex(verify), Hex(Verify()));
        }
    }
    const std::string body = ReadServiceSample("ec-p521-sign");
    Answer("/sign?", 200, body);
    EXPECT_EQ(0, Sign(&signature));
    EXPECT_EQ(json::parse(body)["value"], Base64Url(signature));
    EXPECT_EQ(R"({"alg":"ES256","value":")" + Base64(kDigest) + "\"}", sim.Journal().back()["body"]);
    for (KVC* kvc : {call.get(), static_cast<KVC*>(nullptr)}) {
        for (const WCHAR* name : {TEXT("web01"), static_cast<const WCHAR*>(nullptr)})
            EXPECT_EQ(NTE_INVALID_PARAMETER,
                      KVCCryptoOp(kvc, TEXT("sign"), name, TEXT("v"), 0, TEXT("ES256"), nullptr, 0, nullptr, nullptr));
    }
}

}  // namespace

// Signatures with OpenSSL as the second opinion.
#include "tests/kelvaroctl/ctl_fixture.h"
#include "tests/kelvaroctl/openssl_key.h"

namespace {

using nlohmann::json;

class SignTest : public CtlTest {
  protected:
    void SetUp() override
    {
        CtlTest::SetUp();
        sim.AddKey(Simulator::kVault, {{"name", "rsa"}, {"kty", "RSA"}, {"size", 2048}});
        for (const char* curve : {"P-256", "P-384", "P-521"})
            sim.AddKey(Simulator::kVault, {{"name", curve}, {"kty", "EC"}, {"crv", curve}});
        WriteFile("data", data);
    }

    Ran Sign(const std::string& key, const std::string& algorithm, const std::vector<std::string>& more = {})
    {
        std::vector<std::string> arguments = {"sign", "--key",      key,     "--alg",          algorithm,
                                              "--in", File("data"), "--out", File("signature")};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return Ctl(arguments);
    }
    Ran Verify(const std::string& key, const std::string& algorithm, const std::vector<std::string>& more = {})
    {
        std::vector<std::string> arguments = {"verify", "--key",      key,           "--alg",          algorithm,
                                              "--in",   File("data"), "--signature", File("signature")};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return Ctl(arguments);
    }

    // More than one piece of the hasher's reading.
    const std::string data = std::string(70000, 'd') + "end";
};

struct Row {
    const char* algorithm;
    const char* key;
    const char* hash;
    bool pss;
    bool der;
    size_t size;  // 0: varies
};

constexpr Row kRows[] = {
    {"RS256", "rsa", "SHA256", false, false, 256},   {"RS384", "rsa", "SHA384", false, false, 256},
    {"RS512", "rsa", "SHA512", false, false, 256},   {"PS256", "rsa", "SHA256", true, false, 256},
    {"PS384", "rsa", "SHA384", true, false, 256},    {"PS512", "rsa", "SHA512", true, false, 256},
    {"RSNULL", "rsa", "SHA1", false, false, 256},    {"ES256", "P-256", "SHA256", false, true, 0},
    {"ES384", "P-384", "SHA384", false, true, 0},    {"ES512", "P-521", "SHA512", false, true, 0},
    {"ES256", "P-256", "SHA256", false, false, 64},  {"ES384", "P-384", "SHA384", false, false, 96},
    {"es512", "P-521", "SHA512", false, false, 132},
};

TEST_F(SignTest, EveryAlgorithm)
{
    for (const Row& row : kRows) {
        SCOPED_TRACE(std::string(row.algorithm) + (row.der ? " der" : ""));
        const std::vector<std::string> form = row.der ? std::vector<std::string>{"--der"} : std::vector<std::string>{};
        const Ran signedRun = Sign(row.key, row.algorithm, form);
        ASSERT_EQ(0, signedRun.exit) << signedRun.err;
        std::string signature = ReadFile(File("signature"));
        if (row.size) {
            EXPECT_EQ(row.size, signature.size());
        }
        if (row.key == std::string("rsa") || row.der) {
            const OpensslKey key(sim.PublicKeyPem(Simulator::kVault, row.key));
            EXPECT_TRUE(key.Verifies(data, signature, row.hash, row.pss));
        }
        const Ran good = Verify(row.key, row.algorithm, form);
        EXPECT_EQ(0, good.exit) << good.err;
        EXPECT_EQ("good signature\n", good.out);
        signature[signature.size() - 1] = static_cast<char>(signature[signature.size() - 1] ^ 1);
        WriteFile("signature", signature);
        EXPECT_EQ(1, Verify(row.key, row.algorithm, form).exit);
    }
}

TEST_F(SignTest, ADigestInPlaceOfTheData)
{
    ASSERT_EQ(0, Sign("rsa", "RS384").exit);
    const std::string ofData = ReadFile(File("signature"));
    WriteFile("data", HexDigest(data, "SHA384") + "\n");
    ASSERT_EQ(0, Sign("rsa", "RS384", {"--digest-hex"}).exit);
    // PKCS#1 signatures are always the same.
    EXPECT_EQ(ofData, ReadFile(File("signature")));
    EXPECT_EQ(0, Verify("rsa", "RS384", {"--digest-hex"}).exit);
    EXPECT_EQ(2, Sign("rsa", "RS256", {"--digest-hex"}).exit);
    WriteFile("data", "no digest");
    EXPECT_EQ(2, Sign("rsa", "RS384", {"--digest-hex"}).exit);
}

TEST_F(SignTest, WithoutAFileTheSignatureIsPrinted)
{
    ASSERT_EQ(0, Sign("rsa", "RS256").exit);
    const json answer = CtlJson({"sign", "--key", "rsa", "--alg", "RS256", "--in", File("data")});
    EXPECT_EQ(HexDigest(data, "SHA256"), answer["digest"]);
    const std::string printed = Out({"sign", "--key", "rsa", "--alg", "RS256", "--in", File("data")});
    EXPECT_EQ(answer["signature"].get<std::string>() + "\n", printed);
    EXPECT_EQ(345u, printed.size());
}

TEST_F(SignTest, WhatCannotBeASignatureIsABadOne)
{
    ASSERT_EQ(0, Sign("P-256", "ES256").exit);
    sim.ClearJournal();
    const json raw = CtlJson(
        {"verify", "--key", "P-256", "--alg", "ES256", "--in", File("data"), "--signature", File("signature"), "--der"},
        1);
    EXPECT_EQ(false, raw["valid"]);
    EXPECT_EQ("it is no signature in DER", raw["reason"]);
    WriteFile("signature", std::string(63, 's'));
    EXPECT_NE(std::string::npos, Verify("P-256", "ES256").out.find("63 bytes, and this key's have 64"));
    // The vault was only asked for the key.
    for (const std::string& request : sim.VaultRequests())
        EXPECT_EQ("GET", request.substr(0, 3)) << request;
}

TEST_F(SignTest, WhatTheVaultWouldRefuseIsNotSentThere)
{
    const struct {
        const char* key;
        const char* algorithm;
        std::vector<std::string> more;
        const char* message;
    } rows[] = {
        {"P-256", "RS256", {}, "RS256 needs a key of RSA, and 'P-256' is P-256"},
        {"rsa", "ES256", {}, "ES256 needs a key of P-256, and 'rsa' is RSA 2048"},
        {"P-521", "ES384", {}, "ES384 needs a key of P-384"},
        {"rsa", "HS256", {}, "no signature algorithm 'HS256'"},
        {"rsa", "RS256", {"--der"}, "--der is for ES256"},
    };
    for (const auto& row : rows) {
        const Ran ran = Sign(row.key, row.algorithm, row.more);
        EXPECT_EQ(2, ran.exit) << row.message;
        EXPECT_NE(std::string::npos, ran.err.find(row.message)) << ran.err;
    }
    EXPECT_EQ(2, Ctl({"sign", "--key", "rsa", "--alg", "RS256", "--in", File("missing")}).exit);
    EXPECT_EQ(2, Ctl({"sign", "--key", "rsa", "--alg", "RS256", "--in", File("data"), "--out", "/nowhere/s"}).exit);
}

}  // namespace

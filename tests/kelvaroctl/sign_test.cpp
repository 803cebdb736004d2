// Signatures, with another verifier as the second opinion.
#include "tests/common/independent_key.h"
#include "tests/kelvaroctl/ctl_fixture.h"

namespace {

using nlohmann::json;

class SignBase : public CtlTest {
  protected:
    void SetUp() override
    {
        CtlTest::SetUp();
        WriteFile("data", data);
    }
    // "rsa", or the name of a curve.
    void AddKey(const std::string& name)
    {
        sim.AddKey(Simulator::kVault, name == "rsa" ? json{{"name", name}, {"kty", "RSA"}, {"size", 2048}}
                                                    : json{{"name", name}, {"kty", "EC"}, {"crv", name}});
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

class SignTest : public SignBase {
  protected:
    void SetUp() override
    {
        SignBase::SetUp();
        for (const char* key : {"rsa", "P-256", "P-521"})
            AddKey(key);
    }
};

struct Row {
    const char* algorithm;
    const char* key;
    const char* hash;
    SignatureForm form;
    size_t size;  // 0: varies
};

class SignatureTest : public SignBase, public testing::WithParamInterface<Row> {};

TEST_P(SignatureTest, IsAcceptedByOthersAndByTheVault)
{
    const Row& row = GetParam();
    AddKey(row.key);
    const std::vector<std::string> form(row.form == SignatureForm::Der ? 1 : 0, "--der");
    const IndependentKey key(sim.PublicKeyPem(Simulator::kVault, row.key));
    std::string signature;
    do {
        const Ran signedRun = Sign(row.key, row.algorithm, form);
        ASSERT_EQ(0, signedRun.exit) << signedRun.err;
        signature = ReadFile(File("signature"));
    } while (!key.CanTellOf(signature, row.form));
    if (row.size) {
        EXPECT_EQ(row.size, signature.size());
    }
    const Ran good = Verify(row.key, row.algorithm, form);
    EXPECT_EQ(0, good.exit) << good.err;
    EXPECT_EQ("good signature\n", good.out);
    EXPECT_TRUE(key.Verifies(Digest(data, row.hash), signature, row.hash, row.form));
    signature[signature.size() - 1] = static_cast<char>(signature[signature.size() - 1] ^ 1);
    WriteFile("signature", signature);
    EXPECT_EQ(1, Verify(row.key, row.algorithm, form).exit);
}

INSTANTIATE_TEST_SUITE_P(Each, SignatureTest,
                         testing::Values(Row{"RS256", "rsa", "SHA256", SignatureForm::Plain, 256},
                                         Row{"RS384", "rsa", "SHA384", SignatureForm::Plain, 256},
                                         Row{"RS512", "rsa", "SHA512", SignatureForm::Plain, 256},
                                         Row{"RSNULL", "rsa", "SHA1", SignatureForm::Plain, 256},
                                         Row{"PS256", "rsa", "SHA256", SignatureForm::Pss, 256},
                                         Row{"PS384", "rsa", "SHA384", SignatureForm::Pss, 256},
                                         Row{"PS512", "rsa", "SHA512", SignatureForm::Pss, 256},
                                         Row{"ES256", "P-256", "SHA256", SignatureForm::Der, 0},
                                         Row{"ES384", "P-384", "SHA384", SignatureForm::Der, 0},
                                         Row{"ES512", "P-521", "SHA512", SignatureForm::Der, 0},
                                         Row{"ES256", "P-256", "SHA256", SignatureForm::Plain, 64},
                                         Row{"ES384", "P-384", "SHA384", SignatureForm::Plain, 96},
                                         Row{"es512", "P-521", "SHA512", SignatureForm::Plain, 132}),
                         [](const testing::TestParamInfo<Row>& row) {
                             return row.param.algorithm +
                                    std::string(row.param.form == SignatureForm::Der ? "der" : "");
                         });

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
    WriteFile("signature", printed);
    EXPECT_EQ("good signature\n", Verify("rsa", "RS256").out);
    ASSERT_EQ(0, Sign("P-521", "ES512", {"--der"}).exit);
    EXPECT_EQ("good signature\n", Verify("P-521", "ES512").out);
}

TEST_F(SignTest, WhatCannotBeASignatureIsABadOne)
{
    ASSERT_EQ(0, Sign("P-256", "ES256").exit);
    sim.ClearJournal();
    const json raw = CtlJson(
        {"verify", "--key", "P-256", "--alg", "ES256", "--in", File("data"), "--signature", File("signature"), "--der"},
        1);
    EXPECT_EQ(false, raw["valid"]);
    EXPECT_EQ("it is not a DER signature", raw["reason"]);
    WriteFile("signature", std::string(63, 's'));
    EXPECT_NE(std::string::npos, Verify("P-256", "ES256").out.find("63 bytes; this key's have 64"));
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
        {"rsa", "HS256", {}, "unknown signature algorithm: 'HS256'"},
        {"rsa", "RS256", {"--der"}, "--der is for ES256"},
    };
    for (const auto& row : rows) {
        const Ran ran = Sign(row.key, row.algorithm, row.more);
        EXPECT_EQ(2, ran.exit) << row.message;
        EXPECT_NE(std::string::npos, ran.err.find(row.message)) << ran.err;
    }
}

TEST_F(SignTest, FilesAreTriedBeforeTheVaultIsAsked)
{
    const struct {
        const char* in;
        std::string out;
        const char* message;
    } rows[] = {
        {"missing", File("signature"), "missing: No such file"},
        {"data", "/nowhere/s", "cannot write /nowhere/s: No such file"},
        {"data", File("data"), "the same file"},
    };
    for (const auto& row : rows) {
        const Ran ran = Ctl({"sign", "--key", "rsa", "--alg", "RS256", "--in", File(row.in), "--out", row.out});
        EXPECT_EQ(2, ran.exit);
        EXPECT_NE(std::string::npos, ran.err.find(row.message)) << ran.err;
    }
    EXPECT_EQ(data, ReadFile(File("data")));
    EXPECT_TRUE(sim.VaultRequests().empty());
    // What a command that fails would have replaced is still there.
    WriteFile("signature", "before");
    sim.Fault({{"path", "/sign"}, {"action", "status"}, {"status", 403}});
    EXPECT_EQ(6, Sign("rsa", "RS256").exit);
    EXPECT_EQ("before", ReadFile(File("signature")));
}

}  // namespace

// Signatures, with another verifier as the second opinion.
#include "tests/common/independent_key.h"
#include "tests/kelvaroctl/ctl_fixture.h"

namespace {

using nlohmann::json;

struct Row {
    const char* algorithm;
    const char* key;
    const char* hash;
    SignatureForm form;
    size_t size;  // 0: varies
};

class SignTest : public CtlTest {
  protected:
    void SetUp() override
    {
        CtlTest::SetUp();
        WriteFile("data", data);
        AddKey("rsa", "RSA");
        for (const char* curve : {"P-256", "P-384", "P-521"})
            AddKey(curve, curve);
    }

    void Check(const std::vector<Row>& rows)
    {
        for (const Row& row : rows) {
            SCOPED_TRACE(row.algorithm);
            const std::string what = std::string(" --key ") + row.key + " --alg " + row.algorithm +
                                     (row.form == SignatureForm::Der ? " --der --in @data " : " --in @data ");
            const IndependentKey key(sim.PublicKeyPem(Simulator::kVault, row.key));
            std::string signature;
            do {
                Run("0 sign" + what + "--out @signature | bytes");
                signature = ReadFile(File("signature"));
            } while (!key.CanTellOf(signature, row.form));
            if (row.size) {
                EXPECT_EQ(row.size, signature.size());
            }
            Run("0 verify" + what + "--signature @signature | good signature\n");
            EXPECT_TRUE(key.Verifies(Digest(data, row.hash), signature, row.hash, row.form));
            signature[signature.size() - 1] = static_cast<char>(signature[signature.size() - 1] ^ 1);
            WriteFile("signature", signature);
            Run("1 verify" + what + "--signature @signature | bad signature");
        }
    }

    // More than one piece of the hasher's reading.
    const std::string data = std::string(70000, 'd') + "end";
};

TEST_F(SignTest, SignaturesAreAcceptedByOthersAndByTheVault)
{
    Check({{"RS256", "rsa", "SHA256", SignatureForm::Plain, 256},
           {"RS384", "rsa", "SHA384", SignatureForm::Plain, 256},
           {"RS512", "rsa", "SHA512", SignatureForm::Plain, 256},
           {"RSNULL", "rsa", "SHA1", SignatureForm::Plain, 256},
           {"PS256", "rsa", "SHA256", SignatureForm::Pss, 256},
           {"PS384", "rsa", "SHA384", SignatureForm::Pss, 256},
           {"PS512", "rsa", "SHA512", SignatureForm::Pss, 256},
           {"ES256", "P-256", "SHA256", SignatureForm::Der, 0},
           {"ES384", "P-384", "SHA384", SignatureForm::Der, 0},
           {"ES256", "P-256", "SHA256", SignatureForm::Plain, 64},
           {"ES384", "P-384", "SHA384", SignatureForm::Plain, 96}});
}

TEST_F(SignTest, SignaturesOnP521)
{
    Check(
        {{"ES512", "P-521", "SHA512", SignatureForm::Der, 0}, {"es512", "P-521", "SHA512", SignatureForm::Plain, 132}});
}

TEST_F(SignTest, DigestsStandardInputAndPrintedSignatures)
{
    const std::vector<std::string> sign = {"sign", "--key", "rsa", "--alg", "RS256", "--in"};
    const auto with = [&](std::vector<std::string> more) {
        more.insert(more.begin(), sign.begin(), sign.end());
        return more;
    };
    const json answer = CtlJson(with({File("data")}));
    EXPECT_EQ(HexDigest(data, "SHA256"), answer["digest"]);
    // PKCS#1 signatures are always the same.
    const std::string printed = answer["signature"].get<std::string>() + "\n";
    EXPECT_EQ(345u, printed.size());
    EXPECT_EQ(printed, Out(with({File("data")})));
    EXPECT_EQ(printed, Ctl(with({"-"}), data).out);
    EXPECT_EQ(printed, Ctl(with({"-", "--digest-hex"}), HexDigest(data, "SHA256") + "\n").out);
    WriteFile("printed", printed);
    WriteFile("short", std::string(63, 's'));
    Run(R"(
0 verify --key rsa --alg RS256 --in @data --signature @printed | good signature
0 sign --key P-521 --alg ES512 --in @data --out @der --der
0 verify --key P-521 --alg ES512 --in @data --signature @der | good signature
0 sign --key P-256 --alg ES256 --in @data --out @raw
)");
    sim.ClearJournal();
    Run(R"(
1 verify --key P-256 --alg ES256 --in @data --signature @raw --der | it is not a DER signature
1 verify --key P-256 --alg ES256 --in @data --signature @short | 63 bytes; this key's have 64
)");
    // The vault was only asked for the key.
    for (const std::string& request : sim.VaultRequests())
        EXPECT_EQ("GET", request.substr(0, 3)) << request;
}

}  // namespace

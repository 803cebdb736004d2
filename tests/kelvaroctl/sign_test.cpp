// Signatures, with another verifier as the second opinion.
#include "tests/common/independent_key.h"
#include "tests/kelvaroctl/ctl_fixture.h"

namespace {

constexpr SignatureForm kPlain = SignatureForm::Plain;
constexpr SignatureForm kDer = SignatureForm::Der;

class SignTest : public CtlTest {
  protected:
    void SetUp() override
    {
        CtlTest::SetUp();
        WriteFile("data", data);
        for (const char* curve : {"P-256", "P-384", "P-521"})
            AddKey(curve, curve);
    }

    // size: of the signature; 0 if it varies
    void Check(const std::string& algorithm, const std::string& keyName, const std::string& hash, SignatureForm form,
               size_t size)
    {
        SCOPED_TRACE(algorithm);
        const std::string what =
            " --key " + keyName + " --alg " + algorithm + (form == kDer ? " --der" : "") + " --in @data ";
        const IndependentKey key(sim.PublicKeyPem(Simulator::kVault, keyName));
        std::string signature;
        do {
            Run("0 sign" + what + "--out @signature | bytes");
            signature = ReadFile(File("signature"));
        } while (!key.CanTellOf(signature, form));
        EXPECT_EQ(size ? size : signature.size(), signature.size());
        Run("0 verify" + what + "--signature @signature | good signature\n");
        EXPECT_TRUE(key.Verifies(Digest(data, hash), signature, hash, form));
        signature.back() = static_cast<char>(signature.back() ^ 1);
        WriteFile("signature", signature);
        Run("1 verify" + what + "--signature @signature | bad signature");
    }

    // More than one piece of the hasher's reading.
    const std::string data = std::string(70000, 'd') + "end";
};

TEST_F(SignTest, SignaturesAreAcceptedByOthersAndByTheVault)
{
    AddKey("rsa", "RSA");
    for (const std::string bits : {"256", "384", "512"}) {
        Check("RS" + bits, "rsa", "SHA" + bits, kPlain, 256);
        Check("PS" + bits, "rsa", "SHA" + bits, SignatureForm::Pss, 256);
    }
    Check("RSNULL", "rsa", "SHA1", kPlain, 256);
    for (const std::string bits : {"256", "384"}) {
        Check("ES" + bits, "P-" + bits, "SHA" + bits, kDer, 0);
        Check("ES" + bits, "P-" + bits, "SHA" + bits, kPlain, std::stoul(bits) / 4);
    }
}

TEST_F(SignTest, SignaturesOnP521)
{
    Check("ES512", "P-521", "SHA512", kDer, 0);
    Check("es512", "P-521", "SHA512", kPlain, 132);
}

TEST_F(SignTest, DigestsStandardInputAndPrintedSignatures)
{
    AddKey("rsa", "RSA");
    const std::string digest = HexDigest(data, "SHA256");
    const std::string printed = Out({"sign", "--key", "rsa", "--alg", "RS256", "--in", File("data")});
    EXPECT_EQ(345u, printed.size());
    WriteFile("printed", printed);
    WriteFile("short", std::string(63, 's'));
    EXPECT_EQ(printed, Ctl({"sign", "--key", "rsa", "--alg", "RS256", "--in", "-"}, data).out);
    // PKCS#1 signatures are always the same.
    Run("0 sign --key rsa --alg RS256 --in @data --json | " + digest + " .. " + printed.substr(0, 344) + "\n< " +
        digest + "\n0 sign --key rsa --alg RS256 --in - --digest-hex | " + printed);
    const Ran tooLarge =
        Ctl({"sign", "--key", "rsa", "--alg", "RS256", "--in", "-", "--digest-hex"}, std::string(4097, 'a'));
    EXPECT_NE(std::string::npos, tooLarge.err.find("standard input is larger than 4096 bytes")) << tooLarge.err;
    RunSection();
    sim.ClearJournal();
    RunSection(2);
    // The vault was only asked for the key.
    for (const std::string& request : sim.VaultRequests())
        EXPECT_EQ("GET", request.substr(0, 3)) << request;
}

}  // namespace

// Signatures, which the simulator makes and verifies.
#include "tests/kelvaroctl/ctl_fixture.h"

namespace {

class SignTest : public CtlTest {
  protected:
    void SetUp() override
    {
        CtlTest::SetUp();
        WriteFile("data", data);
        for (const char* curve : {"P-256", "P-384", "P-521"})
            AddKey(curve, curve);
    }

    // size: of the signature; 0 for the form whose size varies
    void Check(const std::string& algorithm, const std::string& keyName, const std::string& digest, size_t size)
    {
        SCOPED_TRACE(algorithm);
        const std::string what = " --key " + keyName + " --alg " + algorithm + (size ? "" : " --der") + " --in @data ";
        Run("0 sign" + what + "--out @signature | bytes");
        std::string signature = ReadFile(File("signature"));
        EXPECT_EQ(size ? size : signature.size(), signature.size());
        EXPECT_EQ("{\"alg\":\"" + algorithm + "\",\"value\":\"" + digest + "\"}", sim.Journal().back()["body"]);
        Run("0 verify" + what + "--signature @signature | good signature\n");
        signature.back() = static_cast<char>(signature.back() ^ 1);
        WriteFile("signature", signature);
        Run("1 verify" + what + "--signature @signature | bad signature");
    }

    // More than one piece of the hasher's reading.
    const std::string data = std::string(70000, 'd') + "end";
    // Its digests in the vault's form. SHA-1 is inside PKCS#1's DigestInfo.
    static constexpr char kSha1[] = "MCEwCQYFKw4DAhoFAAQU0zG98TJmV8RHeFZfJyfB/o91cCs=";
    static constexpr char kSha256[] = "0YbUr6p+4GjhLpplW3TspwPmSDrixZz/IKpdIG4ZjDs=";
    static constexpr char kSha384[] = "OSULUC9ICkJtEj1k7ZZjfcQXj/xntsGv/RnQK+dhIGs0z6OV7a3WiAJifXoX0zKB";
    static constexpr char kSha512[] =
        "RjSehMEvxUYpzgzs2IGBgbDlfyzqatWoVSxxXe0jfe/LRfCLBHIziIBelbK+B91//0LawBTnofBrGqlV7D1ACA==";
};

TEST_F(SignTest, TheVaultMakesAndAcceptsEverySignature)
{
    AddKey("rsa", "RSA");
    for (const std::string family : {"RS", "PS"}) {
        Check(family + "256", "rsa", kSha256, 256);
        Check(family + "384", "rsa", kSha384, 256);
        Check(family + "512", "rsa", kSha512, 256);
    }
    Check("RSNULL", "rsa", kSha1, 256);
    for (const bool der : {true, false}) {
        Check("ES256", "P-256", kSha256, der ? 0 : 64);
        Check("ES384", "P-384", kSha384, der ? 0 : 96);
        Check("ES512", "P-521", kSha512, der ? 0 : 132);
    }
}

TEST_F(SignTest, DigestsStandardInputAndPrintedSignatures)
{
    AddKey("rsa", "RSA");
    const std::string digest = "d186d4afaa7ee068e12e9a655b74eca703e6483ae2c59cff20aa5d206e198c3b";
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

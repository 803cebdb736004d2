// Encryption to RSA keys of the vault, and back.
#include <filesystem>

#include "tests/kelvaroctl/ctl_fixture.h"

namespace {

class EncryptTest : public CtlTest {
  protected:
    void SetUp() override
    {
        CtlTest::SetUp();
        sim.AddKey(Simulator::kVault, {{"name", "rsa"}, {"kty", "RSA"}, {"size", 2048}});
        sim.AddKey(Simulator::kVault, {{"name", "p256"}, {"kty", "EC"}, {"crv", "P-256"}});
    }

    Ran Run(const std::string& command, const std::string& padding, const std::string& in, const std::string& out,
            const std::string& key = "rsa")
    {
        return Ctl({command, "--key", key, "--padding", padding, "--in", File(in), "--out", File(out)});
    }
};

TEST_F(EncryptTest, ThereAndBackWithBothPaddings)
{
    const std::string plain("se\0cret", 7);
    for (const std::string padding : {"pkcs1", "oaep"}) {
        SCOPED_TRACE(padding);
        WriteFile("plain", plain);
        EXPECT_EQ(0, Run("encrypt", padding, "plain", "encrypted").exit);
        EXPECT_EQ(0, Run("decrypt", padding, "encrypted", "decrypted").exit);
        EXPECT_EQ(plain, ReadFile(File("decrypted")));
    }
}

TEST_F(EncryptTest, TheLargestInputOfEachPadding)
{
    const struct {
        const char* padding;
        size_t largest;
    } rows[] = {{"pkcs1", 245}, {"oaep", 214}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.padding);
        WriteFile("plain", std::string(row.largest, 'p'));
        EXPECT_EQ(0, Run("encrypt", row.padding, "plain", "encrypted").exit);
        WriteFile("plain", std::string(row.largest + 1, 'p'));
        const Ran ran = Run("encrypt", row.padding, "plain", "encrypted");
        EXPECT_EQ(2, ran.exit);
        EXPECT_NE(std::string::npos, ran.err.find("encrypts 1 to " + std::to_string(row.largest))) << ran.err;
    }
}

TEST_F(EncryptTest, RefusalsLeaveNoFile)
{
    WriteFile("plain", "plain");
    EXPECT_EQ(2, Run("encrypt", "oaep", "plain", "result", "p256").exit);
    EXPECT_EQ(2, Run("encrypt", "none", "plain", "result").exit);
    EXPECT_EQ(2, Run("decrypt", "oaep", "plain", "result").exit);
    ASSERT_EQ(0, Run("encrypt", "oaep", "plain", "encrypted").exit);
    EXPECT_EQ(6, Run("decrypt", "pkcs1", "encrypted", "result").exit);
    EXPECT_FALSE(std::filesystem::exists(File("result")));
}

}  // namespace

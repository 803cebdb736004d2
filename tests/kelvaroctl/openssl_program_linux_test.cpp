// What the openssl program encrypts to an exported key the module decrypts. Needs that program: Linux only.
#include <unistd.h>

#include <filesystem>

#include "tests/kelvaroctl/ctl_fixture.h"

namespace {

using OpensslProgramTest = CtlTest;

TEST_F(OpensslProgramTest, EncryptsToAnExportedKeyAndTheModuleDecrypts)
{
    sim.AddKey(Simulator::kVault, {{"name", "plain"}, {"kty", "RSA"}, {"size", 2048}});
    sim.AddKey(Simulator::kVault, {{"name", "zero"}, {"kty", "RSA"}, {"size", 3072}, {"leadingZero", true}});
    const struct {
        const char* padding;
        std::vector<std::string> options;
    } rows[] = {
        {"pkcs1", {"-pkeyopt", "rsa_padding_mode:pkcs1"}},
        {"oaep", {"-pkeyopt", "rsa_padding_mode:oaep", "-pkeyopt", "rsa_oaep_md:sha1"}},
    };
    const std::string plain("se\0cret", 7);
    WriteFile("plain", plain);
    WriteFile("decrypted", "readable by all");
    for (const char* key : {"plain", "zero"}) {
        ASSERT_EQ(0, Ctl({"keys", "export", key, "--format", "pem", "--out", File("key.pem")}).exit);
        for (const auto& row : rows) {
            SCOPED_TRACE(std::string(key) + " " + row.padding);
            std::vector<std::string> arguments = {"pkeyutl", "-encrypt",    "-pubin", "-inkey",         File("key.pem"),
                                                  "-in",     File("plain"), "-out",   File("encrypted")};
            arguments.insert(arguments.end(), row.options.begin(), row.options.end());
            const Ran encrypted = RunProgram(KELVARO_OPENSSL_PATH, arguments, "");
            ASSERT_EQ(0, encrypted.exit) << encrypted.err;
            const Ran decrypted = Ctl({"decrypt", "--key", key, "--padding", row.padding, "--in", File("encrypted"),
                                       "--out", File("decrypted")});
            EXPECT_EQ(0, decrypted.exit) << decrypted.err;
            EXPECT_EQ(plain, ReadFile(File("decrypted")));
            using std::filesystem::perms;
            EXPECT_EQ(perms::owner_read | perms::owner_write, std::filesystem::status(File("decrypted")).permissions());
        }
    }
}

// Its owner could read what is written, whatever the mode.
TEST_F(OpensslProgramTest, DecryptsToNoFileOfAnotherUser)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can give a file to another user";
    sim.AddKey(Simulator::kVault, {{"name", "rsa"}, {"kty", "RSA"}, {"size", 2048}});
    WriteFile("plain", "secret");
    ASSERT_EQ(0,
              Ctl({"encrypt", "--key", "rsa", "--padding", "oaep", "--in", File("plain"), "--out", File("in")}).exit);
    WriteFile("out", "as it was");
    ASSERT_EQ(0, chown(File("out").c_str(), 1, 1));
    const Ran ran = Ctl({"decrypt", "--key", "rsa", "--padding", "oaep", "--in", File("in"), "--out", File("out")});
    EXPECT_EQ(2, ran.exit);
    EXPECT_NE(std::string::npos, ran.err.find("belongs to another user")) << ran.err;
    EXPECT_EQ("as it was", ReadFile(File("out")));
}

}  // namespace

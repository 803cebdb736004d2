// What the openssl program encrypts to an exported key the module decrypts. Needs that program: Linux only.
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

}  // namespace

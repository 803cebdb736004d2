// Commands as they are typed: how they end, and what they say.
#include <filesystem>

#include "kelvaroctl/commands.h"
#include "tests/kelvaroctl/ctl_fixture.h"

namespace {

class CommandsTest : public CtlTest {
  protected:
    void AddKeys()
    {
        AddKey("rsa", "RSA");
        AddKey("p256", "P-256");
        WriteFile("data", "data");
    }
};

TEST_F(CommandsTest, CommandLines)
{
    RunSection();
    const std::string out = RunToolHere({"--module", "/nowhere", "version", "--json"}, "").out;
    EXPECT_NE(std::string::npos, out.find("\"version\": \"" KELVARO_VERSION "\",\n  \"module\": null")) << out;
}

TEST_F(CommandsTest, Keys)
{
    AddKeys();
    RunSection();
}

TEST_F(CommandsTest, Settings)
{
    const nlohmann::json before = CtlTest::Settings();
    RunSection();
    EXPECT_EQ(2, Ctl({"config", "set", "ClientCertID", "two\nlines"}).exit);
    EXPECT_EQ(before, CtlTest::Settings());
    EXPECT_FALSE(root.Has(HKEY_LOCAL_MACHINE, "KeyVaults"));
    RunSection(2);
    EXPECT_EQ("contoso-keys", root.GetText(HKEY_LOCAL_MACHINE, "KeyVault"));
    EXPECT_EQ("contoso-keys\n", Out({"config", "get", "KeyVault"}));
}

TEST_F(CommandsTest, SigningAndEncrypting)
{
    AddKeys();
    WriteFile("large", std::string(215, 'p'));
    sim.ClearJournal();
    RunSection();
    EXPECT_TRUE(sim.VaultRequests().empty());
    EXPECT_EQ("data", ReadFile(File("data")));
    WriteFile("short", "0011");
    WriteFile("s", "before");
    RunSection(2);
    EXPECT_FALSE(std::filesystem::exists(File("e")));
    EXPECT_EQ("before", ReadFile(File("s"))) << "what a command that fails would have replaced";
    WriteFile("plain", std::string("se\0cret", 7) + std::string(238, 'p'));
    for (const std::string padding : {"oaep", "pkcs1"}) {
        Run("0 encrypt --key rsa --padding " + padding + " --in " + (padding == "oaep" ? "@data" : "@plain") +
            " --out @encrypted\n0 decrypt --key rsa --padding " + padding +
            " --in @encrypted --out @decrypted | bytes written\n");
        EXPECT_EQ(ReadFile(File(padding == "oaep" ? "data" : "plain")), ReadFile(File("decrypted")));
    }
    Run("6 decrypt --key rsa --padding oaep --in @encrypted --out @e | NTE_FAIL .. this key's with this padding\n");
    EXPECT_FALSE(std::filesystem::exists(File("e")));
}

TEST_F(CommandsTest, WithoutSignIn)
{
    AddKeys();
    RunSection();
}

// docs/kelvaroctl.md and the manual page have every command with its options.
TEST_F(CommandsTest, AreDocumented)
{
    const std::string document = ReadFile(KELVARO_TEST_DATA "/../../docs/kelvaroctl.md");
    const std::string manual = Out({"manual"});
    const auto commands = kelvaroctl::AllCommands();
    for (const kelvaroctl::NamedCommand& named : kelvaroctl::Flatten(commands)) {
        if (!named.command->action)
            continue;
        const size_t row = document.find("| `" + named.name);
        ASSERT_NE(std::string::npos, row) << named.name;
        EXPECT_NE(std::string::npos, manual.find(".SS " + named.name.substr(0, named.name.find('-')))) << named.name;
        const std::string rows = document.substr(row, document.find("\n\n", row) - row);
        for (const kelvaroctl::Argument& argument : named.command->arguments)
            EXPECT_NE(std::string::npos, rows.find(argument.name)) << named.name << " " << argument.name;
    }
}

}  // namespace

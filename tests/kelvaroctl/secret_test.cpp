// How the client secret is entered, and that it is never shown.
#include "tests/kelvaroctl/ctl_fixture.h"
#include "tests/kelvaroctl/settings_rights.h"

namespace {

class SecretTest : public CtlTest {
  protected:
    // On Windows a new settings key can be read by all users.
    void SetUp() override
    {
        CtlTest::SetUp();
        Run("0 config protect\n");
    }
    std::string MachineText(const char* name) const { return root.GetText(HKEY_LOCAL_MACHINE, name); }
    // A row that sets the right secret.
    const std::string set = std::string("< ") + Simulator::kClientSecret + "\n0 config set ClientSecret ";
};

TEST_F(SecretTest, FromStandardInputIntoProtection)
{
    RunSection();
    // PowerShell may put a byte order mark in front of what it pipes.
    for (const std::string mark : {"\xEF\xBB\xBF", ""}) {
        const Ran ran = Ctl({"config", "set", "ClientSecret"}, mark + Simulator::kClientSecret + "\r\nsecond line\n");
        EXPECT_EQ("ClientSecret of the machine is protected\n", ran.out + ran.err);
        EXPECT_EQ("", MachineText("ClientSecret"));
        EXPECT_NE("", MachineText("ClientDPAPISecret"));
        Run("0 keys list\n");
    }
    const nlohmann::json before = Settings();
    for (const std::string& input :
         {std::string("\n"), std::string(), std::string("\xEF\xBB\xBF\n"), std::string("a\xEF\xBB\xBF\n"),
          std::string(512, 'x') + "\n", std::string(100000, 'x') + "\n"})
        EXPECT_EQ(2, Ctl({"config", "set", "ClientSecret"}, input).exit) << input.size();
    EXPECT_EQ(before, Settings());
}

// Whoever can read the machine's settings can recover the secret.
TEST_F(SecretTest, RefusedWhileOrdinaryUsersCanReadTheSettings)
{
    LetEverybodyReadSettings(root.directory());
    Run("0 config show --json | \"open\": true\n< another\n3 config set ClientSecret | kelvaroctl config protect\n");
    EXPECT_EQ(Simulator::kClientSecret, MachineText("ClientSecret"));
    Run(set + "--anyway | warning: ordinary users can read\n");
    const std::string head =
        "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\Software\\Zandrel\\Kelvaro]\n";
    for (const std::string name : {"ClientSecret", "ClientDPAPISecret"}) {
        WriteFile("secret.reg", head + "\"TenantId\"=\"imported\"\n\"" + name + "\"=\"another\"\n");
        LetEverybodyReadSettings(root.directory());
        Run("3 config import @secret.reg | --anyway\n");
        EXPECT_NE("imported", MachineText("TenantId"));
        Run("0 config import --anyway @secret.reg\n0 config get TenantId | imported\n");
        root.SetText(HKEY_LOCAL_MACHINE, "TenantId", Simulator::kTenant);
    }
    // A file without a secret needs no such care, nor does a user's own secret.
    LetEverybodyReadSettings(root.directory());
    WriteFile("plain.reg", head + "\"KeyVault\"=\"" + Simulator::kVault + "\"\n\"ClientSecret\"=\"\"\n");
    Run("0 config import @plain.reg\n" + set + "--user\n");

    const std::string account = AccountToAllow();
    const nlohmann::json allowed = CtlJson({"config", "protect", "--allow", account});
    EXPECT_EQ(false, allowed["open"]);
    EXPECT_NE(std::string::npos, allowed["readers"].dump().find(account)) << allowed;
    // What is written later is closed, too, and open to the same accounts.
    Run(set + "\n0 keys list\n2 config protect --allow 'no such account'\n2 config protect --user\n");
    EXPECT_EQ(allowed["readers"], Settings()["readers"]);
}

TEST_F(SecretTest, ShownOnlyAsAState)
{
    Run(std::string("0 config show | ClientSecret .. set, in clear text .. !") + Simulator::kClientSecret +
        "\n0 config get ClientSecret | set .. !" + Simulator::kClientSecret + "\n0 provider show | protected .. !" +
        Simulator::kClientSecret + "\n");
    const std::string start = MachineText("ClientDPAPISecret").substr(0, 60);  // wine breaks the rest into lines
    Run("0 config show | ClientSecret .. protected .. !" + start +
        "\n0 config unset ClientSecret\n0 config get ClientSecret | not set\n");
    EXPECT_FALSE(root.Has(HKEY_LOCAL_MACHINE, "ClientSecret") || root.Has(HKEY_LOCAL_MACHINE, "ClientDPAPISecret"));
    // Without the module it is kept, and the administrator is warned.
    const Ran ran = RunToolHere({"--module", "/nowhere/x.so", "config", "set", "ClientSecret"}, "another~Secret.1");
    EXPECT_EQ("ClientSecret of the machine is set\n", ran.out);
    EXPECT_NE(std::string::npos, ran.err.find("stays in clear text until the provider is first opened"));
    EXPECT_EQ("another~Secret.1", MachineText("ClientSecret"));
}

}  // namespace

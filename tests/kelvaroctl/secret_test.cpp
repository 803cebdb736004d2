// How the client secret comes in, and that it never comes out.
#include "tests/kelvaroctl/ctl_fixture.h"
#include "tests/kelvaroctl/settings_rights.h"

namespace {

class SecretTest : public CtlTest {
  protected:
    // On Windows a new settings key can be read by all users.
    void SetUp() override
    {
        CtlTest::SetUp();
        ASSERT_EQ(0, Ctl({"config", "protect"}).exit);
    }
    std::string MachineText(const char* name) const { return root.GetText(HKEY_LOCAL_MACHINE, name); }
};

constexpr char kSecret[] = "another~Secret.1";

TEST_F(SecretTest, FromStandardInputIntoProtection)
{
    Run("< wrong\n0 config set ClientSecret\n4 keys list | SEC_E_LOGON_DENIED\n");
    // PowerShell may put a byte order mark in front of what it pipes.
    for (const std::string mark : {"\xEF\xBB\xBF", ""}) {
        const Ran ran = Ctl({"config", "set", "ClientSecret"}, mark + Simulator::kClientSecret + "\r\nsecond line\n");
        EXPECT_EQ("ClientSecret of the machine is protected\n", ran.out + ran.err);
        EXPECT_EQ("", MachineText("ClientSecret"));
        EXPECT_NE("", MachineText("ClientDPAPISecret"));
        Run("0 keys list\n");
    }
    const nlohmann::json before = Settings();
    for (const std::string& input : {std::string("\n"), std::string(), std::string("\xEF\xBB\xBF\n"),
                                     std::string(512, 'x') + "\n", std::string(100000, 'x') + "\n"})
        EXPECT_EQ(2, Ctl({"config", "set", "ClientSecret"}, input).exit) << input.size();
    EXPECT_EQ(before, Settings());
}

// Whoever can read the machine's settings can recover the secret.
TEST_F(SecretTest, RefusedWhileOrdinaryUsersCanReadTheSettings)
{
    LetEverybodyReadSettings(root.directory());
    EXPECT_EQ(true, Settings()["open"]);
    Run("< another\n3 config set ClientSecret | kelvaroctl config protect\n");
    EXPECT_EQ(Simulator::kClientSecret, MachineText("ClientSecret"));
    Run(std::string("< ") + Simulator::kClientSecret +
        "\n0 config set ClientSecret --anyway | warning: ordinary users can read\n");
    const std::string head =
        "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\Software\\Zandrel\\Kelvaro]\n";
    for (const std::string name : {"ClientSecret", "ClientDPAPISecret"}) {
        WriteFile("secret.reg", head + "\"TenantId\"=\"imported\"\n\"" + name + "\"=\"another\"\n");
        LetEverybodyReadSettings(root.directory());
        Run("3 config import @secret.reg | --anyway\n");
        EXPECT_NE("imported", MachineText("TenantId"));
        Run("0 config import --anyway @secret.reg\n");
        EXPECT_EQ("imported", MachineText("TenantId"));
        root.SetText(HKEY_LOCAL_MACHINE, "TenantId", Simulator::kTenant);
    }
    // A file without a secret needs no such care, nor does a user's own secret.
    LetEverybodyReadSettings(root.directory());
    WriteFile("plain.reg", head + "\"KeyVault\"=\"" + Simulator::kVault + "\"\n\"ClientSecret\"=\"\"\n");
    Run(std::string("0 config import @plain.reg\n< ") + Simulator::kClientSecret +
        "\n0 config set ClientSecret --user\n");

    const std::string account = AccountToAllow();
    const nlohmann::json allowed = CtlJson({"config", "protect", "--allow", account});
    EXPECT_EQ(false, allowed["open"]);
    EXPECT_NE(std::string::npos, allowed["readers"].dump().find(account)) << allowed;
    // What is written later is closed, too, and open to the same accounts.
    Run(std::string("< ") + Simulator::kClientSecret + "\n0 config set ClientSecret\n");
    EXPECT_EQ(allowed["readers"], Settings()["readers"]);
    Run("0 keys list\n2 config protect --allow 'no such account'\n2 config protect --user\n");
}

TEST_F(SecretTest, ShownOnlyAsAState)
{
    const auto state = [this] { return Settings()["settings"]["ClientSecret"]["state"]; };
    EXPECT_EQ("set", state());
    const std::string shown =
        Out({"config", "show"}) + Out({"config", "get", "ClientSecret"}) + Out({"provider", "show"});
    EXPECT_EQ(std::string::npos, shown.find(Simulator::kClientSecret));
    EXPECT_EQ("protected", state()) << "by the provider";
    EXPECT_EQ(std::string::npos, Out({"config", "show"}).find(MachineText("ClientDPAPISecret")));
    Run("0 config unset ClientSecret\n");
    EXPECT_EQ("not set", state());
    EXPECT_FALSE(root.Has(HKEY_LOCAL_MACHINE, "ClientSecret") || root.Has(HKEY_LOCAL_MACHINE, "ClientDPAPISecret"));
    // Without the module it is kept, and the administrator is warned.
    const Ran ran =
        RunProgram(KELVAROCTL_PATH, {"--module", "/nowhere/x.so", "config", "set", "ClientSecret"}, kSecret);
    EXPECT_EQ(0, ran.exit);
    EXPECT_EQ("ClientSecret of the machine is set\n", ran.out);
    EXPECT_NE(std::string::npos, ran.err.find("stays in clear text until the provider is first opened"));
    EXPECT_EQ(kSecret, MachineText("ClientSecret"));
}

}  // namespace

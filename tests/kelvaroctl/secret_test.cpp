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
};

constexpr char kSecret[] = "another~Secret.1";

TEST_F(SecretTest, FromStandardInputIntoProtection)
{
    const Ran ran = Ctl({"config", "set", "ClientSecret"}, std::string(kSecret) + "\r\nsecond line\n");
    EXPECT_EQ(0, ran.exit) << ran.err;
    EXPECT_EQ("ClientSecret of the machine is protected\n", ran.out);
    EXPECT_EQ("", ran.err);
    EXPECT_EQ("", root.GetText(HKEY_LOCAL_MACHINE, "ClientSecret"));
    EXPECT_NE("", root.GetText(HKEY_LOCAL_MACHINE, "ClientDPAPISecret"));
}

TEST_F(SecretTest, TheGivenSecretIsTheOneThatSignsIn)
{
    ASSERT_EQ(0, Ctl({"config", "set", "ClientSecret"}, "wrong\n").exit);
    EXPECT_EQ("SEC_E_LOGON_DENIED", CtlJson({"keys", "list"}, 4)["error"]["code"]);
    // PowerShell may put a byte order mark in front of what it pipes.
    for (const std::string mark : {"", "\xEF\xBB\xBF"}) {
        ASSERT_EQ(0, Ctl({"config", "set", "ClientSecret"}, mark + Simulator::kClientSecret).exit);
        EXPECT_EQ(nlohmann::json::array(), CtlJson({"keys", "list"})["keys"]);
    }
}

TEST_F(SecretTest, NeverAnArgumentAndNeverEmpty)
{
    const nlohmann::json before = Settings();
    const Ran argument = Ctl({"config", "set", "ClientSecret", kSecret});
    EXPECT_EQ(2, argument.exit);
    EXPECT_NE(std::string::npos, argument.err.find("cannot be an argument"));
    EXPECT_EQ(2, Ctl({"config", "set", "ClientSecret"}, "\n").exit);
    EXPECT_EQ(2, Ctl({"config", "set", "ClientSecret"}, "").exit);
    EXPECT_EQ(2, Ctl({"config", "set", "ClientSecret"}, "\xEF\xBB\xBF\n").exit);
    EXPECT_EQ(2, Ctl({"config", "set", "ClientSecret"}, std::string(512, 'x') + "\n").exit);
    EXPECT_EQ(2, Ctl({"config", "set", "ClientSecret"}, std::string(100000, 'x') + "\n").exit);
    EXPECT_EQ(before, Settings());
}

// Whoever can read the machine's settings can recover the secret.
TEST_F(SecretTest, RefusedWhileOrdinaryUsersCanReadTheSettings)
{
    LetEverybodyReadSettings(root.directory());
    EXPECT_EQ(true, Settings()["open"]);
    const Ran refused = Ctl({"config", "set", "ClientSecret"}, "another\n");
    EXPECT_EQ(3, refused.exit);
    EXPECT_NE(std::string::npos, refused.err.find("kelvaroctl config protect")) << refused.err;
    EXPECT_EQ(Simulator::kClientSecret, root.GetText(HKEY_LOCAL_MACHINE, "ClientSecret"));
    const Ran anyway = Ctl({"config", "set", "ClientSecret", "--anyway"}, Simulator::kClientSecret);
    EXPECT_EQ(0, anyway.exit) << anyway.err;
    EXPECT_NE(std::string::npos, anyway.err.find("warning: ordinary users can read")) << anyway.err;
    const std::string head =
        "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\Software\\Zandrel\\Kelvaro]\n";
    for (const std::string name : {"ClientSecret", "ClientDPAPISecret"}) {
        WriteFile("secret.reg", head + "\"TenantId\"=\"imported\"\n\"" + name + "\"=\"another\"\n");
        LetEverybodyReadSettings(root.directory());
        const Ran import = Ctl({"config", "import", File("secret.reg")});
        EXPECT_EQ(3, import.exit) << import.err;
        EXPECT_NE(std::string::npos, import.err.find("--anyway")) << import.err;
        EXPECT_NE("imported", root.GetText(HKEY_LOCAL_MACHINE, "TenantId"));
        EXPECT_EQ(0, Ctl({"config", "import", "--anyway", File("secret.reg")}).exit);
        EXPECT_EQ("imported", root.GetText(HKEY_LOCAL_MACHINE, "TenantId"));
        root.SetText(HKEY_LOCAL_MACHINE, "TenantId", Simulator::kTenant);
    }
    // A file without a secret needs no such care.
    LetEverybodyReadSettings(root.directory());
    WriteFile("plain.reg", head + "\"KeyVault\"=\"" + Simulator::kVault + "\"\n\"ClientSecret\"=\"\"\n");
    EXPECT_EQ(0, Ctl({"config", "import", File("plain.reg")}).exit);
    EXPECT_EQ(0, Ctl({"config", "set", "ClientSecret", "--user"}, Simulator::kClientSecret).exit);

    const std::string account = AccountToAllow();
    const nlohmann::json allowed = CtlJson({"config", "protect", "--allow", account});
    EXPECT_EQ(false, allowed["open"]);
    EXPECT_NE(std::string::npos, allowed["readers"].dump().find(account)) << allowed;
    // What is written later is closed, too, and open to the same accounts.
    EXPECT_EQ(0, Ctl({"config", "set", "ClientSecret"}, Simulator::kClientSecret).exit);
    EXPECT_EQ(allowed["readers"], Settings()["readers"]);
    EXPECT_EQ(0, Ctl({"keys", "list"}).exit);
    EXPECT_EQ(2, Ctl({"config", "protect", "--allow", "no such account"}).exit);
    EXPECT_EQ(2, Ctl({"config", "protect", "--user"}).exit);
}

TEST_F(SecretTest, ShownOnlyAsAState)
{
    const auto state = [this] { return CtlJson({"config", "show"})["settings"]["ClientSecret"]["state"]; };
    EXPECT_EQ("set", state());
    EXPECT_EQ(std::string::npos, Out({"config", "show"}).find(Simulator::kClientSecret));
    const std::string provider = Out({"provider", "show"});  // protects it
    EXPECT_EQ(std::string::npos, provider.find(Simulator::kClientSecret));
    EXPECT_EQ("protected", state());
    const std::string shown = Out({"config", "show"});
    EXPECT_EQ(std::string::npos, shown.find(root.GetText(HKEY_LOCAL_MACHINE, "ClientDPAPISecret")));
    EXPECT_EQ(0, Ctl({"config", "unset", "ClientSecret"}).exit);
    EXPECT_EQ("not set", state());
    EXPECT_FALSE(root.Has(HKEY_LOCAL_MACHINE, "ClientSecret"));
    EXPECT_FALSE(root.Has(HKEY_LOCAL_MACHINE, "ClientDPAPISecret"));
}

TEST_F(SecretTest, WithoutTheModuleItIsKeptAndTheAdministratorIsTold)
{
    const Ran ran =
        RunProgram(KELVAROCTL_PATH, {"--module", "/nowhere/libkelvaro.so", "config", "set", "ClientSecret"}, kSecret);
    EXPECT_EQ(0, ran.exit);
    EXPECT_EQ("ClientSecret of the machine is set\n", ran.out);
    EXPECT_NE(std::string::npos, ran.err.find("stays in clear text until the provider is first opened"));
    EXPECT_EQ(kSecret, root.GetText(HKEY_LOCAL_MACHINE, "ClientSecret"));
}

}  // namespace

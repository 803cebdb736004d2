// Settings whose file is damaged: told with the file's name, and the file is left alone.
#include <filesystem>

#include "tests/kelvaroctl/ctl_fixture.h"

namespace {

constexpr char kDamaged[] = "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\Soft\n\"KeyVault\"=\n";
constexpr char kImport[] =
    "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\Software\\Zandrel\\Kelvaro]\n"
    "\"KeyVault\"=\"imported\"\n[HKEY_CURRENT_USER\\Software\\Zandrel\\Kelvaro]\n\"KeyVault\"=\"imported\"\n";

using ConfigHiveTest = CtlTest;

TEST_F(ConfigHiveTest, ADamagedOneIsAnErrorAndIsLeftAlone)
{
    const std::string hive = "root/registry/HKEY_LOCAL_MACHINE.reg";
    WriteFile(hive, kDamaged);
    WriteFile("import.reg", kImport);
    const std::vector<std::string> commands[] = {
        {"config", "show"},
        {"config", "set", "KeyVault", "contoso"},
        {"config", "unset", "KeyVault"},
        {"config", "import", File("import.reg")},
        {"provider", "show"},
        {"keys", "list"},
    };
    for (const auto& command : commands) {
        SCOPED_TRACE(command[0] + " " + command[1]);
        const nlohmann::json error = CtlJson(command, 3)["error"];
        EXPECT_EQ("configuration", error["code"]);
        EXPECT_NE(std::string::npos, error["message"].get<std::string>().find(File(hive))) << error;
    }
    EXPECT_EQ(kDamaged, ReadFile(File(hive)));
}

TEST_F(ConfigHiveTest, AUserNeedsNothingOfTheMachines)
{
    sim.AddKey(Simulator::kVault, {{"name", "key"}, {"kty", "EC"}, {"crv", "P-256"}});
    // A folder in its place can't be read by root either.
    const std::string hive = File("root/registry/HKEY_LOCAL_MACHINE.reg");
    std::filesystem::remove(hive);
    std::filesystem::create_directory(hive);
    EXPECT_EQ("ClientSecret of the user is protected\n",
              Ctl({"config", "set", "ClientSecret", "--user"}, Simulator::kClientSecret).out);
    EXPECT_EQ("key  -\n", Out({"keys", "list", "--user"}));
    EXPECT_EQ("user", CtlJson({"provider", "show", "--user"})["scope"]);
    EXPECT_EQ(3, Ctl({"keys", "list"}).exit);
}

TEST_F(ConfigHiveTest, WhereTheSecondCannotBeWrittenTheFirstIsNotEither)
{
    const auto before = Settings();
    WriteFile("root/user/registry/HKEY_CURRENT_USER.reg", kDamaged);
    WriteFile("import.reg", kImport);
    EXPECT_EQ(3, Ctl({"config", "import", File("import.reg")}).exit);
    EXPECT_EQ(before, Settings());
}

}  // namespace

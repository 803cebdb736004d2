// What needs Linux: settings in files, files of other users, the openssl program, a full device, a system without a
// router.
#include <unistd.h>

#include <filesystem>

#include "kelvaroctl/failure.h"
#include "kelvaroctl/settings_hive.h"
#include "tests/kelvaroctl/ctl_fixture.h"

namespace fs = std::filesystem;

constexpr char kDamaged[] = "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\Soft\n\"KeyVault\"=\n";
constexpr char kImport[] =
    "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\Software\\Zandrel\\Kelvaro]\n"
    "\"KeyVault\"=\"imported\"\n[HKEY_CURRENT_USER\\Software\\Zandrel\\Kelvaro]\n\"KeyVault\"=\"imported\"\n";
constexpr char kHive[] = "root/registry/HKEY_LOCAL_MACHINE.reg";

using kelvaroctl::SettingsHive;
using ProgramTest = CtlTest;

TEST_F(ProgramTest, AHiveThatCannotBeWrittenOrIsDamagedIsAnErrorAndIsLeftAlone)
{
    WriteFile("import.reg", kImport);
    const auto before = Settings();
    // With a folder in the lock's place, even root can only read the hive.
    const std::string lock = File(kHive) + ".lock";
    fs::remove(lock);
    fs::create_directory(lock);
    Run("3 config import @import.reg | HKEY_CURRENT_USER.reg or " + File(kHive) + ": access denied\n");
    fs::remove(lock);
    WriteFile("root/user/registry/HKEY_CURRENT_USER.reg", kDamaged);
    Run("3 config import @import.reg\n");
    EXPECT_EQ(before, Settings()) << "if the second can't be written, neither is the first";
    WriteFile(kHive, kDamaged);
    for (const char* command : {"config show", "config set KeyVault contoso", "config unset KeyVault",
                                "config import @import.reg", "provider show", "keys list"})
        Run(std::string("3 ") + command + " | " + File(kHive) + " .. are damaged .. Run `kelvaroctl doctor`\n");
    EXPECT_EQ(kDamaged, ReadFile(File(kHive)));
}

TEST_F(ProgramTest, AnImportThatAnotherProgramOvertookSaysSo)
{
    const SettingsHive hive(HKEY_LOCAL_MACHINE);
    RegistryTransaction transaction;
    SettingsHive inTransaction(HKEY_LOCAL_MACHINE);
    ASSERT_TRUE(inTransaction.Enter(&transaction, "write KeyVault"));
    inTransaction.Write("KeyVault", kelvaroctl::TextValue(TEXT("imported")));
    hive.Write("TenantId", kelvaroctl::TextValue(TEXT("another")));
    ASSERT_FALSE(transaction.Commit());
    const LONG error = static_cast<LONG>(GetLastError());
    try {
        hive.ThrowFailure("write the settings", error);
    } catch (const kelvaroctl::Failure& failure) {
        EXPECT_NE(std::string::npos, std::string(failure.what()).find("run the command again")) << failure.what();
    }
}

TEST_F(ProgramTest, AUserNeedsNothingOfTheMachines)
{
    AddKey("key", "P-256");
    // Not even root can read a folder in its place.
    fs::remove(File(kHive));
    fs::create_directory(File(kHive));
    RunSection();
}

TEST_F(ProgramTest, OpensslEncryptsToAnExportedKeyAndTheModuleDecrypts)
{
    AddKey("plain", "RSA");
    AddKey("zero", "RSA", {{"size", 3072}, {"leadingZero", true}});
    const std::string plain("se\0cret", 7);
    WriteFile("plain", plain);
    WriteFile("out", "readable by all");
    for (const std::string key : {"plain", "zero"}) {
        Run("0 keys export " + key + " --format pem --out @key.pem\n");
        for (const std::string padding : {"pkcs1", "oaep"}) {
            const Ran encrypted =
                RunProgram(KELVARO_OPENSSL_PATH,
                           {"pkeyutl", "-encrypt", "-pubin", "-inkey", File("key.pem"), "-in", File("plain"), "-out",
                            File("in"), "-pkeyopt", "rsa_padding_mode:" + padding},
                           "");
            ASSERT_EQ(0, encrypted.exit) << encrypted.err;
            Run("0 decrypt --key " + key + " --padding " + padding + " --in @in --out @out\n");
            EXPECT_EQ(plain, ReadFile(File("out")));
            EXPECT_EQ(fs::perms::owner_read | fs::perms::owner_write, fs::status(File("out")).permissions());
        }
    }
    // The owner of a file can read it whatever its mode. Only root can give one away.
    WriteFile("theirs", "as it was");
    if (geteuid() == 0) {
        ASSERT_EQ(0, chown(File("theirs").c_str(), 1, 1));
        Run("2 decrypt --key zero --padding oaep --in @in --out @theirs | belongs to another user\n");
    }
    EXPECT_EQ("as it was", ReadFile(File("theirs")));
}

TEST_F(ProgramTest, WaysToTheProvider)
{
    // The tool of a build finds the module of that build.
    EXPECT_EQ(0, RunProgram(KELVAROCTL_PATH, {"provider", "show"}, "").exit);
    RunSection();
    EXPECT_NE(std::string::npos, RunToolHere({"--via", "ncrypt", "keys", "list"}, "").err.find("needs Windows"));
    for (const char* command : {" config show", " --help", " --version", " completion bash"}) {
        const Ran full = RunProgram("/bin/sh", {"-c", std::string(KELVAROCTL_PATH) + command + " > /dev/full"}, "");
        EXPECT_EQ(7, full.exit) << command;
        EXPECT_NE(std::string::npos, full.err.find("cannot write the answer")) << full.err;
    }
}

// The completion finds commands, options, values and files.
TEST_F(ProgramTest, BashCompletes)
{
    WriteFile("bash", Out({"completion", "bash"}));
    const std::pair<std::string, std::string> rows[] = {{"ke", "keys"},
                                                        {"keys sho", "show"},
                                                        {"--json keys export k --f", "--format"},
                                                        {"keys export k --format c", "cng"},
                                                        {"config get Logg", "LoggingLevel"},
                                                        {"sign --key k", ""},
                                                        {"certs install @bas", File("bash")},
                                                        {"sign --in @bas", File("bash")}};
    for (auto [line, completed] : rows) {
        if (const size_t at = line.find('@'); at != std::string::npos)
            line.replace(at, 1, root.directory() + "/");
        const std::string script = ". " + File("bash") + "; COMP_WORDS=(kelvaroctl " + line +
                                   "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _kelvaroctl; echo \"${COMPREPLY[*]}\"";
        EXPECT_EQ(completed + "\n", RunProgram("/bin/bash", {"-c", script}, "").out) << line;
    }
}

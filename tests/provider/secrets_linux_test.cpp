// Client secrets under conditions that only the Linux build can produce.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/provider/provider_fixture.h"

// In each case the plaintext secret is used, and kept.
TEST_F(ProviderTest, ASecretThatCannotBeProtectedOrStoredStaysInTheRegistry)
{
    const auto secret = [&] {
        const std::string text = Narrow(KVCText(ProviderRecord()->machineKvc->clientSecret));
        FreeProvider(provider);
        return text;
    };
    EXPECT_EQ(Simulator::kClientSecret, secret());
    const std::string sealed = root.GetText(HKEY_LOCAL_MACHINE, "ClientDPAPISecret");
    root.SetText(HKEY_LOCAL_MACHINE, "ClientSecret", "new");
    // Not even root can write the new registry where there is a directory.
    const std::string obstacle = root.directory() + "/root/registry/HKEY_LOCAL_MACHINE.reg.new";
    std::filesystem::create_directory(obstacle);
    EXPECT_EQ("new", secret());
    std::filesystem::remove(obstacle);
    // A file where the master key's directory would be.
    const std::string masterKeys = root.directory() + "/root/dpapi";
    std::filesystem::remove_all(masterKeys);
    std::ofstream(masterKeys) << "in the way";
    EXPECT_EQ("new", secret());
    EXPECT_EQ("new", root.GetText(HKEY_LOCAL_MACHINE, "ClientSecret"));
    EXPECT_EQ(sealed, root.GetText(HKEY_LOCAL_MACHINE, "ClientDPAPISecret"));
    std::filesystem::remove(masterKeys);
    EXPECT_EQ("new", secret());
    EXPECT_EQ("", root.GetText(HKEY_LOCAL_MACHINE, "ClientSecret"));
}

// An administrator sets new secrets while another process keeps opening providers.
TEST_F(ProviderTest, ASecretSetWhileAHostOpensIsUsed)
{
    SetLogLevel(0);
    const pid_t host = fork();
    while (host == 0) {
        NCRYPT_PROV_HANDLE opened = 0;
        if (table->OpenProvider(&opened, TEXT("name"), 0) != 0 || table->FreeProvider(opened) != 0)
            _exit(1);
    }
    std::string lost;
    for (int round = 0; round < 100; round++) {
        const std::string secret = "secret-" + std::to_string(round) + "-end";
        root.SetText(HKEY_LOCAL_MACHINE, "ClientSecret", secret);
        // The first open may still find the plaintext value; the second one reads the encrypted value.
        for (int opens = 0; opens < 2; opens++) {
            if (Narrow(KVCText(ProviderRecord()->machineKvc->clientSecret)) != secret)
                lost += " " + std::to_string(round) + "." + std::to_string(opens);
            FreeProvider(provider);
        }
    }
    kill(host, SIGKILL);
    int status = 0;
    waitpid(host, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status)) << "the host ended on its own";
    EXPECT_EQ("", lost);
}

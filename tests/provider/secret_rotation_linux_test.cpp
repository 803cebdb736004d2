// An administrator who changes the client secret beside a host, in another process, that opens providers without a
// pause.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/provider/key_fixture.h"

namespace {

constexpr WCHAR kName[] = TEXT("Zandrel Key Storage Provider for Key Vault");

// A child process that opens and frees providers until it is killed.
class OpeningHost {
  public:
    explicit OpeningHost(const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table) : child_(fork())
    {
        while (child_ == 0) {
            NCRYPT_PROV_HANDLE provider = 0;
            if (table->OpenProvider(&provider, kName, 0) != 0 || table->FreeProvider(provider) != 0)
                _exit(1);
        }
    }
    ~OpeningHost()
    {
        kill(child_, SIGKILL);
        int status = 0;
        waitpid(child_, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status)) << "the host gave up";
    }
    OpeningHost(const OpeningHost&) = delete;
    OpeningHost& operator=(const OpeningHost&) = delete;

  private:
    const pid_t child_;
};

TEST_F(KeyTest, SecretSetBesideAnOpeningHostIsTheOneThatSignsIn)
{
    root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 0);
    Reattach();
    const OpeningHost host(table);
    std::string lost;
    for (int round = 0; round < 200; round++) {
        const std::string secret = "secret-" + std::to_string(round) + "-end";
        root.SetText(HKEY_LOCAL_MACHINE, "ClientSecret", secret);
        // The first open may still find the clear value; the second tells what became of it.
        for (int opens = 0; opens < 2; opens++) {
            NCRYPT_KEY_HANDLE key = 0;
            sim.ClearJournal();
            EXPECT_NE(0, table->OpenKey(OpenProvider(), &key, TEXT("k"), 0, NCRYPT_MACHINE_KEY_FLAG));
            FreeProvider(provider);
            if (sim.Journal().dump().find(secret) == std::string::npos)
                lost += " " + std::to_string(round) + "." + std::to_string(opens);
        }
    }
    EXPECT_EQ("", lost);
}

}  // namespace

// The tool on a terminal: it asks, doesn't echo secrets, and shows its progress and that it is waiting.
#include "tests/kelvaroctl/terminal_linux.h"

#include <atomic>
#include <csignal>
#include <filesystem>
#include <sstream>

#include "kelvaroctl/wait_notice.h"
#include "tests/kelvaroctl/ctl_fixture.h"

namespace {

class TerminalTest : public CtlTest {
  protected:
    Ran OnTerminal(const std::vector<std::string>& arguments, const std::string& prompt, const std::string& answer)
    {
        return RunOnTerminal(KELVAROCTL_PATH, WithModule(arguments), prompt, answer, &echoed, &echoAfter);
    }

    bool echoed = true;
    bool echoAfter = false;
};

TEST_F(TerminalTest, ASecretIsNotEchoed)
{
    const std::vector<std::string> set = {"config", "set", "ClientSecret", "--user"};
    const Ran ran = OnTerminal(set, "Client secret: ", "another~Secret.1\n");
    EXPECT_EQ(0, ran.exit) << ran.err;
    EXPECT_TRUE(!echoed && echoAfter);
    EXPECT_EQ(std::string::npos, ran.err.find("another~Secret.1"));
    EXPECT_EQ("ClientSecret of the user is protected\n", ran.out);
    echoAfter = false;
    EXPECT_EQ(-1, OnTerminal(set, "Client secret: ", "half a sec\x03").exit) << "by the signal";
    EXPECT_TRUE(!echoed && echoAfter);
}

TEST_F(TerminalTest, ADeletionAsksFirst)
{
    AddKey("p256", "P-256");
    const std::vector<std::string> command = {"keys", "delete", "p256"};
    const Ran no = OnTerminal(command, "Type yes: ", "no\n");
    EXPECT_EQ(1, no.exit);
    EXPECT_EQ("'p256' was not deleted\n", no.out);
    EXPECT_NE(std::string::npos, no.err.find("Delete the key 'p256' in the vault and purge it")) << no.err;
    EXPECT_TRUE(sim.Journal().empty()) << "no request reached the vault";
    root.SetNumber(HKEY_LOCAL_MACHINE, "DoDeletePurge", 1);
    const Ran yes = OnTerminal(command, "Type yes: ", "yes\n");
    EXPECT_EQ(0, yes.exit) << yes.err;
    EXPECT_NE(std::string::npos, yes.err.find("it can be recovered there for a time")) << yes.err;
    Run("5 keys show p256\n");
}

TEST_F(TerminalTest, AListingShowsItsProgress)
{
    AddKey("a", "P-256");
    AddKey("b", "P-256");
    const auto list = [&] { return OnTerminal({"keys", "list"}, "listing the vault", ""); };
    sim.Fault({{"path", "/keys?"}, {"action", "status"}, {"status", 403}});
    EXPECT_EQ(6, list().exit);  // shown before the vault has answered
    const Ran shown = list();
    EXPECT_EQ("a  -\nb  -\n", shown.out);
    EXPECT_EQ("\rlisting the vault\r1 key listed     \r2 keys listed    \r" + std::string(17, ' ') + "\r", shown.err);
    EXPECT_EQ("", Ctl({"keys", "list"}).err);
}

TEST_F(TerminalTest, AnInterruptedCommandLeavesNothingBehind)
{
    AddKey("p256", "P-256");
    WriteFile("data", "data");
    sim.Fault({{"path", "/keys"}, {"action", "delay"}, {"delayMs", 5000}, {"times", -1}});
    const Ran listing = OnTerminal({"keys", "list"}, "listing the vault", "\x03");
    EXPECT_EQ(-1, listing.exit) << "by the signal";
    EXPECT_EQ('\n', listing.err.back());
    // The output file exists while the tool waits for the vault.
    const std::string script =
        "\"$@\" & while kill -0 $! && [ ! -e \"$0\" ]; do sleep 0.01; done; kill -TERM $!; wait $!";
    std::vector<std::string> arguments =
        WithModule({"sign", "--key", "p256", "--alg", "ES256", "--in", File("data"), "--out", File("out")});
    arguments.insert(arguments.begin(), {"-c", script, File("out"), KELVAROCTL_PATH});
    EXPECT_EQ(128 + SIGTERM, RunProgram("/bin/sh", arguments, "").exit);
    EXPECT_FALSE(std::filesystem::exists(File("out")));
}

TEST_F(TerminalTest, AWaitIsAnnounced)
{
    struct Counter : std::stringbuf {
        std::atomic<int> lines{0};
        int sync() override { return ++lines, 0; }
    } counter;
    std::ostream out(&counter);
    using std::chrono::milliseconds;
    {
        kelvaroctl::WaitNotice notice(&out, {{milliseconds(1), "one"}, {milliseconds(2), "two"}});
        while (counter.lines < 2)
            std::this_thread::yield();
        notice.Restart();
        while (counter.lines < 4)
            std::this_thread::yield();
    }
    EXPECT_EQ("\rone\n\rtwo\n\rone\n\rtwo\n", counter.str());
    const auto lines = kelvaroctl::WaitLines("contoso.vault.azure.net");
    EXPECT_EQ(milliseconds(5000), lines[0].after);
    EXPECT_EQ("still waiting for contoso.vault.azure.net (up to 200 s)", lines[0].text);
}

}  // namespace

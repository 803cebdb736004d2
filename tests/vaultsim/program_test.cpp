// The program: command line, ready line, environment file, end.
#include <sys/wait.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <utility>

#include "tests/vaultsim/sim_test.h"
#include "vaultsim/files.h"
#include "vaultsim/options.h"

namespace {

// vaultsim as a child process; its standard output can be read by lines.
class Program {
  public:
    explicit Program(const std::string& arguments)
        : output_(popen(("echo $$; exec \"" VAULTSIM_PROGRAM "\" --quiet " + arguments).c_str(), "re"))
    {
        pid_ = std::stoi(ReadLine());
    }
    ~Program()
    {
        if (!output_)
            return;
        Signal(SIGKILL);
        Wait();
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    std::string ReadLine()
    {
        char line[1024] = "";
        return fgets(line, sizeof line, output_) ? line : "";
    }
    void Signal(int signal) const { kill(pid_, signal); }
    int Wait()  // its exit code, or -1
    {
        const int status = pclose(std::exchange(output_, nullptr));
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

  private:
    FILE* output_;
    pid_t pid_ = 0;
};

int PortIn(const std::string& line, const std::string& name)
{
    const size_t at = line.find(" " + name + "=");
    return at == std::string::npos ? -1 : std::atoi(line.c_str() + at + name.size() + 2);
}

}  // namespace

class ProgramTest : public testing::Test {
  protected:
    void SetUp() override
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "vaultsim-program-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        directory = pattern + "/it's here";
    }
    void TearDown() override { std::filesystem::remove_all(std::filesystem::path(directory).parent_path()); }
    std::string directory;
};

TEST_F(ProgramTest, ServesFromTheReadyLineUntilItIsStopped)
{
    Program program("--dir \"" + directory + "\" --vault fabrikam:standard --tenant t --arc");
    const std::string ready = program.ReadLine();
    const auto port = [&](const char* name) { return std::to_string(PortIn(ready, name)); };
    EXPECT_EQ(ready, "ready control=" + port("control") + " tls=" + port("tls") + " http=" + port("http") +
                         " arc=" + port("arc") + " dir=" + directory + "\n");
    const std::string environment = *vaultsim::ReadFile(directory + "/env");
    for (const std::string& line :
         {std::string("export KELVARO_ROOT='") + std::filesystem::path(directory).parent_path().string() +
              "/it'\\''s here/root'\n",
          "export KELVARO_CONNECT_TO=':443:127.0.0.1:" + port("tls") + " :80:127.0.0.1:" + port("http") +
              " :40342:127.0.0.1:" + port("arc") + "'\n",
          "export VAULTSIM_CONTROL='" + port("control") + "'\n", std::string("export VAULTSIM_TENANT='t'\n"),
          std::string("export IDENTITY_ENDPOINT='http://localhost:40342/metadata/identity/oauth2/token'\n")})
        EXPECT_NE(environment.find(line), std::string::npos) << line << environment;

    httplib::Client control("127.0.0.1", PortIn(ready, "control"));
    EXPECT_EQ(Json::parse(control.Get("/vaults/fabrikam")->body)["tier"], "standard");
    EXPECT_EQ(control.Post("/stop", "", "application/json")->status, 200);
    EXPECT_EQ(program.Wait(), 0);
}

TEST_F(ProgramTest, AnAuthorityIsKeptAndASignalEndsIt)
{
    std::string authority;
    for (int signal : {SIGTERM, SIGINT}) {
        Program program("--dir \"" + directory + "\"");
        ASSERT_NE(program.ReadLine(), "");
        const std::string now = *vaultsim::ReadFile(directory + "/ca.pem");
        EXPECT_TRUE(authority.empty() || authority == now);
        authority = now;
        program.Signal(signal);
        EXPECT_EQ(program.Wait(), 0);
    }
}

TEST(OptionsTest, AWrongCommandLineIsRefusedByName)
{
    const std::pair<std::vector<std::string>, const char*> rows[] = {
        {{}, "--dir"},
        {{"--dir"}, "--dir"},
        {{"--dir", "d", "--nope"}, "--nope"},
        {{"--dir", "d", "--listen-tls", "65536"}, "65536"},
        {{"--dir", "d", "--address", "1.2.3"}, "--address"},
        {{"--dir", "d", "--vault", "a:basic"}, "basic"},
        {{"--dir", "d", "--vault", "a", "b"}, "b"},
    };
    for (const auto& [arguments, text] : rows) {
        std::string help;
        try {
            vaultsim::ParseOptions(arguments, help);
            ADD_FAILURE() << text;
        } catch (const std::invalid_argument& error) {
            EXPECT_NE(std::string(error.what()).find(text), std::string::npos) << error.what();
        }
    }
}

TEST(OptionsTest, VaultsAddUpAndOtherOptionsTakeTheLast)
{
    std::string help;
    const vaultsim::Options given = vaultsim::ParseOptions(
        {"--dir", "a", "--dir", "b", "--vault", "one", "--vault", "two:standard", "--arc-port", "65535"}, help);
    EXPECT_EQ(given.directory, "b");
    EXPECT_EQ(given.arcPort, 65535);
    ASSERT_EQ(given.vaults.size(), 2u);
    EXPECT_TRUE(given.vaults[0].premium);
    EXPECT_EQ(given.vaults[1].name, "two");
    EXPECT_FALSE(given.vaults[1].premium);
    EXPECT_EQ(vaultsim::ParseOptions({"--dir", "d"}, help).vaults.at(0).name, "contoso-keys");
    EXPECT_TRUE(help.empty());
    vaultsim::ParseOptions({"--help"}, help);
    EXPECT_NE(help.find("--close-tls"), std::string::npos);
}

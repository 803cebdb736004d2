// Sign-in with the machine's managed identity: the metadata service and the challenge of a connected machine.
#ifndef _WIN32
#include <sys/stat.h>
#endif

#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/keyvault/client_fixture.h"

namespace {

const std::string kIdentityPath = "/metadata/identity/oauth2/token?resource=https://vault.azure.net";
const char* const kArcEndpoint = "http://localhost:40342/metadata/identity/oauth2/token";

// The raw answer of a connected machine's service.
std::string Challenge(const std::string& header)
{
    // It says that it closes the connection, or a client might use it again and meet its end.
    return "HTTP/1.1 401 Unauthorized\r\nConnection: close\r\nContent-Length: 7\r\n" + header + "\r\n\r\nrefused";
}

class ManagedIdentity : public ClientTest {
  protected:
    void SetUp() override
    {
        ClientTest::SetUp();
        WCHAR value[2048] = {};
        GetEnvironmentVariableW(TEXT("KELVARO_CONNECT_TO"), value, 2048);
        connectTo_ = Narrow(value);
        SetEndpoint(kArcEndpoint);
    }
    void TearDown() override
    {
        SetEndpoint("");
        SetEnvironmentVariableW(TEXT("KELVARO_CONNECT_TO"), Wide(connectTo_).c_str());
    }

    int SignInWithIdentity(const std::string& clientId = "")
    {
        Identity identity;
        identity.authn = KVC_AUTHN_MANAGED_IDENTITY;
        identity.clientId = clientId;
        return SignIn(NewClient(identity));
    }
    static void SetEndpoint(const std::string& url)
    {
        SetEnvironmentVariableW(TEXT("IDENTITY_ENDPOINT"), url.empty() ? nullptr : Wide(url).c_str());
    }
    // Leads port 8123 of any host to the metadata service.
    void OpenAnotherPort()
    {
        std::istringstream entries(connectTo_);
        for (std::string entry; entries >> entry;) {
            const size_t at = entry.find(":80:");
            if (at != std::string::npos)
                SetEnvironmentVariableW(TEXT("KELVARO_CONNECT_TO"),
                                        Wide(connectTo_ + " :8123:" + entry.substr(at + 4)).c_str());
        }
    }
    std::string WriteSecret(const std::string& name, const std::string& content)
    {
        const std::string path = (std::filesystem::path(root.directory()) / name).string();
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }
    // The next answers of the connected machine's service.
    void ChallengeWith(const std::string& header, int times = 1)
    {
        sim.Fault({{"host", "localhost"}, {"action", "raw"}, {"raw", Challenge(header)}, {"times", times}});
    }
    void ChallengeWithFile(const std::string& path, int times = 1)
    {
        ChallengeWith("WWW-Authenticate: Basic realm=" + path, times);
    }

  private:
    std::string connectTo_;
};

TEST_F(ManagedIdentity, TheEndpointFollowsTheEnvironment)
{
    OpenAnotherPort();
    const std::string machine = kIdentityPath + "&api-version=2018-02-01";
    const std::string fixed = "169.254.169.254 http";
    const std::string other = "http://identity.example:8123/";
    const std::string arc = kIdentityPath + "&api-version=2020-06-01";
    const struct {
        const char* name;
        std::string endpoint;
        std::string where;  // host and listener
        std::string target;
        std::string clientId = "";
    } rows[] = {
        {"a virtual machine", "", fixed, machine},
        {"a client id selects the identity", "", fixed, machine + "&client_id=" + Simulator::kClientId,
         Simulator::kClientId},
        {"a connected machine", kArcEndpoint, "localhost arc", arc},
        {"another port", other + "any/path?q=1", "identity.example http", machine},
        {"the path of the variable is not used", "http://localhost:40342", "localhost arc", arc},
        {"no URL", "not a URL", fixed, machine},
        {"499 characters are taken", other + std::string(470, 'p'), "identity.example http", machine},
        {"500 characters are too many", other + std::string(471, 'p'), fixed, machine},
        {"a host of more than its room", "http://" + std::string(201, 'h') + ":40342/", fixed, machine},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        sim.ClearJournal();
        SetEndpoint(row.endpoint);
        EXPECT_EQ(1, SignInWithIdentity(row.clientId));
        const nlohmann::json request = Requests("/metadata/identity/oauth2/token").at(0);
        EXPECT_EQ("GET", request["method"]);
        EXPECT_EQ(row.where, request.value("host", "") + " " + request.value("listener", ""));
        EXPECT_EQ(row.target, request["target"]);
        EXPECT_EQ(Strings{"Metadata: True"}, CallerLines(request));
    }
}

TEST_F(ManagedIdentity, AConnectedMachineProvesItselfWithTheSecretFile)
{
    Identity identity;
    identity.authn = KVC_AUTHN_MANAGED_IDENTITY;
    const ClientPtr client = NewClient(identity);
    // A service that starts late challenges without a file first, and is asked again.
    ChallengeWith("X-Nothing: here", 3);
    ASSERT_EQ(1, SignIn(client));
    EXPECT_EQ(Waits(4, 1000), clock.Waits());
    const auto journal = sim.Journal();
    ASSERT_EQ(5u, journal.size());
    EXPECT_EQ(401, journal[3]["status"]);
    EXPECT_EQ(journal[3]["target"], journal[4]["target"]);
    EXPECT_EQ(Strings{"Metadata: True"}, CallerLines(journal[3]));
    const Strings lines = CallerLines(journal[4]);
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("Metadata: True", lines[0]);
    EXPECT_EQ(0u, lines[1].find("Authorization: Basic ")) << lines[1];
    EXPECT_EQ(std::string::npos, root.WholeLog().find(lines[1].substr(21))) << "the secret is not logged";
    EXPECT_EQ(1, ListKeys(client));
}

TEST_F(ManagedIdentity, AChallengeThatCannotBeMetEndsTheMethod)
{
    const std::string longPath = "/" + std::string(259, 'p');
    const std::string tooLong = WriteSecret("toolong.key", std::string(2000, 's'));
    const std::string secret = WriteSecret("good.key", "secret");
    const std::string folder = root.directory() + secret[secret.size() - sizeof("good.key")];
    std::filesystem::create_directory(folder + "inside");
    std::vector<std::pair<const char*, std::string>> rows = {
        {"no such file", "/no/such/file.key"},
        {"a path beyond the buffer", longPath},
        {"a file beyond the buffer", tooLong},
        {"a share", R"(\\server\share\file.key)"},
        {"a share in the other notation", "/" + secret},
        {"a pipe", R"(\\.\pipe\name)"},
        {"a device path to the file", R"(\\?\)" + secret},
        {"a way up", folder + "inside/../good.key"},
        {"a relative path", "good.key"},
        {"relative to a drive", "C:good.key"},
        {"no path", ""},
        {"a folder", folder + "inside"},
    };
#ifndef _WIN32
    ASSERT_EQ(0, mkfifo((folder + "waiting.key").c_str(), 0600));
    rows.push_back({"a FIFO", folder + "waiting.key"});
#endif
    for (const auto& [name, path] : rows) {
        SCOPED_TRACE(name);
        sim.ClearJournal();
        root.ClearLog();
        ChallengeWithFile(path);
        EXPECT_EQ(0, SignInWithIdentity());
        EXPECT_EQ(1u, sim.Journal().size());
        EXPECT_TRUE(root.Logged(
            "KVCAuthenticate MSIAuthenticate failure - Could not open secret file " + path.substr(0, 259), 1));
        EXPECT_TRUE(root.Logged("KVCAuthenticate MSIAuthenticate failure - Return Code Error 0x191", 1));
        EXPECT_TRUE(root.Logged("KVCAuthenticate MSIAuthenticate failure - Return String refused", 1));
    }
    EXPECT_TRUE(clock.Waits().empty());
}

TEST_F(ManagedIdentity, TheSecretGoesOutAsTheFileHasItAndASecondRefusalIsFinal)
{
    const std::string secret(1999, 's');
    ChallengeWithFile(WriteSecret("long.key", secret), -1);
    EXPECT_EQ(0, SignInWithIdentity());
    const auto journal = sim.Journal();
    ASSERT_EQ(2u, journal.size());
    EXPECT_EQ("Basic " + secret, HeaderOf(journal[1], "Authorization"));
    EXPECT_EQ(1u, LinesWith("Return Code Error 0x191"));
}

// Nothing is trimmed: a line end stays in the header, and what follows it is another line.
TEST_F(ManagedIdentity, LineEndsOfTheSecretFileGoIntoTheHeader)
{
    const Row<const char*, Strings> rows[] = {
#ifndef _WIN32  // WinHTTP reads header lines on its own
        {"secret\n", {"Metadata: True", "Authorization: Basic secret\n"}},
#endif
        {"secret\r\n", {"Metadata: True", "Authorization: Basic secret"}},
        {"secret\r\nX-Second: line\r\n", {"Metadata: True", "Authorization: Basic secret", "X-Second: line"}},
    };
    for (const auto& [secret, lines] : rows) {
        ChallengeWithFile(WriteSecret("lines.key", secret));
        Answer("/metadata", 200, R"({"token_type":"Bearer","access_token":"abc"})");
        EXPECT_EQ(1, SignInWithIdentity());
        EXPECT_EQ(lines, CallerLines(sim.Journal().back()));
    }
}

TEST_F(ManagedIdentity, AServiceWithoutRealmIsAskedForFourMinutes)
{
    SetLogging(1);
    ChallengeWith("X-Nothing: here", -1);
    const int before = sim.Control("GET", "/counts").value("requests", 0);
    EXPECT_EQ(0, SignInWithIdentity());
    EXPECT_EQ(241, sim.Control("GET", "/counts").value("requests", 0) - before);
    EXPECT_EQ(Waits(241, 1000), clock.Waits());
    EXPECT_EQ(0u, LinesWith("Return Code"));
}

TEST_F(ManagedIdentity, AnswersOfTheMetadataService)
{
    const auto status = [](int code, const char* body) {
        return nlohmann::json{{"action", "status"}, {"status", code}, {"body", body}};
    };
    OpenAnotherPort();
    const nlohmann::json unmet = {{"action", "raw"}, {"raw", Challenge("WWW-Authenticate: Basic realm=/etc/hostname")}};
    const nlohmann::json silence = {{"action", "reset-before"}, {"times", 10}};
    const struct {
        const char* name;
        nlohmann::json fault;
        int result;
        const char* line;  // the end of the error, if there is one
        std::string endpoint = "";
    } rows[] = {
        {"a type alone is a success", status(200, R"({"token_type":"Bearer"})"), 1, nullptr},
        {"a token alone is a success", status(200, R"({"access_token":"abc"})"), 1, nullptr},
        {"no JSON", status(200, "<html>"), 0, nullptr},
        {"a challenge on the default port", unmet, 0, "Code Error 0x191"},
        {"a challenge on a port that was named", unmet, 0, "Code Error 0x191", "http://localhost:8123/"},
        {"identity not found", status(400, R"({"error":"x"})"), 0, R"(String {"error":"x"})"},
        {"no answer", silence, 0, "Code Error 0x0"},
        {"no answer on the connected machine", silence, 0, "Code Error 0x0", kArcEndpoint},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        sim.Control("DELETE", "/faults");
        root.ClearLog();
        SetEndpoint(row.endpoint);
        nlohmann::json fault = row.fault;
        fault["path"] = "/metadata";
        sim.Fault(fault);
        EXPECT_EQ(row.result, SignInWithIdentity());
        EXPECT_EQ(row.line ? 1u : 0u, LinesWith("failure - Return Code"));
        EXPECT_TRUE(!row.line || LinesWith(std::string("failure - Return ") + row.line + " 1") == 1);
        EXPECT_EQ(0u, LinesWith("Arc Retry"));
    }
}

}  // namespace

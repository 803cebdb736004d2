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
    // It announces that it closes the connection, or a client might reuse it.
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
    // Redirects port 8123 of any host to the metadata service.
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
    std::string WriteSecret(const std::string& content)
    {
        const std::string path = (std::filesystem::path(root.directory()) / "secret.key").string();
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
    // where: host and listener
    const Row<const char*, std::string, std::string, std::string, std::string> rows[] = {
        {"a virtual machine", "", "", fixed, machine},
        {"a client id selects the identity", "", Simulator::kClientId, fixed,
         machine + "&client_id=" + Simulator::kClientId},
        {"a connected machine", kArcEndpoint, "", "localhost arc", arc},
        {"another port", other + "any/path?q=1", "", "identity.example http", machine},
        {"the variable's path is not used", "http://localhost:40342", "", "localhost arc", arc},
        {"not a URL", "not a URL", "", fixed, machine},
        {"499 characters", other + std::string(470, 'p'), "", "identity.example http", machine},
        {"500 characters are too many", other + std::string(471, 'p'), "", fixed, machine},
        {"a host longer than its buffer", "http://" + std::string(201, 'h') + ":40342/", "", fixed, machine},
    };
    for (const auto& [name, endpoint, clientId, where, target] : rows) {
        SCOPED_TRACE(name);
        sim.ClearJournal();
        SetEndpoint(endpoint);
        EXPECT_EQ(1, SignInWithIdentity(clientId));
        const nlohmann::json request = Requests("/metadata/identity/oauth2/token").at(0);
        EXPECT_EQ("GET", request["method"]);
        EXPECT_EQ(where, request.value("host", "") + " " + request.value("listener", ""));
        EXPECT_EQ(target, request["target"]);
        EXPECT_EQ(Strings{"Metadata: True"}, CallerLines(request));
    }
}

// A service that is still starting sends challenges without a file first, and is asked again.
TEST_F(ManagedIdentity, AConnectedMachineIdentifiesItselfWithTheSecretFile)
{
    Identity identity;
    identity.authn = KVC_AUTHN_MANAGED_IDENTITY;
    const ClientPtr client = NewClient(identity);
    ChallengeWith("X-Nothing: here", 3);
    ASSERT_EQ(1, SignIn(client));
    EXPECT_EQ(Waits(4, 1000), clock.Waits());
    const auto journal = sim.Journal();
    ASSERT_EQ(5u, journal.size());
    EXPECT_EQ(journal[3]["target"], journal[4]["target"]);
    EXPECT_EQ(Strings{"Metadata: True"}, CallerLines(journal[3]));
    const Strings lines = CallerLines(journal[4]);
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ(0u, lines[1].find("Authorization: Basic ")) << lines[1];
    EXPECT_EQ(std::string::npos, root.WholeLog().find(lines[1].substr(21))) << "the secret is not logged";
    EXPECT_EQ(1, ListKeys(client));

    ChallengeWith("X-Nothing: here", -1);
    SetLogging(1);
    clock.ClearWaits();
    EXPECT_EQ(0, SignInWithIdentity());
    EXPECT_EQ(Waits(241, 1000), clock.Waits()) << "for four minutes";
}

TEST_F(ManagedIdentity, AChallengeThatCannotBeMetEndsTheMethod)
{
    const std::string secret = WriteSecret("secret");
    const std::string folder = secret.substr(0, secret.size() - strlen("secret.key"));
    std::filesystem::create_directory(folder + "inside");
    std::vector<std::string> paths = {"",
                                      "/no/such/file.key",
                                      "/" + std::string(259, 'p'),
                                      R"(\\server\share\file.key)",
                                      "/" + secret,  // a share, too
                                      R"(\\.\pipe\name)",
                                      R"(\\?\)" + secret,
                                      folder + "inside/../secret.key",
                                      "secret.key",
                                      "C:secret.key",
                                      folder + "inside"};
#ifndef _WIN32
    paths.push_back(folder + "waiting.key");
    ASSERT_EQ(0, mkfifo(paths.back().c_str(), 0600));
#endif
    for (const std::string& path : paths) {
        SCOPED_TRACE(path);
        sim.ClearJournal();
        ChallengeWithFile(path);
        EXPECT_EQ(0, SignInWithIdentity());
        EXPECT_EQ(1u, sim.Journal().size());
    }
    EXPECT_TRUE(clock.Waits().empty());
}

// Nothing is trimmed: a line end is sent in the header, and what follows it is another line.
TEST_F(ManagedIdentity, TheSecretIsSentAsTheFileHasItAndASecondRefusalIsFinal)
{
    const std::string longest(1999, 's');
    const std::pair<std::string, Strings> rows[] = {
        {longest, {"Authorization: Basic " + longest}},
        {longest + "s", {}},
#ifndef _WIN32  // WinHTTP parses header lines
        {"secret\n", {"Authorization: Basic secret\n"}},
#endif
        {"secret\r\n", {"Authorization: Basic secret"}},
        {"secret\r\nX-Second: line\r\n", {"Authorization: Basic secret", "X-Second: line"}},
    };
    for (auto [secret, lines] : rows) {
        sim.ClearJournal();
        ChallengeWithFile(WriteSecret(secret), 2);
        EXPECT_EQ(0, SignInWithIdentity());
        EXPECT_EQ(lines.empty() ? 1u : 2u, sim.Journal().size());
        lines.insert(lines.begin(), "Metadata: True");
        EXPECT_EQ(lines, CallerLines(sim.Journal().back()));
        sim.Control("DELETE", "/faults");
    }
}

TEST_F(ManagedIdentity, AnswersOfTheMetadataService)
{
    const auto status = [](int code, const char* body) {
        return nlohmann::json{{"action", "status"}, {"status", code}, {"body", body}};
    };
    OpenAnotherPort();
    const nlohmann::json unmet = {{"action", "raw"}, {"raw", Challenge("WWW-Authenticate: Basic realm=/etc/hostname")}};
    const nlohmann::json silence = {{"action", "reset-before"}, {"times", 10}};
    // line: the end of the logged error, NULL if there is none
    const Row<const char*, std::string, nlohmann::json, int, const char*> rows[] = {
        {"a type alone is a success", "", status(200, R"({"token_type":"Bearer"})"), 1, nullptr},
        {"a token alone is a success", "", status(200, R"({"access_token":"abc"})"), 1, nullptr},
        {"not JSON", "", status(200, "<html>"), 0, nullptr},
        {"a challenge on the default port", "", unmet, 0, "Code Error 0x191"},
        {"a challenge on a port that was named", "http://localhost:8123/", unmet, 0, "Code Error 0x191"},
        {"identity not found", "", status(400, R"({"error":"x"})"), 0, R"(String {"error":"x"})"},
        {"no answer", "", silence, 0, "Code Error 0x0"},
        {"no answer on the connected machine", kArcEndpoint, silence, 0, "Code Error 0x0"},
    };
    for (const auto& [name, endpoint, answer, result, line] : rows) {
        SCOPED_TRACE(name);
        sim.Control("DELETE", "/faults");
        root.ClearLog();
        SetEndpoint(endpoint);
        nlohmann::json fault = answer;
        fault["path"] = "/metadata";
        sim.Fault(fault);
        EXPECT_EQ(result, SignInWithIdentity());
        EXPECT_EQ(line ? 1u : 0u,
                  LinesWith(line ? std::string("failure - Return ") + line + " 1" : "failure - Return"));
    }
}

}  // namespace

// Sign-in with the machine's managed identity: the metadata service and the challenge of a connected machine.
#ifndef _WIN32
#include <sys/stat.h>
#endif

#include <filesystem>
#include <fstream>

#include "tests/keyvault/client_fixture.h"

namespace {

const std::string kIdentityPath = "/metadata/identity/oauth2/token?resource=https://vault.azure.net";
const char* const kArcEndpoint = "http://localhost:40342/metadata/identity/oauth2/token";

std::string Challenge(const std::string& realmLine)
{
    // It says that it closes the connection: a client may use it again else, and meets its end.
    return "HTTP/1.1 401 Unauthorized\r\nConnection: close\r\nContent-Length: 7\r\n" + realmLine + "\r\n\r\nrefused";
}

class ManagedIdentity : public ClientTest {
  protected:
    ClientPtr Client(const std::string& clientId = "")
    {
        Identity identity;
        identity.authn = KVC_AUTHN_MANAGED_IDENTITY;
        identity.clientId = clientId;
        return NewClient(identity);
    }
    void SetEndpoint(const std::string& url)
    {
        SetEnvironmentVariableW(TEXT("IDENTITY_ENDPOINT"), url.empty() ? nullptr : Wide(url).c_str());
    }
    std::string WriteSecret(const std::string& name, const std::string& content)
    {
        const std::string path = (std::filesystem::path(root.directory()) / name).string();
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }
    // What every Arc request is answered with from now on.
    void AnswerArc(const std::string& raw, int times = 1)
    {
        sim.Fault({{"host", "localhost"}, {"path", "/metadata"}, {"action", "raw"}, {"raw", raw}, {"times", times}});
    }
};

TEST_F(ManagedIdentity, TheEndpointFollowsTheEnvironment)
{
    AlsoConnect(":8123:" + ConnectTarget(":80:"));
    const std::string machine = kIdentityPath + "&api-version=2018-02-01";
    const std::string fixed = "169.254.169.254 http";
    const std::string other = "http://identity.example:8123/";
    const std::string arc = kIdentityPath + "&api-version=2020-06-01";
    const struct {
        const char* story;
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
        SCOPED_TRACE(row.story);
        sim.ClearJournal();
        SetEndpoint(row.endpoint);
        const ClientPtr kvc = Client(row.clientId);
        EXPECT_EQ(1, SignIn(kvc));
        const auto requests = Requests("/metadata/identity/oauth2/token");
        ASSERT_FALSE(requests.empty());
        EXPECT_EQ("GET", requests[0]["method"]);
        EXPECT_EQ(row.where, requests[0].value("host", "") + " " + requests[0].value("listener", ""));
        EXPECT_EQ(row.target, requests[0]["target"]);
        EXPECT_EQ(Strings{"Metadata: True"}, CallerLines(requests[0]));
    }
}

TEST_F(ManagedIdentity, AConnectedMachineProvesItselfWithTheSecretFile)
{
    SetEndpoint(kArcEndpoint);
    const ClientPtr kvc = Client();
    root.ClearLog();
    ASSERT_EQ(1, SignIn(kvc));
    EXPECT_EQ(Waits{1000}, clock.Waits());
    const auto journal = sim.Journal();
    ASSERT_EQ(2u, journal.size());
    EXPECT_EQ(401, journal[0]["status"]);
    EXPECT_EQ(journal[0]["target"], journal[1]["target"]);
    EXPECT_EQ(Strings{"Metadata: True"}, CallerLines(journal[0]));
    const Strings lines = CallerLines(journal[1]);
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("Metadata: True", lines[0]);
    EXPECT_EQ(0u, lines[1].find("Authorization: Basic ")) << lines[1];
    EXPECT_EQ((Strings{"KVCAuthenticate contoso-keys 8", "KVCAuthenticate KVCKeyCert kvc->authn 1 8",
                       "KVCAuthenticate MSIAuthenticate - Found IDENTITY_ENDPOINT Environment " +
                           std::string(kArcEndpoint) + " 8",
                       "KVCAuthenticate MSIAuthenticate - Found Host localhost 8",
                       "KVCAuthenticate MSIAuthenticate - Azure or Arc VM contoso-keys 8", "KVCDoWebCall 8",
                       "KVCAuthenticate MSIAuthenticate Arc Retry 8", "KVCDoWebCall 8"}),
              root.LogLines());
    EXPECT_EQ(std::string::npos, root.WholeLog().find(lines[1].substr(21))) << "the secret is not logged";
    EXPECT_EQ(1, ListKeys(kvc));
}

// Challenges that cannot be met end the method with the two lines about the answer.
TEST_F(ManagedIdentity, AChallengeThatCannotBeMetEndsTheMethod)
{
    SetEndpoint(kArcEndpoint);
    const std::string longPath = "/" + std::string(259, 'p');
    const std::string tooLong = WriteSecret("toolong.key", std::string(2000, 's'));
    const std::string secret = WriteSecret("good.key", "secret");
    const std::string folder = root.directory() + secret[secret.size() - sizeof("good.key")];
    std::filesystem::create_directory(folder + "inside");
#ifndef _WIN32
    ASSERT_EQ(0, mkfifo((folder + "waiting.key").c_str(), 0600));
#endif
    const struct {
        const char* story;
        std::string realm;
        std::string path;
    } rows[] = {
        {"no such file", "/no/such/file.key", "/no/such/file.key"},
        {"a path beyond the buffer", longPath, longPath.substr(0, 259)},
        {"a file beyond the buffer", tooLong, tooLong},
        {"a share", R"(\\server\share\file.key)", R"(\\server\share\file.key)"},
        {"a share in the other notation", "/" + secret, "/" + secret},
        {"a pipe", R"(\\.\pipe\name)", R"(\\.\pipe\name)"},
        {"a device path to the file", R"(\\?\)" + secret, R"(\\?\)" + secret},
        {"a way up", folder + "inside/../good.key", folder + "inside/../good.key"},
        {"a relative path", "good.key", "good.key"},
        {"relative to a drive", "C:good.key", "C:good.key"},
        {"no path", "", ""},
        {"a folder", folder + "inside", folder + "inside"},
#ifndef _WIN32
        {"a FIFO", folder + "waiting.key", folder + "waiting.key"},
#endif
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.story);
        sim.ClearJournal();
        root.ClearLog();
        AnswerArc(Challenge("WWW-Authenticate: Basic realm=" + row.realm));
        const ClientPtr kvc = Client();
        EXPECT_EQ(0, SignIn(kvc));
        EXPECT_EQ(1u, sim.Journal().size());
        EXPECT_TRUE(root.Logged("KVCAuthenticate MSIAuthenticate failure - Could not open secret file " + row.path, 1));
        EXPECT_TRUE(root.Logged("KVCAuthenticate MSIAuthenticate failure - Return Code Error 0x191", 1));
        EXPECT_TRUE(root.Logged("KVCAuthenticate MSIAuthenticate failure - Return String refused", 1));
        EXPECT_TRUE(root.Logged("KVCAuthenticate Logon failure contoso-keys", 1));
    }
    EXPECT_TRUE(clock.Waits().empty());
}

TEST_F(ManagedIdentity, TheSecretGoesOutAsTheFileHasItAndASecondRefusalIsFinal)
{
    SetEndpoint(kArcEndpoint);
    const std::string secret(1999, 's');
    AnswerArc(Challenge("WWW-Authenticate: Basic realm=" + WriteSecret("long.key", secret)), -1);
    const ClientPtr kvc = Client();
    EXPECT_EQ(0, SignIn(kvc));
    const auto journal = sim.Journal();
    ASSERT_EQ(2u, journal.size());
    EXPECT_EQ("Basic " + secret, HeaderOf(journal[1], "Authorization"));
    EXPECT_EQ(1u, LinesWith("Arc Retry"));
    EXPECT_EQ(1u, LinesWith("Return Code Error 0x191"));
}

// Nothing is trimmed: a line end stays in the header, and what follows it is another line.
TEST_F(ManagedIdentity, LineEndsOfTheSecretFileGoIntoTheHeader)
{
    SetEndpoint(kArcEndpoint);
    const struct {
        const char* story;
        const char* secret;
        Strings lines;
    } rows[] = {
#ifndef _WIN32  // WinHTTP reads header lines on its own
        {"a line feed", "secret\n", {"Authorization: Basic secret\n"}},
#endif
        {"the platform's line end", "secret\r\n", {"Authorization: Basic secret"}},
        {"a second line", "secret\r\nX-Second: line\r\n", {"Authorization: Basic secret", "X-Second: line"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.story);
        sim.ClearJournal();
        AnswerArc(Challenge("WWW-Authenticate: Basic realm=" + WriteSecret("lines.key", row.secret)));
        Answer("/metadata", 200, R"({"token_type":"Bearer","access_token":"abc"})");
        const ClientPtr kvc = Client();
        EXPECT_EQ(1, SignIn(kvc));
        const auto journal = sim.Journal();
        ASSERT_EQ(2u, journal.size());
        const Strings lines = CallerLines(journal[1]);
        EXPECT_EQ(row.lines, Strings(lines.begin() + 1, lines.end()));
    }
}

TEST_F(ManagedIdentity, AServiceWithoutRealmIsAskedForFourMinutes)
{
    SetEndpoint(kArcEndpoint);
    SetLogging(1);
    AnswerArc(Challenge("X-Nothing: here"), -1);
    const int before = sim.Control("GET", "/counts").value("requests", 0);
    const ClientPtr kvc = Client();
    EXPECT_EQ(0, SignIn(kvc));
    EXPECT_EQ(241, sim.Control("GET", "/counts").value("requests", 0) - before);
    EXPECT_EQ(Waits(241, 1000), clock.Waits());
    EXPECT_EQ(241u, LinesWith("KVCAuthenticate MSIAuthenticate failure - Could not find Arc Basic realm 2"));
    EXPECT_EQ(0u, LinesWith("Return Code"));
}

TEST_F(ManagedIdentity, AServiceThatStartsLateIsServedAfterAll)
{
    SetEndpoint(kArcEndpoint);
    AnswerArc(Challenge("X-Nothing: here"), 3);
    const ClientPtr kvc = Client();
    EXPECT_EQ(1, SignIn(kvc));
    EXPECT_EQ(Waits(4, 1000), clock.Waits());
}

TEST_F(ManagedIdentity, AnswersOfTheMetadataService)
{
    const auto status = [](int code, const char* body) {
        return nlohmann::json{{"action", "status"}, {"status", code}, {"body", body}};
    };
    const std::string failure = "KVCAuthenticate MSIAuthenticate failure - Return ";
    AlsoConnect(":8123:" + ConnectTarget(":80:"));
    const nlohmann::json unmet = {{"action", "raw"}, {"raw", Challenge("WWW-Authenticate: Basic realm=/etc/hostname")}};
    const nlohmann::json silence = {{"action", "reset-before"}, {"times", 10}};
    const struct {
        const char* story;
        nlohmann::json fault;
        int result;
        std::string line;
        std::string endpoint = "";
    } rows[] = {
        {"a type alone is a success", status(200, R"({"token_type":"Bearer"})"), 1, ""},
        {"a token alone is a success", status(200, R"({"access_token":"abc"})"), 1, ""},
        {"no JSON", status(200, "<html>"), 0, ""},
        {"a challenge on the default port", unmet, 0, failure + "Code Error 0x191"},
        {"a challenge on a port that was named", unmet, 0, failure + "Code Error 0x191", "http://localhost:8123/"},
        {"identity not found", status(400, R"({"error":"x"})"), 0, failure + R"(String {"error":"x"})"},
        {"no answer", silence, 0, failure + "Code Error 0x0"},
        {"no answer on the connected machine", silence, 0, failure + "Code Error 0x0", kArcEndpoint},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.story);
        sim.Control("DELETE", "/faults");
        root.ClearLog();
        SetEndpoint(row.endpoint);
        nlohmann::json fault = row.fault;
        fault["path"] = "/metadata";
        sim.Fault(fault);
        const ClientPtr kvc = Client();
        EXPECT_EQ(row.result, SignIn(kvc));
        EXPECT_EQ(row.line.empty() ? 0u : 1u, LinesWith("failure - Return Code"));
        EXPECT_TRUE(row.line.empty() || root.Logged(row.line, 1)) << root.WholeLog();
        EXPECT_EQ(0u, LinesWith("Arc Retry"));
    }
}

}  // namespace

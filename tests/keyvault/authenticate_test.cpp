// Sign-in with client credentials, its renewal, and the vault name that follows the identity.
#include <algorithm>
#include <cctype>

#include "tests/keyvault/client_fixture.h"

namespace {

const std::string kTokenPath = std::string("/") + Simulator::kTenant + "/oauth2/token";

std::string Coded(const std::string& text)
{
    return Base64Url(Bytes(text.begin(), text.end()));
}

std::string FakeToken(const std::string& claims)
{
    return "head." + Coded(claims) + ".signature";
}

class Authenticate : public ClientTest {
  protected:
    void ExpectForm(const Identity& identity, const std::string& tail)
    {
        sim.ClearJournal();
        const ClientPtr kvc = NewClient(identity);
        SignIn(kvc);
        const auto requests = Requests("/t/oauth2/token");
        ASSERT_EQ(1u, requests.size());
        EXPECT_EQ("resource=https://vault.azure.net&grant_type=client_credentials&client_id=" + tail,
                  requests[0]["body"]);
    }
};

TEST_F(Authenticate, ClientCredentialsArePostedAndTheTokenIsKept)
{
    const ClientPtr kvc = NewClient();
    root.ClearLog();
    ASSERT_EQ(1, SignIn(kvc));
    EXPECT_EQ("Bearer", TextOf(kvc->tokenType));
    EXPECT_EQ("https://login.microsoftonline.com/" + std::string(Simulator::kTenant), TextOf(kvc->loginUrl));
    EXPECT_EQ("https://vault.azure.net", TextOf(kvc->resource));

    const auto requests = Requests("oauth2/token");
    ASSERT_EQ(1u, requests.size());
    EXPECT_EQ("POST", requests[0]["method"]);
    EXPECT_EQ("login.microsoftonline.com", requests[0]["host"]);
    EXPECT_EQ(kTokenPath, requests[0]["target"]);
    EXPECT_EQ("resource=https://vault.azure.net&grant_type=client_credentials&client_id=" +
                  std::string(Simulator::kClientId) + "&client_secret=" + Simulator::kClientSecret,
              requests[0]["body"]);
    ExpectLinesAndId(requests[0], {"Content-Type: application/x-www-form-urlencoded", "Accept: application/json",
                                   "return-client-request-id: true"});

    EXPECT_EQ((Strings{"KVCAuthenticate contoso-keys 8", "KVCAuthenticate KVCKeyCert kvc->authn 2 8",
                       "KVCAuthenticate KVCKeyCert contoso-keys 8", "KVCGetLoginUrl called contoso-keys 8",
                       "KVCGetLoginUrl Success https://login.microsoftonline.com/" + std::string(Simulator::kTenant) +
                           " https://vault.azure.net 10",
                       "KVCDoWebCall 8"}),
              root.LogLines());
    EXPECT_EQ(1, ListKeys(kvc)) << "the vault takes the token";
}

TEST_F(Authenticate, TheHourBeginsBeforeTheSignInAndNotWithItsEnd)
{
    const ClientPtr kvc = NewClient();
    sim.Control("PUT", "/listener", {{"name", "tls"}, {"mode", "down"}});
    clock.OnSleep([this](DWORD, size_t index) {
        if (index == 3)
            sim.Control("PUT", "/listener", {{"name", "tls"}, {"mode", "up"}});
    });
    ASSERT_EQ(1, SignIn(kvc));
    EXPECT_EQ((Waits{20000, 200, 20000, 200}), clock.Waits());
    clock.Advance(3600 - 40 - 1);
    EXPECT_EQ(1, SignIn(kvc));
    EXPECT_EQ(1u, Requests("oauth2/token").size());
    clock.Advance(1);
    EXPECT_EQ(1, SignIn(kvc));
    const auto requests = Requests("oauth2/token");
    ASSERT_EQ(2u, requests.size());
    EXPECT_NE(HeaderOf(requests[0], "client-request-id"), HeaderOf(requests[1], "client-request-id"));
}

TEST_F(Authenticate, TheFormIsNotEncoded)
{
    ExpectForm({"v", 2, "t", "app", ""}, "app");
    ExpectForm({"v", 2, "t", "a+p&p", "s&e+c=r%t"}, "a+p&p&client_secret=s&e+c=r%t");
    const std::string longest(511, 's');
    ExpectForm({"v", 2, "t", "app", longest}, "app&client_secret=" + longest);
}

TEST_F(Authenticate, TheFormHasLettersBeyondAsciiAsUtf8)
{
    ExpectForm({"v", 2, "t", "app", "gr\xC3\xBC\xC3\x9F"}, "app&client_secret=gr\xC3\xBC\xC3\x9F");
}

TEST_F(Authenticate, TheMethodFlagsSayWhatIsTried)
{
    const struct {
        DWORD authn;
        const char* secret;
        int result;
        size_t posts;
        size_t metadataCalls;
    } rows[] = {
        {1, Simulator::kClientSecret, 1, 0, 1},
        {2, Simulator::kClientSecret, 1, 1, 0},
        {2, "wrong", 0, 1, 0},
        {3, Simulator::kClientSecret, 1, 1, 0},
        {3, "wrong", 1, 1, 1},
        {4, Simulator::kClientSecret, 0, 0, 0},
        {6, Simulator::kClientSecret, 1, 1, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "authn " << row.authn << " secret " << row.secret);
        sim.ClearJournal();
        root.ClearLog();
        Identity identity;
        identity.authn = row.authn;
        identity.secret = row.secret;
        const ClientPtr kvc = NewClient(identity);
        EXPECT_EQ(row.result, SignIn(kvc));
        EXPECT_EQ(row.posts, Requests(kTokenPath).size());
        EXPECT_EQ(row.metadataCalls, Requests("/metadata/identity/oauth2/token").size());
        EXPECT_EQ(row.result == 0, root.Logged("KVCAuthenticate Logon failure contoso-keys", 1));
        const bool refused = row.secret == std::string("wrong");
        EXPECT_EQ(refused, root.Logged("KVCAuthenticate KVCDoWebCall failure Error 0x1", 1));
        EXPECT_EQ(std::string::npos, root.WholeLog().find("invalid_client")) << "the answer is not logged";
    }
}

TEST_F(Authenticate, WhatAnAnswerLacksIsNotMadeUp)
{
    const struct {
        const char* story;
        int status;
        const char* body;
        int result;
        const char* tokenType;
        const char* accessToken;
    } rows[] = {
        {"no JSON", 200, "<html>", 0, "(NULL)", "(NULL)"},
        {"an empty entity", 200, "", 0, "(NULL)", "(NULL)"},
        {"an array", 200, "[1]", 0, "(NULL)", "(NULL)"},
        {"no token", 200, R"({"token_type":"Pop"})", 0, "Pop", "(NULL)"},
        {"no type", 200, R"({"access_token":"abc"})", 1, "(NULL)", "abc"},
        {"a null token", 200, R"({"access_token":null,"token_type":"Pop"})", 0, "Pop", "(NULL)"},
        {"a line break in the token", 200, R"({"access_token":"abc\r\nX: y","token_type":"Pop"})", 0, "(NULL)",
         "(NULL)"},
        {"a blank in the type", 200, R"({"access_token":"abc","token_type":"P p"})", 0, "(NULL)", "(NULL)"},
        {"a letter beyond ASCII", 200, R"({"access_token":"ab\u00e7","token_type":"Pop"})", 0, "(NULL)", "(NULL)"},
        {"a zero inside the token", 200, R"({"access_token":"ab\u0000c","token_type":"Pop"})", 0, "(NULL)", "(NULL)"},
        {"a wrong status", 201, R"({"access_token":"abc","token_type":"Pop"})", 0, "(NULL)", "(NULL)"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.story);
        Answer("oauth2/token", row.status, row.body);
        root.ClearLog();
        const ClientPtr kvc = NewClient();
        EXPECT_EQ(row.result, SignIn(kvc));
        const bool isJson = *row.body == '{' || *row.body == '[';
        EXPECT_EQ(isJson ? 0u : 1u, LinesWith("KVCAuthenticate answer is not JSON unexpected "));
        EXPECT_EQ(row.tokenType, TextOf(kvc->tokenType));
        EXPECT_EQ(row.accessToken, TextOf(kvc->accessToken));
        EXPECT_EQ(row.result != 0, kvc->tokenExpiry != 0);
    }
}

TEST_F(Authenticate, AFailedRenewalKeepsTheOldTokenAndIsTriedAgain)
{
    const ClientPtr kvc = NewClient();
    ASSERT_EQ(1, SignIn(kvc));
    const std::string token = TextOf(kvc->accessToken);
    const int64_t expiry = kvc->tokenExpiry;
    clock.Advance(3600);
    sim.Fault({{"path", "oauth2/token"}, {"action", "status"}, {"status", 503}});
    EXPECT_EQ(0, SignIn(kvc));
    EXPECT_EQ(token, TextOf(kvc->accessToken));
    EXPECT_EQ(expiry, kvc->tokenExpiry);
    EXPECT_EQ(1, SignIn(kvc)) << "the next operation tries again";
    EXPECT_EQ(expiry + 3600, kvc->tokenExpiry);
}

TEST_F(Authenticate, TheVaultIsNamedAfterTheIdentity)
{
    const auto oid = [](const std::string& id) { return FakeToken("{\"oid\":\"" + id + "\"}"); };
    const std::string guid = "0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0";
    const std::string claims = "{\"oid\":\"" + guid + "\"}";
    const struct {
        const char* story;
        const char* nameTemplate;
        std::string token;
        const char* name;
    } rows[] = {
        {"a GUID", "%G", oid(guid), "x0f1e2d3c4b5a69788796a5b"},
        {"its letter case stays", "%G", oid("0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0"), "x0F1E2D3C4B5A69788796A5B"},
        {"24 characters", "%G", oid("01234567-89abcdef-01234567"), "x0123456789abcdef0123456"},
        {"23 characters are too few", "%G", oid("01234567-89abcdef-0123456"), "oidguid"},
        {"only the exact word is replaced", "my%G", oid(guid), "myoidguid"},
        {"no dot", "%G", "opaque", "oidguid"},
        {"one dot", "%G", "head." + Coded(claims), "oidguid"},
        {"no claims between the dots", "%G", "head..tail", "oidguid"},
        {"no Base64", "%G", "head.!!!!.tail", "oidguid"},
        {"no JSON", "%G", FakeToken("claims"), "oidguid"},
        {"no oid", "%G", FakeToken("{\"sub\":\"" + guid + "\"}"), "oidguid"},
        {"claims beyond the decoder's limit", "%G", FakeToken(claims + std::string(4000, ' ')), "oidguid"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.story);
        const nlohmann::json answer = {{"access_token", row.token}, {"token_type", "Bearer"}};
        Answer("oauth2/token", 200, answer.dump());
        root.ClearLog();
        sim.ClearJournal();
        Identity identity;
        identity.vault = row.nameTemplate;
        const ClientPtr kvc = NewClient(identity);
        ASSERT_EQ(1, SignIn(kvc)) << "the sign-in stays a success";
        EXPECT_EQ(row.name, TextOf(kvc->kvname));
        EXPECT_EQ(row.nameTemplate == std::string("%G"),
                  root.Logged("KVCAuthenticate Found OIDGUID - Replace oidguid", 8));
        ListKeys(kvc);
        const auto requests = Requests("/keys");
        ASSERT_EQ(1u, requests.size());
        std::string host = row.name;  // in lower case by the transport
        std::transform(host.begin(), host.end(), host.begin(),
                       [](unsigned char ch) { return static_cast<char>(std::tolower(ch)); });
        EXPECT_EQ(host + ".vault.azure.net", requests[0]["host"]);
    }
}

// Whichever allocation fails, 1 means a usable token, and the client is none the worse for a 0.
TEST_F(Authenticate, WithoutMemoryTheSignInFailsAndTheNextSucceeds)
{
    SetLogging(0);
    Identity identity;
    identity.vault = "%G";
    // The second method is refused, whatever became of the first.
    identity.authn = KVC_AUTHN_CLIENT_CREDENTIALS | KVC_AUTHN_MANAGED_IDENTITY;
    Answer("/metadata", 400, "refused", -1);
    sim.Control("PUT", "/vaults/x0f1e2d3c4b5a69788796a5b", {{"tier", "standard"}});
    ClientPtr kvc = NewClient(identity);
    KVCLogOnResult result = KVCLogOnResult::Refused;
    size_t lost = 0;
    SweepAllocations(
        [&] {
            const KVCCall call(KVCBeginCall(kvc.get()));
            result = call ? KVCLogOn(call.get()) : KVCLogOnResult::Refused;
        },
        [&](bool) {
            const bool taken = kvc->tokenExpiry != 0;
            lost += result == KVCLogOnResult::NoMemory && !taken ? 1 : 0;
            EXPECT_FALSE(result == KVCLogOnResult::Refused && taken);
            if (result == KVCLogOnResult::Ready) {
                EXPECT_TRUE(kvc->tokenType && kvc->accessToken);
            } else {
                EXPECT_EQ(1, SignIn(kvc));
                EXPECT_EQ(1, ListKeys(kvc));
            }
            kvc = NewClient(identity);
        });
    EXPECT_GE(lost, 2u) << "a token that was granted is not refused";
    EXPECT_EQ(1u, Posts().size()) << nlohmann::json(Posts());
}

}  // namespace

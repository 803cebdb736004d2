// Sign-in with client credentials, its renewal, and naming the vault after the identity.
#include "support/text.h"
#include "tests/keyvault/client_fixture.h"

namespace {

class Authenticate : public ClientTest {
  protected:
    // tail: the form from the client id on.
    void ExpectForm(const Identity& identity, const std::string& tail)
    {
        sim.ClearJournal();
        SignIn(NewClient(identity));
        const auto requests = Requests("/oauth2/token");
        ASSERT_EQ(1u, requests.size());
        EXPECT_EQ("POST", requests[0]["method"]);
        EXPECT_EQ("login.microsoftonline.com", requests[0]["host"]);
        EXPECT_EQ("/" + identity.tenant + "/oauth2/token", requests[0]["target"]);
        EXPECT_EQ("resource=https://vault.azure.net&grant_type=client_credentials&client_id=" + tail,
                  requests[0]["body"]);
        ExpectLinesAndId(requests[0], {"Content-Type: application/x-www-form-urlencoded", "Accept: application/json",
                                       "return-client-request-id: true"});
    }
};

TEST_F(Authenticate, TheFormIsNotPercentEncoded)
{
    ExpectForm({}, std::string(Simulator::kClientId) + "&client_secret=" + Simulator::kClientSecret);
    ExpectForm({"v", 2, "t", "app", ""}, "app");
    ExpectForm({"v", 2, "t", "a+p&p", "s&e+c=r%t"}, "a+p&p&client_secret=s&e+c=r%t");
    const std::string longest(511, 's');
    ExpectForm({"v", 2, "t", "app", longest}, "app&client_secret=" + longest);
}

TEST_F(Authenticate, LettersBeyondAsciiAreUtf8InTheForm)
{
    ExpectForm({"v", 2, "t", "app", "gr\xC3\xBC\xC3\x9F"}, "app&client_secret=gr\xC3\xBC\xC3\x9F");
}

TEST_F(Authenticate, ATokenIsUsedForAnHourFromTheStartOfTheSignIn)
{
    const ClientPtr client = NewClient();
    SetNetwork(false);
    clock.OnSleep([this](DWORD, size_t index) {
        if (index == 3)
            SetNetwork(true);
    });
    ASSERT_EQ(1, SignIn(client));
    EXPECT_EQ((Waits{20000, 200, 20000, 200}), clock.Waits());
    clock.Advance(3600 - 40 - 1);
    const KVCCall call(KVCBeginCall(client.get()));
    {
        const AllocFault fault(0, true);
        EXPECT_EQ(KVCLogOnResult::Ready, KVCLogOn(call.get())) << "the call shares the client's token";
    }
    EXPECT_EQ(1, ListKeys(call.get())) << "the vault accepts it";
    EXPECT_EQ(1u, Requests("oauth2/token").size());
    clock.Advance(1);
    EXPECT_EQ(1, SignIn(client));
    const auto requests = Requests("oauth2/token");
    ASSERT_EQ(2u, requests.size());
    EXPECT_NE(HeaderOf(requests[0], "client-request-id"), HeaderOf(requests[1], "client-request-id"));
}

TEST_F(Authenticate, TheFlagsSelectTheMethods)
{
    const Row<DWORD, bool, int, size_t, size_t> rows[] = {
        {1, true, 1, 0, 1},  {2, true, 1, 1, 0}, {2, false, 0, 1, 0}, {3, true, 1, 1, 0},
        {3, false, 1, 1, 1}, {4, true, 0, 0, 0}, {6, true, 1, 1, 0},
    };
    for (const auto& [authn, goodSecret, result, posts, metadataCalls] : rows) {
        SCOPED_TRACE(testing::Message() << "authn " << authn << (goodSecret ? "" : " with a wrong secret"));
        sim.ClearJournal();
        root.ClearLog();
        Identity identity;
        identity.authn = authn;
        identity.secret = goodSecret ? Simulator::kClientSecret : "wrong";
        EXPECT_EQ(result, SignIn(NewClient(identity)));
        EXPECT_EQ(posts, Requests(std::string(Simulator::kTenant) + "/oauth2/token").size());
        EXPECT_EQ(metadataCalls, Requests("/metadata/identity/oauth2/token").size());
        EXPECT_EQ(result == 0, root.Logged("KVCAuthenticate Logon failure contoso-keys", 1));
        EXPECT_EQ(std::string::npos, root.WholeLog().find("invalid_client")) << "the answer isn't logged";
    }
}

TEST_F(Authenticate, IncompleteAndUnusableAnswers)
{
    const Row<const char*, int, const char*, int, const char*, const char*> rows[] = {
        {"not JSON", 200, "<html>", 0, "(NULL)", "(NULL)"},
        {"an empty body", 200, "", 0, "(NULL)", "(NULL)"},
        {"an array", 200, "[1]", 0, "(NULL)", "(NULL)"},
        {"no token", 200, R"({"token_type":"Pop"})", 0, "Pop", "(NULL)"},
        {"no type", 200, R"({"access_token":"abc"})", 1, "(NULL)", "abc"},
        {"a null token", 200, R"({"access_token":null,"token_type":"Pop"})", 0, "Pop", "(NULL)"},
        {"a line break in the token", 200, R"({"access_token":"a\r\nX: y","token_type":"Pop"})", 0, "(NULL)", "(NULL)"},
        {"a blank in the type", 200, R"({"access_token":"abc","token_type":"P p"})", 0, "(NULL)", "(NULL)"},
        {"a letter beyond ASCII", 200, R"({"access_token":"ab\u00e7","token_type":"Pop"})", 0, "(NULL)", "(NULL)"},
        {"a zero inside the token", 200, R"({"access_token":"ab\u0000c","token_type":"Pop"})", 0, "(NULL)", "(NULL)"},
        {"a wrong status", 201, R"({"access_token":"abc","token_type":"Pop"})", 0, "(NULL)", "(NULL)"},
    };
    for (const auto& [name, status, body, result, tokenType, accessToken] : rows) {
        SCOPED_TRACE(name);
        Answer("oauth2/token", status, body);
        const ClientPtr client = NewClient();
        EXPECT_EQ(result, SignIn(client));
        EXPECT_EQ(tokenType, TextOf(client->tokenType));
        EXPECT_EQ(accessToken, TextOf(client->accessToken));
        EXPECT_EQ(result != 0, client->tokenExpiry != 0);
    }
}

TEST_F(Authenticate, AFailedRenewalKeepsTheOldToken)
{
    const ClientPtr client = NewClient();
    ASSERT_EQ(1, SignIn(client));
    const std::string token = TextOf(client->accessToken);
    const int64_t expiry = client->tokenExpiry;
    clock.Advance(3600);
    Answer("oauth2/token", 503, "");
    EXPECT_EQ(0, SignIn(client));
    EXPECT_EQ(token, TextOf(client->accessToken));
    EXPECT_EQ(expiry, client->tokenExpiry);
    EXPECT_EQ(1, SignIn(client)) << "the next operation tries again";
    EXPECT_EQ(expiry + 3600, client->tokenExpiry);
}

TEST_F(Authenticate, TheVaultIsNamedAfterTheIdentity)
{
    const auto token = [](const std::string& claims) {
        return "head." + Base64Url(Bytes(claims.begin(), claims.end())) + ".signature";
    };
    const auto oid = [&](const std::string& id) { return token("{\"oid\":\"" + id + "\"}"); };
    const std::string guid = "0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0";
    const std::string claims = "{\"oid\":\"" + guid + "\"}";
    const Row<const char*, const char*, std::string, const char*> rows[] = {
        {"a GUID", "%G", oid(guid), "x0f1e2d3c4b5a69788796a5b"},
        {"in capitals", "%G", oid("0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0"), "x0F1E2D3C4B5A69788796A5B"},
        {"24 characters", "%G", oid("01234567-89abcdef-01234567"), "x0123456789abcdef0123456"},
        {"23 characters are too few", "%G", oid("01234567-89abcdef-0123456"), "oidguid"},
        {"only the exact word is replaced", "my%G", oid(guid), "myoidguid"},
        {"no dot", "%G", "opaque", "oidguid"},
        {"one dot", "%G", "head." + Base64Url(Bytes(claims.begin(), claims.end())), "oidguid"},
        {"no claims between the dots", "%G", "head..tail", "oidguid"},
        {"not Base64", "%G", "head.!!!!.tail", "oidguid"},
        {"not JSON", "%G", token("claims"), "oidguid"},
        {"no oid", "%G", token("{\"sub\":\"" + guid + "\"}"), "oidguid"},
        {"claims beyond the decoder's limit", "%G", token(claims + std::string(4000, ' ')), "oidguid"},
    };
    for (const auto& [name, nameTemplate, accessToken, vault] : rows) {
        SCOPED_TRACE(name);
        sim.ClearJournal();
        Answer("oauth2/token", 200, {{"access_token", accessToken}, {"token_type", "Bearer"}});
        Identity identity;
        identity.vault = nameTemplate;
        const ClientPtr client = NewClient(identity);
        ASSERT_EQ(1, SignIn(client));
        EXPECT_EQ(vault, TextOf(client->kvname));
        ListKeys(client);
        EXPECT_TRUE(TextEqualNoCase(Wide(vault + std::string(".vault.azure.net")),
                                    Wide(sim.Journal().back()["host"].get<std::string>())));
    }
}

// Whichever allocation fails, success means a usable token, and after a failure the next sign-in works.
TEST_F(Authenticate, WithoutMemoryTheSignInFailsAndTheNextSucceeds)
{
    SetLogging(0);
    Identity identity;
    identity.vault = "%G";
    // The second method is refused.
    identity.authn = KVC_AUTHN_CLIENT_CREDENTIALS | KVC_AUTHN_MANAGED_IDENTITY;
    Answer("/metadata", 400, "refused", -1);
    sim.Control("PUT", "/vaults/x0f1e2d3c4b5a69788796a5b", {{"tier", "standard"}});
    ClientPtr client = NewClient(identity);
    KVCLogOnResult result = KVCLogOnResult::Refused;
    size_t lost = 0;
    SweepAllocations(
        [&] {
            const KVCCall call(KVCBeginCall(client.get()));
            result = call ? KVCLogOn(call.get()) : KVCLogOnResult::Refused;
        },
        [&](bool) {
            const bool taken = client->tokenExpiry != 0;
            lost += result == KVCLogOnResult::NoMemory && !taken ? 1 : 0;
            EXPECT_FALSE(result == KVCLogOnResult::Refused && taken);
            EXPECT_TRUE(result != KVCLogOnResult::Ready || (client->tokenType && client->accessToken));
            EXPECT_TRUE(result == KVCLogOnResult::Ready || (SignIn(client) && ListKeys(client)));
            client = NewClient(identity);
        });
    EXPECT_GE(lost, 2u) << "without memory a sign-in isn't refused";
    EXPECT_EQ(1u, Posts().size()) << nlohmann::json(Posts());
}

}  // namespace

// Sign-in, and what the vault thinks of tokens.
#include "tests/vaultsim/sim_test.h"
#include "vaultsim/base64url.h"

using vaultsim::FromBase64;
using vaultsim::ToBase64Url;

class TokenTest : public SimTest {
  protected:
    static Reply ListWith(const httplib::Headers& headers)
    {
        return Send(*Client("contoso-keys.vault.azure.net"), "GET", "/keys?api-version=7.0", headers, "");
    }
    static Reply ListWith(const std::string& token) { return ListWith({{"Authorization", "Bearer " + token}}); }
    static std::string FreshToken() { return SignIn(SignInForm()).json().value("access_token", ""); }
    static Json Claims(const std::string& token)
    {
        const size_t dot = token.find('.');
        return Json::parse(*FromBase64(token.substr(dot + 1, token.rfind('.') - dot - 1)));
    }
};

TEST_F(TokenTest, SignInGivesATokenThatTheVaultTakes)
{
    const Reply reply = SignIn(SignInForm());
    ASSERT_EQ(reply.status, 200);
    const Json answer = reply.json();
    for (const auto& [name, value] : answer.items())
        EXPECT_TRUE(value.is_string()) << name;
    EXPECT_EQ(answer["token_type"], "Bearer");
    const Json claims = Claims(answer["access_token"]);
    EXPECT_EQ(claims["aud"], "https://vault.azure.net");
    EXPECT_EQ(claims["oid"], Sim().options.oid);
    EXPECT_EQ(claims["exp"].get<int64_t>() - claims["nbf"].get<int64_t>(), 3900);
    EXPECT_EQ(ListWith(answer["access_token"].get<std::string>()).status, 200);
    EXPECT_EQ(Control("GET", "/counts")["signins"], 1);
}

TEST_F(TokenTest, SignInRefusesWhatIsWrong)
{
    const std::string good = SignInForm();
    const std::string tenant = "/" + Sim().options.tenant;
    const auto without = [&](const std::string& name) {
        const size_t start = good.find(name);
        const size_t end = good.find('&', start);
        return good.substr(0, start) + (end == std::string::npos ? "" : good.substr(end + 1));
    };
    const struct {
        std::string body;
        std::string path;
        int status;
        const char* error;
    } rows[] = {
        {good + "x", "", 401, "invalid_client"},
        {without("client_secret="), "", 401, "invalid_client"},
        {without("resource="), "", 400, "invalid_request"},
        {without("grant_type="), "", 400, "invalid_request"},
        {good + "&grant_type=password", "", 400, "unsupported_grant_type"},
        {good + "&resource=https://vault.azure.net/", "", 400, "invalid_resource"},
        {good + "&client_id=nobody", "", 400, "unauthorized_client"},
        {good, "/elsewhere/oauth2/token", 400, "invalid_request"},
        {good, tenant + "/oauth2/v2.0/token", 404, ""},
    };
    for (const auto& row : rows) {
        const Reply reply = SignIn(row.body, row.path);
        EXPECT_EQ(reply.status, row.status) << row.body << row.path;
        if (row.status != 404) {
            EXPECT_EQ(reply.json()["error"], row.error) << row.body << row.path;
        }
    }
    EXPECT_EQ(Shape(SignIn(good + "x").json()), Shape(Sample(SERVICE_SAMPLES "/error-401-client-secret.json")));
    EXPECT_EQ(Control("GET", "/counts")["signins"], 0);
}

// A form is decoded, so that a secret with a plus that was sent as it stands is a wrong one.
TEST_F(TokenTest, TheFormIsDecoded)
{
    std::string form = SignInForm();
    form.replace(form.find('~'), 1, "%7e");
    EXPECT_EQ(SignIn(form).status, 200);
    form.replace(form.find("%7e"), 3, "+");
    EXPECT_EQ(SignIn(form).status, 401);
}

TEST_F(TokenTest, TheVaultRefusesEveryOtherToken)
{
    const std::string good = FreshToken();
    const size_t first = good.find('.');
    const size_t second = good.rfind('.');
    Json claims = Claims(good);
    claims["aud"] = "https://management.azure.com";
    const std::string forged = good.substr(0, first + 1) + ToBase64Url(claims.dump()) + good.substr(second);
    const std::string header = ToBase64Url(Json({{"alg", "none"}}).dump());
    Control("PUT", "/tokens", {{"lifetimeSeconds", 0}});
    const std::string expired = FreshToken();

    EXPECT_EQ(ListWith(httplib::Headers()).json(), Sample(SERVICE_SAMPLES "/error-401-no-token.json"));
    EXPECT_EQ(ListWith({{"Authorization", "Basic " + good}}).json(),
              Sample(SERVICE_SAMPLES "/error-401-no-token.json"));
    for (const std::string& token :
         {std::string("x"), forged, header + good.substr(first), good.substr(0, second + 1), expired}) {
        const Reply reply = ListWith(token);
        EXPECT_EQ(reply.status, 401) << token;
        EXPECT_EQ(reply.Code(), "Unauthorized");
        EXPECT_EQ(reply.headers.find("WWW-Authenticate")->second, "Bearer authorization=\"https://login.windows.net/" +
                                                                      Sim().options.tenant +
                                                                      "\", resource=\"https://vault.azure.net\"");
    }
    EXPECT_EQ(ListWith(good).status, 200);
}

TEST_F(TokenTest, TokensFollowTheSettings)
{
    Control("PUT", "/tokens", {{"oid", "0f"}, {"omit", {"token_type"}}});
    Json answer = SignIn(SignInForm()).json();
    EXPECT_FALSE(answer.contains("token_type"));
    EXPECT_EQ(Claims(answer["access_token"])["oid"], "0f");
    Control("PUT", "/tokens", {{"omit", {"oid"}}, {"tokenType", "bearer"}});
    answer = SignIn(SignInForm()).json();
    EXPECT_EQ(answer["token_type"], "bearer");
    EXPECT_FALSE(Claims(answer["access_token"]).contains("oid"));
}

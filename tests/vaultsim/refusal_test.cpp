// What the vault, the sign-in endpoint and the identity services refuse, and how: what the module would get for a wrong
// request.
#include <filesystem>
#include <fstream>

#include "tests/common/row.h"
#include "tests/vaultsim/sim_test.h"

namespace {

const std::string kDigest32(43, 'A');
const std::string kDigest48(64, 'A');
const std::string kVaultResource = "resource=https://vault.azure.net";
const std::string kMetadata = "Metadata: True\r\n";

std::string TokenFrom(const Reply& reply)
{
    return reply.Json().value("access_token", "");
}

json Claims(const std::string& token)
{
    const size_t dot = token.find('.');
    return json::parse(*FromBase64(token.substr(dot + 1, token.rfind('.') - dot - 1)));
}

Reply ListWith(const std::string& authorization)
{
    return {Perform({"contoso-keys.vault.azure.net", 443, "/keys?api-version=7.0", "GET",
                     authorization.empty() ? "" : "Authorization: " + authorization + "\r\n"})};
}

Reply Metadata(const std::string& query, const std::string& headers = kMetadata)
{
    return {Perform({"169.254.169.254", 80, "/metadata/identity/oauth2/token?" + query, "GET", headers})};
}

Reply Arc(const std::string& secret = "", const std::string& version = "2020-06-01")
{
    return {
        Perform({"localhost", 40342, "/metadata/identity/oauth2/token?" + kVaultResource + "&api-version=" + version,
                 "GET", kMetadata + (secret.empty() ? "" : "Authorization: Basic " + secret + "\r\n")})};
}

// The file that a challenge names.
std::string SecretFile(const Reply& challenge)
{
    const std::string prefix = "Basic realm=";
    const std::string field = challenge.Field("WWW-Authenticate");
    return challenge.status == 401 && field.rfind(prefix, 0) == 0 ? field.substr(prefix.size()) : "";
}

}  // namespace

using RefusalTest = SimTest;

TEST_F(RefusalTest, RequestsAreRefusedAsTheServiceRefusesThem)
{
    AddKey(R"({"name":"rsa","size":1024})");
    AddKey(R"({"name":"wide","kty":"EC","crv":"P-521"})");
    AddKey(R"({"name":"off","kty":"EC","enabled":false})");
    AddKey(R"({"name":"narrow","kty":"EC","key_ops":["verify"]})");
    AddKey(R"({"name":"old","kty":"EC","exp":1000})");
    AddKey(R"({"name":"early","kty":"EC","nbf":99999999999})");
    AddCertificate(R"({"name":"cert","kty":"EC"})");

    const auto signature = [](const std::string& algorithm, const std::string& digest = kDigest32) {
        return R"({"alg":")" + algorithm + R"(","value":")" + digest + "\"}";
    };
    const auto certificate = [](const std::string& key) {
        return R"({"policy":{"key_props":)" + key + R"(,"x509_props":{"subject":"CN=x"}}})";
    };
    const char* const kBad = "400 BadParameter";
    // empty: a GET
    const Row<const char*, const char*, std::string, const char*, const char*> rows[] = {
        {"no such key", "/keys/none", "", "404 KeyNotFound"},
        {"no such version", "/keys/rsa/0123", "", "404 KeyNotFound"},
        {"no such certificate", "/certificates/none", "", "404 CertificateNotFound"},
        {"not a name", "/keys/a_b", "", kBad},
        {"no kty", "/keys/a/create", "{}", kBad},
        {"odd size", "/keys/a/create", R"({"kty":"RSA","key_size":1024})", kBad},
        {"hardware in a standard vault", "/keys/a/create", R"({"kty":"RSA-HSM"})", kBad, "fabrikam"},
        {"the key of a certificate", "/keys/cert/create", R"({"kty":"RSA"})", "409 Conflict"},
        {"a key's name for a certificate", "/certificates/rsa/create", certificate("{}"), "409 Conflict"},
        {"another kind of key to reuse", "/certificates/cert/create", certificate(R"({"kty":"RSA","reuse_key":true})"),
         kBad},
        {"an exportable hardware key", "/certificates/a/create", certificate(R"({"kty":"RSA-HSM","exportable":true})"),
         kBad},
        {"no such algorithm", "/keys/rsa//sign", signature("RS1"), kBad},
        {"a digest that is too long", "/keys/rsa//sign", signature("RS256", kDigest48), kBad},
        {"more than the padding leaves room for", "/keys/rsa//sign", signature("RSNULL", std::string(158, 'A')), kBad},
        {"the algorithm of another curve", "/keys/wide//sign", signature("ES256"), kBad},
        {"a curve's algorithm on RSA", "/keys/rsa//sign", signature("ES256"), kBad},
        {"nothing that was encrypted", "/keys/rsa//decrypt", signature("RSA1_5", std::string(171, 'A')), kBad},
        {"not among the key's operations", "/keys/narrow//sign", signature("ES256"),
         "403 Forbidden KeyOperationForbidden"},
        {"a disabled key", "/keys/off//sign", signature("ES256"), "403 Forbidden KeyDisabled"},
        {"an expired key", "/keys/old//sign", signature("ES256"), "403 Forbidden KeyExpired"},
        {"a key of the future", "/keys/early//sign", signature("ES256"), "403 Forbidden KeyNotYetValid"},
        {"an old version", "/keys?api-version=2015-06-01", "", kBad},
    };
    for (const auto& [name, path, body, outcome, vault] : rows) {
        const Reply reply = Vault(body.empty() ? "GET" : "POST", path, body, vault ? vault : Simulator::kVault);
        EXPECT_EQ(reply.Outcome(), outcome) << name << " " << reply.body;
    }
    EXPECT_EQ(Vault("GET", "/keys", "", "nobody").body, "no such vault: nobody.vault.azure.net");

    // The texts are the service's.
    const auto message = [](const Reply& reply) { return reply.Json()["error"]["message"]; };
    EXPECT_EQ(message(Vault("POST", "/keys/a/create", R"({"kty":"EC-HSM"})", "fabrikam")),
              "Hardware key operation not allowed on standard vault");
    EXPECT_EQ(message(Vault("POST", "/keys/rsa//sign", signature("RS384"))),
              "Invalid length of 'value': 32 bytes. RS384 requires 48 bytes, encoded with base64url.");
    AddKey(R"({"name":"k","size":1024,"key_ops":["sign"]})");
    EXPECT_EQ(Vault("POST", "/keys/k//decrypt", signature("RSA1_5", "AA")).body,
              ReadServiceSample("error-403-key-operation-forbidden"));

    // A disabled key keeps its public half.
    AddKey(R"({"name":"closed","size":1024,"enabled":false})");
    EXPECT_EQ(Vault("POST", "/keys/closed//encrypt", signature("RSA1_5", "AA")).status, 200u);
    const json verify = {{"alg", "RS256"}, {"digest", kDigest32}, {"value", kDigest48}};
    EXPECT_EQ(Vault("POST", "/keys/closed//verify", verify.dump()).body, "{\"value\":false}");
}

TEST_F(RefusalTest, SignInNeedsTheWholeForm)
{
    const std::string good = SignInForm();
    const json answer = SignIn(good).Json();
    for (const auto& [name, value] : answer.items())
        EXPECT_TRUE(value.is_string()) << name;
    EXPECT_EQ(answer["token_type"], "Bearer");
    const json claims = Claims(answer["access_token"]);
    EXPECT_EQ(claims["aud"], "https://vault.azure.net");
    EXPECT_EQ(claims["oid"], Simulator::kObjectId);
    EXPECT_EQ(claims.value("exp", 0) - claims.value("nbf", 0), 3900);

    const auto with = [&](const std::string& text, const std::string& other) {
        const size_t at = good.find(text);
        return good.substr(0, at) + other + good.substr(at + text.size());
    };
    const Row<std::string, const char*, std::string> rows[] = {
        {with("~", "+"), "401 invalid_client"},  // a blank, once decoded
        {good + "x", "401 invalid_client"},
        {with("client_secret=", "other="), "401 invalid_client"},
        {with("resource=", "other="), "400 invalid_request"},
        {with("grant_type=", "other="), "400 invalid_request"},
        {good + "&resource=https://vault.azure.net/", "400 invalid_resource"},
        {good + "&client_id=nobody", "400 unauthorized_client"},
        {good, "400 invalid_request", "/elsewhere/oauth2/token"},
    };
    for (const auto& [body, outcome, path] : rows)
        EXPECT_EQ(SignIn(body, path).Outcome(), outcome) << body << path;
    EXPECT_EQ(Shape(SignIn(good + "x").body), Shape(ReadServiceSample("error-401-client-secret")));
    EXPECT_EQ(sim.SignIns(), 1);

    Control("PUT", "/tokens", R"({"oid":"0f","omit":["token_type"]})");
    const json changed = SignIn(good).Json();
    EXPECT_FALSE(changed.contains("token_type"));
    EXPECT_EQ(Claims(changed["access_token"])["oid"], "0f");
}

TEST_F(RefusalTest, TheVaultAcceptsNoOtherToken)
{
    const std::string good = TokenFrom(SignIn(SignInForm()));
    const size_t first = good.find('.');
    const size_t second = good.rfind('.');
    json claims = Claims(good);
    claims["aud"] = "https://management.azure.com";
    const std::string forged = good.substr(0, first + 1) + vaultsim::ToBase64Url(claims.dump()) + good.substr(second);
    const std::string header = vaultsim::ToBase64Url(R"({"alg":"none"})");
    Control("PUT", "/tokens", R"({"lifetimeSeconds":0})");
    const std::string expired = TokenFrom(SignIn(SignInForm()));

    for (const std::string& other : {std::string(), "Basic " + good})
        EXPECT_EQ(ListWith(other).body, ReadServiceSample("error-401-no-token"));
    for (const std::string& token :
         {std::string("x"), forged, header + good.substr(first), good.substr(0, second + 1), expired}) {
        const Reply reply = ListWith("Bearer " + token);
        EXPECT_EQ(reply.Outcome(), "401 Unauthorized") << token;
        EXPECT_EQ(reply.Field("WWW-Authenticate"), std::string("Bearer authorization=\"https://login.windows.net/") +
                                                       Simulator::kTenant + "\", resource=\"https://vault.azure.net\"");
    }
    EXPECT_EQ(ListWith("Bearer " + good).Outcome(), "200");
}

TEST_F(RefusalTest, MetadataAnswersAProperRequestOnly)
{
    const std::string version = "&api-version=2018-02-01";
    const Row<const char*, std::string, DWORD, std::string> rows[] = {
        {"a proper request", kVaultResource + version, 200, kMetadata},
        {"no header", kVaultResource + version, 400, ""},
        {"the other service's version", kVaultResource + "&api-version=2020-06-01", 400, kMetadata},
        {"no resource", "api-version=2018-02-01", 400, kMetadata},
        {"another resource", "resource=x" + version, 400, kMetadata},
    };
    for (const auto& [name, query, status, headers] : rows)
        EXPECT_EQ(Metadata(query, headers).status, status) << name;
    const Reply unknown = Metadata(kVaultResource + version + "&client_id=nobody");
    EXPECT_EQ(unknown.status, 400u);
    EXPECT_EQ(unknown.body, ReadServiceSample("error-400-identity-not-found"));
}

TEST_F(RefusalTest, ArcAcceptsTheSecretOfAFreshFileOnce)
{
    const std::string file = SecretFile(Arc());
    std::string secret;
    std::ifstream(file) >> secret;

    EXPECT_NE(SecretFile(Arc("wrong")), file);
    const Reply answer = Arc(secret);
    EXPECT_EQ(answer.status, 200u);
    EXPECT_NE(TokenFrom(answer), "");
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_EQ(Arc(secret).status, 401u);
    EXPECT_EQ(Arc("", "2018-02-01").status, 400u);
}

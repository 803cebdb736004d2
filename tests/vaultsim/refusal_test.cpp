// What the vault, the sign-in endpoint and the identity services refuse, and how: what a wrong request of the module
// would meet.
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/common/row.h"
#include "tests/vaultsim/sim_test.h"
#include "vaultsim/openssl_ptr.h"

namespace {

const std::string kDigest32(43, 'A');
const std::string kDigest48(64, 'A');
const std::string kVaultResource = "resource=https://vault.azure.net";
const std::string kMetadata = "Metadata: True\r\n";

// Sends bytes to the plain listener and reads to the end.
std::string Raw(const std::string& bytes)
{
    const std::string entries = std::getenv("KELVARO_CONNECT_TO");
    const size_t address = entries.find(" :80:") + 5;
    const vaultsim::BioPtr socket(
        BIO_new_connect(entries.substr(address, entries.find(' ', address) - address).c_str()));
    BIO_write(socket.get(), bytes.data(), static_cast<int>(bytes.size()));
    std::string answer;
    char piece[4096];
    for (int got = 0; (got = BIO_read(socket.get(), piece, sizeof piece)) > 0;)
        answer.append(piece, static_cast<size_t>(got));
    return answer;
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

class RefusalTest : public SimTest {
  protected:
    static std::string TokenFrom(const Reply& reply) { return reply.Json().value("access_token", ""); }
};

TEST_F(RefusalTest, RequestsAreRefusedAsTheServiceRefusesThem)
{
    AddKey(R"({"name":"rsa","size":1024})");
    AddKey(R"({"name":"ec","kty":"EC"})");
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
        {"no such operation", "/keys/rsa//shred", signature("RS256"), kBad},
        {"a merge among the keys", "/keys/rsa/pending/merge", R"({"x5c":["AA"]})", kBad},
        {"not JSON", "/keys/a/create", "\"text\"", kBad},
        {"no kty", "/keys/a/create", "{}", kBad},
        {"kty in lower case", "/keys/a/create", R"({"kty":"rsa"})", kBad},
        {"odd size", "/keys/a/create", R"({"kty":"RSA","key_size":1024})", kBad},
        {"size isn't a number", "/keys/a/create", R"({"kty":"RSA","key_size":"2k"})", kBad},
        {"512 bits of P-521", "/keys/a/create", R"({"kty":"EC","crv":"P-521","key_size":512})", kBad},
        {"no such curve", "/keys/a/create", R"({"kty":"EC","crv":"P-192"})", kBad},
        {"no such key operation", "/keys/a/create", R"({"kty":"EC","key_ops":["fly"]})", kBad},
        {"tags that aren't texts", "/keys/a/create", R"({"kty":"EC","tags":{"a":1}})", kBad},
        {"hardware in a standard vault", "/keys/a/create", R"({"kty":"RSA-HSM"})", kBad, "fabrikam"},
        {"the key of a certificate", "/keys/cert/create", R"({"kty":"RSA"})", "409 Conflict"},
        {"a key's name for a certificate", "/certificates/rsa/create", certificate("{}"), "409 Conflict"},
        {"no policy", "/certificates/a/create", "{}", kBad},
        {"no subject", "/certificates/a/create", R"({"policy":{}})", kBad},
        {"a subject that isn't a name", "/certificates/a/create",
         R"({"policy":{"x509_props":{"subject":"Acme, Inc."}}})", kBad},
        {"another kind of key to reuse", "/certificates/cert/create", certificate(R"({"kty":"RSA","reuse_key":true})"),
         kBad},
        {"an exportable hardware key", "/certificates/a/create", certificate(R"({"kty":"RSA-HSM","exportable":true})"),
         kBad},
        {"no algorithm", "/keys/rsa//sign", "{\"value\":\"" + kDigest32 + "\"}", kBad},
        {"no such algorithm", "/keys/rsa//sign", signature("RS1"), kBad},
        {"a digest that is too long", "/keys/rsa//sign", signature("RS256", kDigest48), kBad},
        {"more than the padding leaves room for", "/keys/rsa//sign", signature("RSNULL", std::string(158, 'A')), kBad},
        {"a digest that isn't Base64", "/keys/rsa//sign", signature("RS256", "*"), kBad},
        {"no digest", "/keys/rsa//sign", R"({"alg":"RS256"})", kBad},
        {"the algorithm of another curve", "/keys/wide//sign", signature("ES256"), kBad},
        {"a curve's algorithm on RSA", "/keys/rsa//sign", signature("ES256"), kBad},
        {"an RSA algorithm on a curve", "/keys/ec//sign", signature("RS256"), kBad},
        {"nothing that was encrypted", "/keys/rsa//decrypt", signature("RSA1_5", std::string(171, 'A')), kBad},
        {"not among the key's operations", "/keys/narrow//sign", signature("ES256"),
         "403 Forbidden KeyOperationForbidden"},
        {"a disabled key", "/keys/off//sign", signature("ES256"), "403 Forbidden KeyDisabled"},
        {"an expired key", "/keys/old//sign", signature("ES256"), "403 Forbidden KeyExpired"},
        {"a key of the future", "/keys/early//sign", signature("ES256"), "403 Forbidden KeyNotYetValid"},
        {"no version", "/keys?", "", kBad},
        {"an old version", "/keys?api-version=2015-06-01", "", kBad},
        {"long pages", "/keys?api-version=7.0&maxresults=26", "", kBad},
        {"a page that wasn't offered", "/keys?api-version=7.0&$skiptoken=AAAA", "", kBad},
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
    EXPECT_EQ(Get("/keys/closed").Json()["attributes"]["enabled"], false);
    EXPECT_EQ(Vault("POST", "/keys/closed//encrypt", signature("RSA1_5", "AA")).status, 200u);
    const json verify = {{"alg", "RS256"}, {"digest", kDigest32}, {"value", kDigest48}};
    EXPECT_EQ(Vault("POST", "/keys/closed//verify", verify.dump()).body, "{\"value\":false}");
}

TEST_F(RefusalTest, MalformedRequestsReachNoService)
{
    const std::pair<const char*, const char*> rows[] = {
        {"HELLO\r\n\r\n", "HTTP/1.1 400 "},
        {"GET /a HTTP/1.1\r\n\r\n", "HTTP/1.1 400 "},
        {"GET /a HTTP/1.1\r\nHost: x\r\nbroken\r\n\r\n", "HTTP/1.1 400 "},
        {"POST /a HTTP/1.1\r\nHost: x\r\n\r\n", "HTTP/1.1 411 "},
        {"POST /a HTTP/1.1\r\nHost: x\r\nContent-Length: -1\r\n\r\n", "HTTP/1.1 400 "},
        {"POST /a HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n", "HTTP/1.1 400 "},
        {"POST /a HTTP/1.1\r\nHost: x\r\nContent-Length: 2\r\n\r\n{}"
         "GET /b HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n",
         "HTTP/1.1 404 "},
        {"GET /metadata/identity/oauth2/token?api-version=2018-02-01&resource=https://vault.azure.net HTTP/1.1\r\n"
         "Host: 169.254.169.254\r\nMetadata: True\r\nX-Two:  blanks \r\nConnection: close\r\n\r\n",
         "HTTP/1.1 200 OK\r\n"},
    };
    for (const auto& [request, answer] : rows)
        EXPECT_EQ(Raw(request).find(answer), 0u) << request;

    // The journal has all of them as they came.
    const json requests = sim.Journal();
    ASSERT_EQ(requests.size(), std::size(rows) + 1) << "two of them on one connection";
    EXPECT_EQ(requests[requests.size() - 2]["requestLine"], "GET /b HTTP/1.1");
    const json& last = requests.back();
    EXPECT_EQ(last["listener"], "http");
    EXPECT_EQ(std::string(std::rbegin(rows)->first).find(last["requestLine"].get<std::string>() + "\r\n"), 0u);
    EXPECT_EQ(last["headers"].dump(),
              R"(["Host: 169.254.169.254","Metadata: True","X-Two:  blanks ","Connection: close"])");
    EXPECT_EQ(last["status"], 200);
    EXPECT_TRUE(last["fault"].is_null());
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
        {with("~", "%7e"), "200"},
        {with("~", "+"), "401 invalid_client"},  // a blank, once decoded
        {good + "x", "401 invalid_client"},
        {with("client_secret=", "other="), "401 invalid_client"},
        {with("resource=", "other="), "400 invalid_request"},
        {with("grant_type=", "other="), "400 invalid_request"},
        {good + "&grant_type=password", "400 unsupported_grant_type"},
        {good + "&resource=https://vault.azure.net/", "400 invalid_resource"},
        {good + "&client_id=nobody", "400 unauthorized_client"},
        {good, "400 invalid_request", "/elsewhere/oauth2/token"},
        {good, "404", std::string("/") + Simulator::kTenant + "/oauth2/v2.0/token"},
    };
    for (const auto& [body, outcome, path] : rows)
        EXPECT_EQ(SignIn(body, path).Outcome(), outcome) << body << path;
    EXPECT_EQ(Shape(SignIn(good + "x").body), Shape(ReadServiceSample("error-401-client-secret")));
    EXPECT_EQ(sim.SignIns(), 2);

    Control("PUT", "/tokens", R"({"oid":"0f","omit":["token_type"]})");
    const json changed = SignIn(good).Json();
    EXPECT_FALSE(changed.contains("token_type"));
    EXPECT_EQ(Claims(changed["access_token"])["oid"], "0f");
    Control("PUT", "/tokens", R"({"omit":["oid"],"tokenType":"bearer"})");
    const json bare = SignIn(good).Json();
    EXPECT_EQ(bare["token_type"], "bearer");
    EXPECT_FALSE(Claims(bare["access_token"]).contains("oid"));
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
        {"any letter case", kVaultResource + version, 200, "metadata: true\r\n"},
        {"its own client id", kVaultResource + version + "&client_id=" + Simulator::kClientId, 200, kMetadata},
        {"no header", kVaultResource + version, 400, ""},
        {"the other service's version", kVaultResource + "&api-version=2020-06-01", 400, kMetadata},
        {"no version", kVaultResource, 400, kMetadata},
        {"no resource", "api-version=2018-02-01", 400, kMetadata},
        {"another resource", "resource=x" + version, 400, kMetadata},
    };
    for (const auto& [name, query, status, headers] : rows)
        EXPECT_EQ(Metadata(query, headers).status, status) << name;
    EXPECT_EQ(Send({"169.254.169.254", 80, "/metadata/instance?" + version, "GET", kMetadata}).status, 404u);
    const Reply unknown = Metadata(kVaultResource + version + "&client_id=nobody");
    EXPECT_EQ(unknown.status, 400u);
    EXPECT_EQ(unknown.body, ReadServiceSample("error-400-identity-not-found"));

    const json answer = Metadata(kVaultResource + version).Json();
    for (const auto& [name, value] : answer.items())
        EXPECT_TRUE(value.is_string()) << name;
    EXPECT_EQ(ListWith("Bearer " + answer.value("access_token", "")).Outcome(), "200");
}

TEST_F(RefusalTest, ArcAcceptsTheSecretOfAFreshFileOnce)
{
    const std::string file = SecretFile(Arc());
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600)) << file;
    std::string secret;
    std::ifstream(file) >> secret;

    EXPECT_NE(SecretFile(Arc("wrong")), file);
    const Reply answer = Arc(secret);
    EXPECT_EQ(answer.status, 200u);
    EXPECT_NE(TokenFrom(answer), "");
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_EQ(Arc(secret).status, 401u);
    EXPECT_EQ(Arc("", "2018-02-01").status, 400u);

    Control("PUT", "/arc", R"({"realmPrefix":"Z:"})");
    EXPECT_EQ(SecretFile(Arc()).substr(0, 3), "Z:/");
}

// What the vault, the sign-in endpoint and the identity services refuse, and how: what a wrong request of the module
// would meet.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/vaultsim/sim_test.h"
#include "vaultsim/files.h"

namespace {

const std::string kDigest32(43, 'A');
const std::string kDigest48(64, 'A');
const std::string kVaultResource = "resource=https://vault.azure.net";
const httplib::Headers kMetadata = {{"Metadata", "True"}};

// Sends bytes to a plain listener and reads to the end.
std::string Raw(int port, const std::string& bytes)
{
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::string answer;
    if (connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size())) {
        char piece[4096];
        for (ssize_t got = 0; (got = recv(socket, piece, sizeof piece, 0)) > 0;)
            answer.append(piece, static_cast<size_t>(got));
    }
    close(socket);
    return answer;
}

}  // namespace

class RefusalTest : public SimTest {
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
    static Reply Metadata(const std::string& query, const httplib::Headers& headers = kMetadata)
    {
        return Identity("http", "/metadata/identity/oauth2/token?" + query, headers);
    }
    static Reply Arc(const std::string& secret = "", const std::string& version = "2020-06-01")
    {
        httplib::Headers headers = kMetadata;
        if (!secret.empty())
            headers.emplace("Authorization", "Basic " + secret);
        return Identity("arc", "/metadata/identity/oauth2/token?" + kVaultResource + "&api-version=" + version,
                        headers);
    }
    // The file that a challenge names.
    static std::string SecretFile(const Reply& challenge)
    {
        const auto line = challenge.headers.find("WWW-Authenticate");
        const std::string prefix = "Basic realm=";
        if (challenge.status != 401 || line == challenge.headers.end() || line->second.rfind(prefix, 0) != 0)
            return "";
        return line->second.substr(prefix.size());
    }
};

TEST_F(RefusalTest, RequestsAreRefusedAsTheServiceRefusesThem)
{
    AddKey({{"name", "rsa"}});
    AddKey({{"name", "ec"}, {"kty", "EC"}});
    AddKey({{"name", "wide"}, {"kty", "EC"}, {"crv", "P-521"}});
    AddKey({{"name", "off"}, {"kty", "EC"}, {"enabled", false}});
    AddKey({{"name", "narrow"}, {"kty", "EC"}, {"key_ops", {"verify"}}});
    AddKey({{"name", "old"}, {"kty", "EC"}, {"exp", 1000}});
    AddKey({{"name", "early"}, {"kty", "EC"}, {"nbf", 99999999999}});
    AddCertificate({{"name", "cert"}, {"kty", "EC"}});

    const auto signature = [](const char* algorithm, const std::string& digest = kDigest32) {
        return Json{{"alg", algorithm}, {"value", digest}};
    };
    const auto certificate = [](const Json& key) {
        return Json{{"policy", {{"key_props", key}, {"x509_props", {{"subject", "CN=x"}}}}}};
    };
    const char* const kBad = "400 BadParameter";
    const struct {
        const char* name;
        const char* path;
        Json body;  // null: a GET
        const char* outcome;
        const char* vault = "contoso-keys";
    } rows[] = {
        {"no such key", "/keys/none", nullptr, "404 KeyNotFound"},
        {"no such version", "/keys/rsa/0123", nullptr, "404 KeyNotFound"},
        {"no such certificate", "/certificates/none", nullptr, "404 CertificateNotFound"},
        {"not a name", "/keys/a_b", nullptr, kBad},
        {"no such operation", "/keys/rsa//shred", signature("RS256"), kBad},
        {"a merge among the keys", "/keys/rsa/pending/merge", {{"x5c", {"AA"}}}, kBad},
        {"not JSON", "/keys/a/create", "text", kBad},
        {"no kty", "/keys/a/create", Json::object(), kBad},
        {"kty in lower case", "/keys/a/create", {{"kty", "rsa"}}, kBad},
        {"odd size", "/keys/a/create", {{"kty", "RSA"}, {"key_size", 1024}}, kBad},
        {"size isn't a number", "/keys/a/create", {{"kty", "RSA"}, {"key_size", "2k"}}, kBad},
        {"512 bits of P-521", "/keys/a/create", {{"kty", "EC"}, {"crv", "P-521"}, {"key_size", 512}}, kBad},
        {"no such curve", "/keys/a/create", {{"kty", "EC"}, {"crv", "P-192"}}, kBad},
        {"no such key operation", "/keys/a/create", {{"kty", "EC"}, {"key_ops", {"fly"}}}, kBad},
        {"tags that aren't texts", "/keys/a/create", {{"kty", "EC"}, {"tags", {{"a", 1}}}}, kBad},
        {"hardware in a standard vault", "/keys/a/create", {{"kty", "RSA-HSM"}}, kBad, "fabrikam"},
        {"the key of a certificate", "/keys/cert/create", {{"kty", "RSA"}}, "409 Conflict"},
        {"a key's name for a certificate", "/certificates/rsa/create", certificate({}), "409 Conflict"},
        {"no policy", "/certificates/a/create", Json::object(), kBad},
        {"no subject", "/certificates/a/create", {{"policy", Json::object()}}, kBad},
        {"a subject that isn't a name",
         "/certificates/a/create",
         {{"policy", {{"x509_props", {{"subject", "Acme, Inc."}}}}}},
         kBad},
        {"another kind of key to reuse", "/certificates/cert/create",
         certificate({{"kty", "RSA"}, {"reuse_key", true}}), kBad},
        {"a hardware key that leaves", "/certificates/a/create",
         certificate({{"kty", "RSA-HSM"}, {"exportable", true}}), kBad},
        {"no algorithm", "/keys/rsa//sign", {{"value", kDigest32}}, kBad},
        {"no such algorithm", "/keys/rsa//sign", signature("RS1"), kBad},
        {"a digest that is too long", "/keys/rsa//sign", signature("RS256", kDigest48), kBad},
        {"more than the padding leaves", "/keys/rsa//sign", signature("RSNULL", std::string(328, 'A')), kBad},
        {"a digest that isn't Base64", "/keys/rsa//sign", signature("RS256", "*"), kBad},
        {"no digest", "/keys/rsa//sign", {{"alg", "RS256"}}, kBad},
        {"the algorithm of another curve", "/keys/wide//sign", signature("ES256"), kBad},
        {"a curve's algorithm on RSA", "/keys/rsa//sign", signature("ES256"), kBad},
        {"an RSA algorithm on a curve", "/keys/ec//sign", signature("RS256"), kBad},
        {"nothing that was encrypted", "/keys/rsa//decrypt", signature("RSA1_5", std::string(342, 'A')), kBad},
        {"not among the key's operations", "/keys/narrow//sign", signature("ES256"),
         "403 Forbidden KeyOperationForbidden"},
        {"a disabled key", "/keys/off//sign", signature("ES256"), "403 Forbidden KeyDisabled"},
        {"an expired key", "/keys/old//sign", signature("ES256"), "403 Forbidden KeyExpired"},
        {"a key of the future", "/keys/early//sign", signature("ES256"), "403 Forbidden KeyNotYetValid"},
        {"no version", "/keys?", nullptr, kBad},
        {"an old version", "/keys?api-version=2015-06-01", nullptr, kBad},
        {"long pages", "/keys?api-version=7.0&maxresults=26", nullptr, kBad},
        {"a page that wasn't offered", "/keys?api-version=7.0&$skiptoken=AAAA", nullptr, kBad},
    };
    for (const auto& row : rows) {
        const Reply reply = Vault(row.body.is_null() ? "GET" : "POST", row.path, row.body, row.vault);
        EXPECT_EQ(reply.Outcome(), row.outcome) << row.name << " " << reply.body;
    }
    EXPECT_EQ(Vault("GET", "/keys", nullptr, "nobody").body, "no such vault: nobody.vault.azure.net");

    // The texts are the service's.
    const auto message = [](const Reply& reply) { return reply.json()["error"]["message"]; };
    EXPECT_EQ(message(Vault("POST", "/keys/a/create", {{"kty", "EC-HSM"}}, "fabrikam")),
              "Hardware key operation not allowed on standard vault");
    EXPECT_EQ(message(Vault("POST", "/keys/rsa//sign", signature("RS384"))),
              "Invalid length of 'value': 32 bytes. RS384 requires 48 bytes, encoded with base64url.");
    AddKey({{"name", "k"}, {"key_ops", {"sign"}}});
    EXPECT_EQ(Vault("POST", "/keys/k//decrypt", {{"alg", "RSA1_5"}, {"value", "AA"}}).json(),
              Sample("error-403-key-operation-forbidden"));

    // A disabled key keeps its public half.
    AddKey({{"name", "closed"}, {"enabled", false}});
    EXPECT_EQ(Get("/keys/closed").json()["attributes"]["enabled"], false);
    EXPECT_EQ(Vault("POST", "/keys/closed//encrypt", {{"alg", "RSA1_5"}, {"value", "AA"}}).status, 200);
    const Json verify = {{"alg", "RS256"}, {"digest", kDigest32}, {"value", kDigest48}};
    EXPECT_EQ(Vault("POST", "/keys/closed//verify", verify).body, "{\"value\":false}");
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
        EXPECT_EQ(Raw(Port("http"), request).find(answer), 0u) << request;

    // The journal has all of them as they came.
    const Json requests = Control("GET", "/journal")["requests"];
    ASSERT_EQ(requests.size(), std::size(rows) + 1) << "two of them on one connection";
    EXPECT_EQ(requests[requests.size() - 2]["requestLine"], "GET /b HTTP/1.1");
    const Json& last = requests.back();
    EXPECT_EQ(last["listener"], "http");
    EXPECT_EQ(std::string(std::rbegin(rows)->first).find(last["requestLine"].get<std::string>() + "\r\n"), 0u);
    EXPECT_EQ(last["headers"],
              Json({"Host: 169.254.169.254", "Metadata: True", "X-Two:  blanks ", "Connection: close"}));
    EXPECT_EQ(last["status"], 200);
    EXPECT_TRUE(last["fault"].is_null());
}

TEST_F(RefusalTest, SignInWantsTheWholeForm)
{
    const Json answer = SignIn(SignInForm()).json();
    for (const auto& [name, value] : answer.items())
        EXPECT_TRUE(value.is_string()) << name;
    EXPECT_EQ(answer["token_type"], "Bearer");
    const Json claims = Claims(answer["access_token"]);
    EXPECT_EQ(claims["aud"], "https://vault.azure.net");
    EXPECT_EQ(claims["oid"], Sim().options.oid);
    EXPECT_EQ(claims["exp"].get<int64_t>() - claims["nbf"].get<int64_t>(), 3900);
    EXPECT_EQ(ListWith(answer["access_token"].get<std::string>()).status, 200);

    const std::string good = SignInForm();
    const auto with = [&](const std::string& text, const std::string& other) {
        const size_t at = good.find(text);
        return good.substr(0, at) + other + good.substr(at + text.size());
    };
    const struct {
        std::string body;
        const char* outcome;
        std::string path = {};
    } rows[] = {
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
        {good, "404", "/" + Sim().options.tenant + "/oauth2/v2.0/token"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(SignIn(row.body, row.path).Outcome(), row.outcome) << row.body << row.path;
    EXPECT_EQ(Shape(SignIn(good + "x").json()), Shape(Sample("error-401-client-secret")));
    EXPECT_EQ(Control("GET", "/counts")["signins"], 2);

    Control("PUT", "/tokens", {{"oid", "0f"}, {"omit", {"token_type"}}});
    const Json changed = SignIn(good).json();
    EXPECT_FALSE(changed.contains("token_type"));
    EXPECT_EQ(Claims(changed["access_token"])["oid"], "0f");
    Control("PUT", "/tokens", {{"omit", {"oid"}}, {"tokenType", "bearer"}});
    const Json bare = SignIn(good).json();
    EXPECT_EQ(bare["token_type"], "bearer");
    EXPECT_FALSE(Claims(bare["access_token"]).contains("oid"));
}

TEST_F(RefusalTest, TheVaultTakesNoOtherToken)
{
    const std::string good = FreshToken();
    const size_t first = good.find('.');
    const size_t second = good.rfind('.');
    Json claims = Claims(good);
    claims["aud"] = "https://management.azure.com";
    const std::string forged = good.substr(0, first + 1) + vaultsim::ToBase64Url(claims.dump()) + good.substr(second);
    const std::string header = vaultsim::ToBase64Url(Json({{"alg", "none"}}).dump());
    Control("PUT", "/tokens", {{"lifetimeSeconds", 0}});
    const std::string expired = FreshToken();

    EXPECT_EQ(ListWith(httplib::Headers()).json(), Sample("error-401-no-token"));
    EXPECT_EQ(ListWith({{"Authorization", "Basic " + good}}).json(), Sample("error-401-no-token"));
    for (const std::string& token :
         {std::string("x"), forged, header + good.substr(first), good.substr(0, second + 1), expired}) {
        const Reply reply = ListWith(token);
        EXPECT_EQ(reply.Outcome(), "401 Unauthorized") << token;
        EXPECT_EQ(reply.headers.find("WWW-Authenticate")->second, "Bearer authorization=\"https://login.windows.net/" +
                                                                      Sim().options.tenant +
                                                                      "\", resource=\"https://vault.azure.net\"");
    }
    EXPECT_EQ(ListWith(good).status, 200);
}

TEST_F(RefusalTest, MetadataAnswersAProperRequestOnly)
{
    const std::string version = "&api-version=2018-02-01";
    const struct {
        const char* name;
        std::string query;
        int status;
        httplib::Headers headers = kMetadata;
    } rows[] = {
        {"any letter case", kVaultResource + version, 200, {{"metadata", "true"}}},
        {"its own client id", kVaultResource + version + "&client_id=" + Sim().options.clientId, 200},
        {"no header", kVaultResource + version, 400, {}},
        {"the other service's version", kVaultResource + "&api-version=2020-06-01", 400},
        {"no version", kVaultResource, 400},
        {"no resource", "api-version=2018-02-01", 400},
        {"another resource", "resource=x" + version, 400},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Metadata(row.query, row.headers).status, row.status) << row.name;
    EXPECT_EQ(Identity("http", "/metadata/instance?" + version, kMetadata).status, 404);
    const Reply unknown = Metadata(kVaultResource + version + "&client_id=nobody");
    EXPECT_EQ(unknown.status, 400);
    EXPECT_EQ(unknown.json(), Sample("error-400-identity-not-found"));

    const Json answer = Metadata(kVaultResource + version).json();
    for (const auto& [name, value] : answer.items())
        EXPECT_TRUE(value.is_string()) << name;
    EXPECT_EQ(ListWith(answer["access_token"].get<std::string>()).status, 200);
}

TEST_F(RefusalTest, ArcWantsTheSecretOfAFreshFileOnce)
{
    const std::string file = SecretFile(Arc());
    struct stat info = {};
    ASSERT_EQ(stat(file.c_str(), &info), 0) << file;
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    const std::string secret = *vaultsim::ReadFile(file);

    EXPECT_NE(SecretFile(Arc("wrong")), file);
    const Reply answer = Arc(secret);
    EXPECT_EQ(answer.status, 200);
    EXPECT_TRUE(answer.json().contains("access_token"));
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_EQ(Arc(secret).status, 401);
    EXPECT_EQ(Arc("", "2018-02-01").status, 400);

    Control("PUT", "/arc", {{"realmPrefix", "Z:"}});
    EXPECT_EQ(SecretFile(Arc()).substr(0, 3), "Z:/");
}

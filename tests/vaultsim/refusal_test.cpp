// What the vault refuses, and how.
#include "tests/vaultsim/sim_test.h"

namespace {

struct RefusalRow {
    const char* name;
    const char* target;  // without the interface's version
    Json body;           // null: a GET
    int status = 400;
    const char* code = "BadParameter";
    const char* inner = "";
    const char* vault = "contoso-keys";
};

const std::string kDigest32(43, 'A');
const std::string kDigest48(64, 'A');

}  // namespace

using RefusalTest = SimTest;

TEST_F(RefusalTest, RequestsAreRefusedAsTheServiceRefusesThem)
{
    const auto add = [](Json key) { Control("POST", "/vaults/contoso-keys/keys", key); };
    add({{"name", "rsa"}});
    add({{"name", "ec"}, {"kty", "EC"}, {"crv", "P-256"}});
    add({{"name", "wide"}, {"kty", "EC"}, {"crv", "P-521"}});
    add({{"name", "off"}, {"enabled", false}});
    add({{"name", "narrow"}, {"key_ops", {"verify"}}});
    add({{"name", "old"}, {"exp", 1000}});
    add({{"name", "early"}, {"nbf", 99999999999}});
    Control("POST", "/vaults/contoso-keys/certificates", {{"name", "cert"}, {"kty", "EC"}});

    const Json rs256 = {{"alg", "RS256"}, {"value", kDigest32}};
    const Json dummy = {{"subject", "CN=x"}};
    const auto certificate = [&dummy](const Json& key) {
        return Json{{"policy", {{"key_props", key}, {"x509_props", dummy}}}};
    };
    const RefusalRow rows[] = {
        {"no such key", "/keys/none", nullptr, 404, "KeyNotFound"},
        {"no such version", "/keys/rsa/0123", nullptr, 404, "KeyNotFound"},
        {"no such certificate", "/certificates/none", nullptr, 404, "CertificateNotFound"},
        {"no name", "/keys/a_b", nullptr},
        {"no such operation", "/keys/rsa//shred", rs256},
        {"a merge among the keys", "/keys/rsa/pending/merge", {{"x5c", {"AA"}}}},
        {"no JSON", "/keys/a/create", "text"},
        {"no kty", "/keys/a/create", Json::object()},
        {"kty in lower case", "/keys/a/create", {{"kty", "rsa"}}},
        {"odd size", "/keys/a/create", {{"kty", "RSA"}, {"key_size", 1024}}},
        {"size is no number", "/keys/a/create", {{"kty", "RSA"}, {"key_size", "2k"}}},
        {"512 bits of P-521", "/keys/a/create", {{"kty", "EC"}, {"crv", "P-521"}, {"key_size", 512}}},
        {"no such curve", "/keys/a/create", {{"kty", "EC"}, {"crv", "P-192"}}},
        {"no such key operation", "/keys/a/create", {{"kty", "EC"}, {"key_ops", {"fly"}}}},
        {"tags that are no texts", "/keys/a/create", {{"kty", "EC"}, {"tags", {{"a", 1}}}}},
        {"hardware in a standard vault", "/keys/a/create", {{"kty", "RSA-HSM"}}, 400, "BadParameter", "", "fabrikam"},
        {"the key of a certificate", "/keys/cert/create", {{"kty", "RSA"}}, 409, "Conflict"},
        {"a key's name for a certificate", "/certificates/rsa/create", certificate({}), 409, "Conflict"},
        {"no policy", "/certificates/a/create", Json::object()},
        {"no subject", "/certificates/a/create", {{"policy", Json::object()}}},
        {"a subject that is no name",
         "/certificates/a/create",
         {{"policy", {{"x509_props", {{"subject", "Acme, Inc."}}}}}}},
        {"another kind of key to reuse", "/certificates/cert/create",
         certificate({{"kty", "RSA"}, {"reuse_key", true}})},
        {"a hardware key that leaves", "/certificates/a/create",
         certificate({{"kty", "RSA-HSM"}, {"exportable", true}})},
        {"no algorithm", "/keys/rsa//sign", {{"value", kDigest32}}},
        {"no such algorithm", "/keys/rsa//sign", {{"alg", "RS1"}, {"value", kDigest32}}},
        {"a digest that is too long", "/keys/rsa//sign", {{"alg", "RS256"}, {"value", kDigest48}}},
        {"more than the padding leaves", "/keys/rsa//sign", {{"alg", "RSNULL"}, {"value", std::string(328, 'A')}}},
        {"a digest that is no Base64", "/keys/rsa//sign", {{"alg", "RS256"}, {"value", "*"}}},
        {"no digest", "/keys/rsa//sign", {{"alg", "RS256"}}},
        {"the algorithm of another curve", "/keys/wide//sign", {{"alg", "ES256"}, {"value", kDigest32}}},
        {"a curve's algorithm on RSA", "/keys/rsa//sign", {{"alg", "ES256"}, {"value", kDigest32}}},
        {"an RSA algorithm on a curve", "/keys/ec//sign", rs256},
        {"nothing that was encrypted", "/keys/rsa//decrypt", {{"alg", "RSA1_5"}, {"value", std::string(342, 'A')}}},
        {"not among the key's operations", "/keys/narrow//sign", rs256, 403, "Forbidden", "KeyOperationForbidden"},
        {"a disabled key", "/keys/off//sign", rs256, 403, "Forbidden", "KeyDisabled"},
        {"an expired key", "/keys/old//sign", rs256, 403, "Forbidden", "KeyExpired"},
        {"a key of the future", "/keys/early//sign", rs256, 403, "Forbidden", "KeyNotYetValid"},
    };
    for (const RefusalRow& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string target = std::string(row.target) + "?api-version=7.0";
        const Reply reply = Vault(row.body.is_null() ? "GET" : "POST", target, row.body, row.vault);
        EXPECT_EQ(reply.status, row.status) << reply.body;
        EXPECT_EQ(reply.Code(), row.code);
        EXPECT_EQ(reply.Inner(), row.inner);
    }
    for (const char* query :
         {"", "?api-version=2015-06-01", "?api-version=7.0&maxresults=26", "?api-version=7.0&$skiptoken=AAAA"}) {
        const Reply reply = Vault("GET", std::string("/keys") + query);
        EXPECT_EQ(reply.status, 400) << query;
        EXPECT_EQ(reply.Code(), "BadParameter") << query;
    }
}

TEST_F(RefusalTest, RefusedTextsAreTheServices)
{
    EXPECT_EQ(
        Vault("POST", "/keys/a/create?api-version=7.0", {{"kty", "EC-HSM"}}, "fabrikam").json()["error"]["message"],
        "Hardware key operation not allowed on standard vault");
    Control("POST", "/vaults/contoso-keys/keys", {{"name", "k"}, {"key_ops", {"sign"}}});
    EXPECT_EQ(Vault("POST", "/keys/k//decrypt?api-version=7.0", {{"alg", "RSA1_5"}, {"value", "AA"}}).json(),
              Sample(SERVICE_SAMPLES "/error-403-key-operation-forbidden.json"));
    const Json size = Vault("POST", "/keys/k//sign?api-version=7.0", {{"alg", "RS384"}, {"value", kDigest32}}).json();
    EXPECT_EQ(size["error"]["message"],
              "Invalid length of 'value': 32 bytes. RS384 requires 48 bytes, encoded with base64url.");
}

// A disabled key keeps its public half.
TEST_F(RefusalTest, PublicOperationsOfADisabledKeyStayOpen)
{
    Control("POST", "/vaults/contoso-keys/keys", {{"name", "off"}, {"enabled", false}});
    EXPECT_EQ(Vault("GET", "/keys/off?api-version=7.0").json()["attributes"]["enabled"], false);
    EXPECT_EQ(Vault("POST", "/keys/off//encrypt?api-version=7.0", {{"alg", "RSA1_5"}, {"value", "AA"}}).status, 200);
    const Json verify = {{"alg", "RS256"}, {"digest", kDigest32}, {"value", kDigest48}};
    EXPECT_EQ(Vault("POST", "/keys/off//verify?api-version=7.0", verify).body, "{\"value\":false}");
}

TEST_F(RefusalTest, WhatIsNoProperRequestIsRefusedBeforeAnyService)
{
    const std::pair<const char*, const char*> rows[] = {
        {"HELLO\r\n\r\n", "HTTP/1.1 400 "},
        {"GET /a HTTP/1.1\r\n\r\n", "HTTP/1.1 400 "},
        {"GET /a HTTP/1.1\r\nHost: x\r\nbroken\r\n\r\n", "HTTP/1.1 400 "},
        {"POST /a HTTP/1.1\r\nHost: x\r\n\r\n", "HTTP/1.1 411 "},
        {"POST /a HTTP/1.1\r\nHost: x\r\nContent-Length: -1\r\n\r\n", "HTTP/1.1 400 "},
        {"POST /a HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n", "HTTP/1.1 400 "},
    };
    for (const auto& [request, answer] : rows)
        EXPECT_EQ(Raw(Port("http"), request).substr(0, 13), answer) << request;
    EXPECT_EQ(Control("GET", "/journal")["requests"].size(), std::size(rows));
    EXPECT_EQ(Vault("GET", "/keys?api-version=7.0", nullptr, "nobody").body, "no such vault: nobody.vault.azure.net");
}

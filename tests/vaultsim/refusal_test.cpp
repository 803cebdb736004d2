// What the vault refuses, and how.
#include "tests/vaultsim/sim_test.h"

namespace {

struct RefusalRow {
    const char* name;
    const char* method;
    const char* target;
    Json body;
    int status;
    const char* code;
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
    const RefusalRow rows[] = {
        {"no version of the interface", "GET", "/keys", nullptr, 400, "BadParameter"},
        {"unknown version of the interface", "GET", "/keys?api-version=2015-06-01", nullptr, 400, "BadParameter"},
        {"no such key", "GET", "/keys/none?api-version=7.0", nullptr, 404, "KeyNotFound"},
        {"no such version", "GET", "/keys/rsa/0123?api-version=7.0", nullptr, 404, "KeyNotFound"},
        {"no such certificate", "GET", "/certificates/none?api-version=7.0", nullptr, 404, "CertificateNotFound"},
        {"no name", "GET", "/keys/a_b?api-version=7.0", nullptr, 400, "BadParameter"},
        {"no such operation", "POST", "/keys/rsa//shred?api-version=7.0", rs256, 400, "BadParameter"},
        {"a merge among the keys",
         "POST",
         "/keys/rsa/pending/merge?api-version=7.0",
         {{"x5c", {"AA"}}},
         400,
         "BadParameter"},
        {"no JSON", "POST", "/keys/a/create?api-version=7.0", "text", 400, "BadParameter"},
        {"no kty", "POST", "/keys/a/create?api-version=7.0", Json::object(), 400, "BadParameter"},
        {"kty in lower case", "POST", "/keys/a/create?api-version=7.0", {{"kty", "rsa"}}, 400, "BadParameter"},
        {"odd size",
         "POST",
         "/keys/a/create?api-version=7.0",
         {{"kty", "RSA"}, {"key_size", 1024}},
         400,
         "BadParameter"},
        {"size is no number",
         "POST",
         "/keys/a/create?api-version=7.0",
         {{"kty", "RSA"}, {"key_size", "2k"}},
         400,
         "BadParameter"},
        {"512 bits of P-521",
         "POST",
         "/keys/a/create?api-version=7.0",
         {{"kty", "EC"}, {"crv", "P-521"}, {"key_size", 512}},
         400,
         "BadParameter"},
        {"no such curve",
         "POST",
         "/keys/a/create?api-version=7.0",
         {{"kty", "EC"}, {"crv", "P-192"}},
         400,
         "BadParameter"},
        {"no such key operation",
         "POST",
         "/keys/a/create?api-version=7.0",
         {{"kty", "EC"}, {"key_ops", {"fly"}}},
         400,
         "BadParameter"},
        {"tags that are no texts",
         "POST",
         "/keys/a/create?api-version=7.0",
         {{"kty", "EC"}, {"tags", {{"a", 1}}}},
         400,
         "BadParameter"},
        {"hardware in a standard vault",
         "POST",
         "/keys/a/create?api-version=7.0",
         {{"kty", "RSA-HSM"}},
         400,
         "BadParameter",
         "",
         "fabrikam"},
        {"the key of a certificate", "POST", "/keys/cert/create?api-version=7.0", {{"kty", "RSA"}}, 409, "Conflict"},
        {"a key's name for a certificate",
         "POST",
         "/certificates/rsa/create?api-version=7.0",
         {{"policy", {{"x509_props", dummy}}}},
         409,
         "Conflict"},
        {"no policy", "POST", "/certificates/a/create?api-version=7.0", Json::object(), 400, "BadParameter"},
        {"no subject",
         "POST",
         "/certificates/a/create?api-version=7.0",
         {{"policy", Json::object()}},
         400,
         "BadParameter"},
        {"a subject that is no name",
         "POST",
         "/certificates/a/create?api-version=7.0",
         {{"policy", {{"x509_props", {{"subject", "Acme, Inc."}}}}}},
         400,
         "BadParameter"},
        {"another kind of key to reuse",
         "POST",
         "/certificates/cert/create?api-version=7.0",
         {{"policy", {{"key_props", {{"kty", "RSA"}, {"reuse_key", true}}}, {"x509_props", dummy}}}},
         400,
         "BadParameter"},
        {"a hardware key that leaves",
         "POST",
         "/certificates/a/create?api-version=7.0",
         {{"policy", {{"key_props", {{"kty", "RSA-HSM"}, {"exportable", true}}}, {"x509_props", dummy}}}},
         400,
         "BadParameter"},
        {"no algorithm", "POST", "/keys/rsa//sign?api-version=7.0", {{"value", kDigest32}}, 400, "BadParameter"},
        {"no such algorithm",
         "POST",
         "/keys/rsa//sign?api-version=7.0",
         {{"alg", "RS1"}, {"value", kDigest32}},
         400,
         "BadParameter"},
        {"a digest that is too long",
         "POST",
         "/keys/rsa//sign?api-version=7.0",
         {{"alg", "RS256"}, {"value", kDigest48}},
         400,
         "BadParameter"},
        {"a digest that is no Base64",
         "POST",
         "/keys/rsa//sign?api-version=7.0",
         {{"alg", "RS256"}, {"value", "*"}},
         400,
         "BadParameter"},
        {"no digest", "POST", "/keys/rsa//sign?api-version=7.0", {{"alg", "RS256"}}, 400, "BadParameter"},
        {"the algorithm of another curve",
         "POST",
         "/keys/wide//sign?api-version=7.0",
         {{"alg", "ES256"}, {"value", kDigest32}},
         400,
         "BadParameter"},
        {"a curve's algorithm on RSA",
         "POST",
         "/keys/rsa//sign?api-version=7.0",
         {{"alg", "ES256"}, {"value", kDigest32}},
         400,
         "BadParameter"},
        {"an RSA algorithm on a curve", "POST", "/keys/ec//sign?api-version=7.0", rs256, 400, "BadParameter"},
        {"not among the key's operations", "POST", "/keys/narrow//sign?api-version=7.0", rs256, 403, "Forbidden",
         "KeyOperationForbidden"},
        {"a disabled key", "POST", "/keys/off//sign?api-version=7.0", rs256, 403, "Forbidden", "KeyDisabled"},
        {"an expired key", "POST", "/keys/old//sign?api-version=7.0", rs256, 403, "Forbidden", "KeyExpired"},
        {"a key of the future", "POST", "/keys/early//sign?api-version=7.0", rs256, 403, "Forbidden", "KeyNotYetValid"},
        {"too long a page", "GET", "/keys?api-version=7.0&maxresults=26", nullptr, 400, "BadParameter"},
        {"a page from nowhere", "GET", "/keys?api-version=7.0&$skiptoken=AAAA", nullptr, 400, "BadParameter"},
    };
    for (const RefusalRow& row : rows) {
        SCOPED_TRACE(row.name);
        const Reply reply = Vault(row.method, row.target, row.body, row.vault);
        EXPECT_EQ(reply.status, row.status) << reply.body;
        EXPECT_EQ(reply.Code(), row.code);
        EXPECT_EQ(reply.Inner(), row.inner);
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

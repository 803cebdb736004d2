// Keys, signatures and lists. The tests of the tool and the provider check signatures with another's code.
#include "tests/vaultsim/sim_test.h"
#include "vaultsim/key_material.h"
#include "vaultsim/signature.h"

class KeyTest : public SimTest {
  protected:
    static Reply Operate(const std::string& key, const char* operation, const Json& body)
    {
        return Vault("POST", "/keys/" + key + "//" + operation, body);
    }
    // Names in the order of the pages, which are walked as the client does: by the tail of the link.
    static std::vector<std::string> Walk(const std::string& collection, const std::string& query = "",
                                         std::vector<size_t>* pages = nullptr)
    {
        std::vector<std::string> names;
        std::string target = "/" + collection + "?api-version=2016-10-01" + query;
        while (!target.empty()) {
            const Json page = Get(target).json();
            for (const Json& item : page["value"]) {
                const std::string id = item[collection == "keys" ? "kid" : "id"];
                names.push_back(id.substr(id.rfind('/') + 1));
            }
            if (pages)
                pages->push_back(page["value"].size());
            const std::string link = page["nextLink"].is_null() ? "" : page["nextLink"].get<std::string>();
            target = link.empty() ? "" : link.substr(link.find("/" + collection + "?"));
        }
        return names;
    }
};

TEST_F(KeyTest, EveryKindOfKeySignsAndVerifies)
{
    const struct {
        const char* name;
        Json key;
        const char* algorithm;
        size_t digestSize;
        size_t signatureSize;
    } rows[] = {
        {"rsa2", {{"kty", "RSA-HSM"}, {"key_size", "2048"}}, "PS256", 32, 256},
        {"rsa3", {{"kty", "RSA"}, {"key_size", 3072}}, "RS384", 48, 384},
        {"rsa4", {{"kty", "RSA"}, {"key_size", "4096"}}, "RS512", 64, 512},
        {"rsa2", nullptr, "RSNULL", 245, 256},
        {"p256", {{"kty", "EC-HSM"}, {"crv", "P-256"}}, "ES256", 32, 64},
        {"p521", {{"kty", "EC"}, {"crv", "P-521"}}, "ES512", 64, 132},
        {"k256", {{"kty", "EC"}, {"crv", "P-256K"}}, "ES256K", 32, 64},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        if (!row.key.is_null()) {
            ASSERT_EQ(Vault("POST", std::string("/keys/") + row.name + "/create", row.key).status, 200);
        }
        const std::string digest(row.digestSize, 'd');
        const Reply reply = Operate(row.name, "sign", {{"alg", row.algorithm}, {"value", ToBase64(digest)}});
        ASSERT_EQ(reply.status, 200) << reply.body;
        const std::string signature = *FromBase64(reply.json()["value"].get<std::string>());
        EXPECT_EQ(signature.size(), row.signatureSize);
        const auto verified = [&](const std::string& hash, const std::string& value) {
            return Operate(row.name, "verify",
                           {{"alg", row.algorithm}, {"digest", ToBase64(hash)}, {"value", ToBase64(value)}})
                .body;
        };
        EXPECT_EQ(verified(digest, signature), "{\"value\":true}");
        EXPECT_EQ(verified(std::string(row.digestSize, 'e'), signature), "{\"value\":false}");
        EXPECT_EQ(verified(digest, signature.substr(0, row.signatureSize - 1)), "{\"value\":false}");
    }

    // A leading zero belongs to the signature.
    const vaultsim::Pkey key = vaultsim::GenerateRsa(1024);
    for (const char* name : {"RSNULL", "RS256", "PS256"}) {
        const vaultsim::SignatureAlgorithm& algorithm = *vaultsim::FindSignatureAlgorithm(name);
        std::string digest;
        std::string signature;
        int count = 0;
        do {
            digest = std::to_string(count++);
            digest.resize(32, 'd');
            signature = vaultsim::SignDigest(key.get(), algorithm, digest);
        } while (signature[0] != 0);
        EXPECT_TRUE(vaultsim::VerifyDigest(key.get(), algorithm, digest, signature)) << name;
        EXPECT_FALSE(vaultsim::VerifyDigest(key.get(), algorithm, digest, signature.substr(1))) << name;
        EXPECT_FALSE(vaultsim::VerifyDigest(key.get(), algorithm, digest, '\0' + signature)) << name;
    }
}

TEST_F(KeyTest, AnswersHaveTheShapesOfTheService)
{
    const Json rsa = Vault("POST", "/keys/a/create", {{"kty", "RSA"}}).json();
    EXPECT_EQ(Shape(rsa), Shape(Sample("key-create-rsa")));
    EXPECT_EQ(rsa["key"]["key_ops"], Sample("key-create-rsa")["key"]["key_ops"]);
    const Reply curve = Vault("POST", "/keys/b/create", {{"kty", "EC"}, {"crv", "P-521"}});
    EXPECT_EQ(Shape(curve.json()), Shape(Sample("ec-p521-create")));
    EXPECT_EQ(FromBase64(curve.json()["key"]["x"].get<std::string>())->size(), 66u);
    const Reply sign = Operate("b", "sign", {{"alg", "ES512"}, {"value", ToBase64(std::string(64, 'd'))}});
    EXPECT_EQ(Shape(sign.json()), Shape(Sample("ec-p521-sign")));

    // The answer of an operation without a version names the version that was used, and that version is addressable.
    const std::string kid = sign.json()["kid"];
    EXPECT_EQ(kid, curve.json()["key"]["kid"].get<std::string>());
    const std::string path = kid.substr(kid.find("/keys/"));
    for (const std::string& read : {path, std::string("/keys/b"), std::string("/keys/B/")})
        EXPECT_EQ(Get(read + "?api-version=2016-10-01").body, curve.body) << read;

    // Imported numbers may have a zero in front.
    AddKey({{"name", "n"}, {"leadingZero", true}});
    AddKey({{"name", "x"}, {"leadingZero", true}, {"kty", "EC"}, {"crv", "P-384"}});
    EXPECT_EQ(FromBase64(Get("/keys/n").json()["key"]["n"].get<std::string>())->size(), 257u);
    EXPECT_EQ(FromBase64(Get("/keys/x").json()["key"]["x"].get<std::string>())->size(), 49u);
}

TEST_F(KeyTest, PagesHaveTheLinksOfTheService)
{
    Control("POST", "/vaults/contoso-keys/seed", {{"keys", 60}, {"kty", "EC"}, {"tags", {{"a", "b"}}}});
    const Json page = Get("/keys?api-version=2016-10-01").json();
    EXPECT_EQ(
        Shape(page["value"][0]),
        "{kid:string attributes:{enabled:boolean created:number updated:number recoveryLevel:string} tags:{a:string}}");
    EXPECT_EQ(page["value"][0]["kid"], "https://contoso-keys.vault.azure.net/keys/key-000000");
    const std::string start = "https://contoso-keys.vault.azure.net:443/keys?api-version=2016-10-01&$skiptoken=";
    EXPECT_EQ(page["nextLink"].get<std::string>().substr(0, start.size()), start);
    EXPECT_EQ(Vault("GET", "/keys", nullptr, "fabrikam").body, "{\"value\":[],\"nextLink\":null}");
    AddCertificate({{"count", 7}, {"prefix", "c"}, {"kty", "EC"}});
    const Json item = Get("/certificates").json()["value"][3];
    EXPECT_EQ(item["id"], "https://contoso-keys.vault.azure.net/certificates/c000003");
    EXPECT_EQ(item["x5t"].get<std::string>().size(), 27u);
    EXPECT_FALSE(item.contains("cer"));

    // Short and empty pages lose nothing.
    Control("PUT", "/paging", {{"maxPage", 2}, {"emptyEvery", 3}, {"firstEmpty", true}});
    std::vector<size_t> pages;
    EXPECT_EQ(Walk("certificates", "", &pages).size(), 7u);
    EXPECT_EQ(pages, (std::vector<size_t>{0, 2, 0, 2, 2, 0, 1}));
    Control("PUT", "/paging", {{"maxPage", 25}, {"emptyEvery", 0}, {"firstEmpty", false}});
    for (const auto& [query, sizes] :
         {std::pair("", std::vector<size_t>{25, 25, 17}), {"&maxresults=24", {24, 24, 19}}}) {
        pages.clear();
        EXPECT_EQ(Walk("keys", query, &pages).size(), 67u) << "certificates have keys";
        EXPECT_EQ(pages, sizes);
    }

    // Names stand in order whatever their case.
    Sim().Reset();
    for (const char* name : {"beta", "Alpha", "-coded", "alpha2", "GAMMA"})
        AddKey({{"name", name}, {"kty", "EC"}});
    EXPECT_EQ(Walk("keys", "&maxresults=2"), (std::vector<std::string>{"-coded", "Alpha", "alpha2", "beta", "GAMMA"}));
}

// Keys and lists. The tests of the tool and the provider verify signatures with independent code.
#include "tests/vaultsim/sim_test.h"

class KeyTest : public SimTest {
  protected:
    // The names in order and the sizes of the pages, "a b|c||": follows the links as the client does, by their tails.
    std::string Walk(const std::string& collection, const std::string& query = "")
    {
        std::string names;
        std::string target = "/" + collection + "?api-version=2016-10-01" + query;
        while (!target.empty()) {
            const json page = Get(target).Json();
            for (const json& item : page["value"]) {
                const std::string id = item.value(collection == "keys" ? "kid" : "id", "");
                names += id.substr(id.rfind('/') + 1) + " ";
            }
            names += "|";
            const std::string link = page["nextLink"].is_null() ? "" : page.value("nextLink", "");
            target = link.empty() ? "" : link.substr(link.find("/" + collection + "?"));
        }
        return names;
    }
};

TEST_F(KeyTest, AnswersHaveTheShapesOfTheService)
{
    const Reply rsa = Vault("POST", "/keys/a/create", R"({"kty":"RSA"})");
    EXPECT_EQ(Shape(rsa.body), Shape(ReadServiceSample("key-create-rsa")));
    EXPECT_EQ(rsa.Json()["key"]["key_ops"], Sample("key-create-rsa")["key"]["key_ops"]);
    const Reply curve = Vault("POST", "/keys/b/create", R"({"kty":"EC","crv":"P-521"})");
    EXPECT_EQ(Shape(curve.body), Shape(ReadServiceSample("ec-p521-create")));
    const Reply sign = Vault("POST", "/keys/b//sign", R"({"alg":"ES512","value":")" + std::string(86, 'A') + "\"}");
    EXPECT_EQ(Shape(sign.body), Shape(ReadServiceSample("ec-p521-sign")));

    // The answer of an operation without a version names the version that was used, and that version is addressable.
    const std::string kid = sign.Json().value("kid", "");
    const json created = curve.Json()["key"];
    EXPECT_EQ(created["kid"], kid);
    for (const std::string& path : {kid.substr(kid.find("/keys/")), std::string("/keys/b"), std::string("/keys/B/")})
        EXPECT_EQ(Get(path + "?api-version=2016-10-01").body, curve.body) << path;

    // Every number has its full width. An imported key's may have a leading zero.
    AddKey(R"({"name":"n","leadingZero":true,"size":1024})");
    AddKey(R"({"name":"x","leadingZero":true,"kty":"EC","crv":"P-384"})");
    const auto sizeOf = [](const json& key, const char* member) { return FromBase64(key.value(member, ""))->size(); };
    EXPECT_EQ(sizeOf(created, "x"), 66u);
    EXPECT_EQ(sizeOf(Get("/keys/n").Json()["key"], "n"), 129u);
    EXPECT_EQ(sizeOf(Get("/keys/x").Json()["key"], "x"), 49u);
}

TEST_F(KeyTest, PagesHaveTheLinksOfTheService)
{
    Control("POST", "/vaults/contoso-keys/seed", R"({"keys":60,"kty":"EC","tags":{"a":"b"}})");
    const Reply first = Get("/keys?api-version=2016-10-01");
    const json page = first.Json();
    EXPECT_EQ(Shape(first.body),
              "{value:[{kid:string attributes:{enabled:boolean created:number updated:number recoveryLevel:string} "
              "tags:{a:string}}] nextLink:string}");
    EXPECT_EQ(page["value"][0]["kid"], "https://contoso-keys.vault.azure.net/keys/key-000000");
    const std::string start = "https://contoso-keys.vault.azure.net:443/keys?api-version=2016-10-01&$skiptoken=";
    EXPECT_EQ(page.value("nextLink", "").substr(0, start.size()), start);
    EXPECT_EQ(Vault("GET", "/keys", "", "fabrikam").body, "{\"value\":[],\"nextLink\":null}");
    AddCertificate(R"({"count":7,"prefix":"c","kty":"EC"})");
    const json item = Get("/certificates").Json()["value"][3];
    EXPECT_EQ(item["id"], "https://contoso-keys.vault.azure.net/certificates/c000003");
    EXPECT_EQ(item.value("x5t", "").size(), 27u);
    EXPECT_FALSE(item.contains("cer"));

    // Short and empty pages lose nothing.
    Control("PUT", "/paging", R"({"maxPage":2,"emptyEvery":3,"firstEmpty":true})");
    EXPECT_EQ(Walk("certificates"), "|c000000 c000001 ||c000002 c000003 |c000004 c000005 ||c000006 |");
    Control("PUT", "/paging", R"({"maxPage":25,"emptyEvery":0,"firstEmpty":false})");
    for (const auto& [query, sizes] :
         {std::pair("", std::vector<size_t>{25, 25, 17}), {"&maxresults=24", {24, 24, 19}}}) {
        std::vector<size_t> found = {0};
        for (const char c : Walk("keys", query)) {
            found.back() += c == ' ';
            if (c == '|')
                found.push_back(0);
        }
        found.pop_back();
        EXPECT_EQ(found, sizes) << "the certificates' keys are listed too";
    }

    // Names are ordered without regard to case.
    sim.Reset();
    for (const char* name : {"beta", "Alpha", "-coded", "alpha2", "GAMMA"})
        AddKey("{\"kty\":\"EC\",\"name\":\"" + std::string(name) + "\"}");
    EXPECT_EQ(Walk("keys", "&maxresults=2"), "-coded Alpha |alpha2 beta |GAMMA |");
}

// Pages of keys and certificates, and seeded vaults.
#include "tests/vaultsim/sim_test.h"

class ListingTest : public SimTest {
  protected:
    // Names in the order of the pages, which are walked as the client does: by the tail of the link.
    static std::vector<std::string> Walk(const std::string& collection, const std::string& query,
                                         std::vector<size_t>* pages = nullptr)
    {
        std::vector<std::string> names;
        std::string target = "/" + collection + "?api-version=2016-10-01" + query;
        while (!target.empty()) {
            const Json page = Vault("GET", target).json();
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

TEST_F(ListingTest, PagesHaveTheLinksOfTheService)
{
    Control("POST", "/vaults/contoso-keys/seed", {{"keys", 60}, {"kty", "EC"}, {"tags", {{"a", "b"}}}});
    const Json page = Vault("GET", "/keys?api-version=2016-10-01").json();
    EXPECT_EQ(page["value"].size(), 25u);
    EXPECT_EQ(
        Shape(page["value"][0]),
        "{kid:string attributes:{enabled:boolean created:number updated:number recoveryLevel:string} tags:{a:string}}");
    EXPECT_EQ(page["value"][0]["kid"], "https://contoso-keys.vault.azure.net/keys/key-000000");
    const std::string start = "https://contoso-keys.vault.azure.net:443/keys?api-version=2016-10-01&$skiptoken=";
    EXPECT_EQ(page["nextLink"].get<std::string>().substr(0, start.size()), start);

    std::vector<size_t> pages;
    EXPECT_EQ(Walk("keys", "", &pages).size(), 60u);
    EXPECT_EQ(pages, (std::vector<size_t>{25, 25, 10}));
    pages.clear();
    EXPECT_EQ(Walk("keys", "&maxresults=24", &pages).size(), 60u);
    EXPECT_EQ(pages, (std::vector<size_t>{24, 24, 12}));
    EXPECT_EQ(Vault("GET", "/keys?api-version=7.0", nullptr, "fabrikam").body, "{\"value\":[],\"nextLink\":null}");
}

TEST_F(ListingTest, NamesStandInOrderWhateverTheirCase)
{
    for (const char* name : {"beta", "Alpha", "-coded", "alpha2", "GAMMA"})
        Control("POST", "/vaults/contoso-keys/keys", {{"name", name}, {"kty", "EC"}});
    EXPECT_EQ(Walk("keys", "&maxresults=2"), (std::vector<std::string>{"-coded", "Alpha", "alpha2", "beta", "GAMMA"}));
}

TEST_F(ListingTest, ShortAndEmptyPagesLoseNothing)
{
    Control("POST", "/vaults/contoso-keys/certificates", {{"count", 7}, {"prefix", "c"}, {"kty", "EC"}});
    Control("PUT", "/paging", {{"maxPage", 2}, {"emptyEvery", 3}, {"firstEmpty", true}});
    std::vector<size_t> pages;
    EXPECT_EQ(Walk("certificates", "", &pages).size(), 7u);
    EXPECT_EQ(pages, (std::vector<size_t>{0, 2, 0, 2, 2, 0, 1}));
    Control("PUT", "/paging", {{"maxPage", 25}, {"emptyEvery", 0}, {"firstEmpty", false}});
    const Json item = Vault("GET", "/certificates?api-version=2016-10-01").json()["value"][3];
    EXPECT_EQ(item["id"], "https://contoso-keys.vault.azure.net/certificates/c000003");
    EXPECT_EQ(item["x5t"].get<std::string>().size(), 27u);
    EXPECT_FALSE(item.contains("cer"));
}

TEST_F(ListingTest, AHundredThousandKeysShareTheirMaterial)
{
    Control("POST", "/vaults/contoso-keys/seed", {{"keys", 100000}});
    const Json last = Vault("GET", "/keys/key-099999?api-version=7.0").json();
    const Json first = Vault("GET", "/keys/key-000000?api-version=7.0").json();
    EXPECT_EQ(last["key"]["n"], first["key"]["n"]);
    EXPECT_NE(last["key"]["kid"], first["key"]["kid"]);
}

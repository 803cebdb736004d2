#include "keyvault/key_lookup.h"

#include <set>

#include "keyvault/text_list.h"
#include "tests/common/alloc_fault.h"
#include "tests/keyvault/vault_fixture.h"

using nlohmann::json;

namespace {

constexpr char kFirstPage[] = "GET /keys?api-version=2016-10-01";

class KeyLookupTest : public VaultTest {
  protected:
    int GetKey(const std::string& name, KVKey* key, int expectMissing = 0)
    {
        return KVCGetKey(call.get(), Wide(name).c_str(), key, expectMissing);
    }
};

class KeyListingTest : public VaultTest {
  protected:
    struct Listing {
        int result = -1;
        bool written = false;  // the outputs were
        Strings names;
    };

    Listing List(size_t failAt = SIZE_MAX, size_t* allocations = nullptr)
    {
        Listing listing;
        WCHAR* untouched = nullptr;
        WCHAR** names = &untouched;
        DWORD count = 12345;
        {
            const AllocFault fault(failAt);
            listing.result = KVCGetKeys(call.get(), &names, &count);
            if (allocations)
                *allocations = fault.Seen();
        }
        listing.written = count != 12345;
        EXPECT_EQ(listing.written, names != &untouched);
        if (!listing.written)
            return listing;
        EXPECT_TRUE(names || !count);
        for (DWORD i = 0; i < count; i++)
            listing.names.push_back(Narrow(names[i]));
        KVCFreeNames(names, count);
        return listing;
    }

    // An answer of the listing: items with these "kid"s and a link to a page of that token, if there is one.
    static json Page(const Strings& kids, const std::string& token = "")
    {
        json page = {{"value", json::array()}, {"nextLink", nullptr}};
        for (const std::string& kid : kids)
            page["value"].push_back({{"kid", kid}});
        if (!token.empty())
            page["nextLink"] = "https://elsewhere.example:8443" + Next(token).substr(4);
        return page;
    }
    static std::string Next(const std::string& token) { return "GET /keys?api-version=2016-10-01&$skiptoken=" + token; }
    // Serves the pages one after the other.
    void Serve(const std::vector<json>& pages)
    {
        for (const json& page : pages)
            Answer("/keys?", 200, page);
    }
};

TEST_F(KeyLookupTest, ReadsTheLatestVersionUnderTheEncodedName)
{
    const std::string coded = "-vBAgAAwBA" + std::string(33, 'z');
    sim.AddKey(Simulator::kVault, {{"name", "web01"}, {"kty", "RSA"}, {"size", 2048}, {"tags", {{"AlgID", "RSA"}}}});
    sim.AddKey(Simulator::kVault, {{"name", coded}, {"kty", "EC"}, {"crv", "P-384"}});
    sim.ClearJournal();

    OwnKey rsa;
    EXPECT_EQ(1, GetKey("web01", &rsa));
    EXPECT_EQ(256u, rsa.n_siz);
    EXPECT_EQ("RSA", Narrow(rsa.AlgID));
    EXPECT_EQ(32u, Narrow(rsa.version).size());
    OwnKey curve;
    EXPECT_EQ(1, GetKey("a b", &curve));
    EXPECT_EQ("a b", Narrow(curve.clearName));
    EXPECT_EQ(48u, curve.y_siz);
    EXPECT_EQ((Strings{"GET /keys/web01?api-version=2016-10-01", "GET /keys/" + coded + "?api-version=2016-10-01"}),
              sim.VaultRequests());
    EXPECT_EQ((Strings{"KVCGetKey web01 8", "KVCGetKey Encoded Name web01 8", "KVCParseJSONKey 8", "KVCGetKey a b 8",
                       "KVCGetKey Encoded Name " + coded + " 8", "KVCParseJSONKey 8"}),
              LinesUpTo(8));
    EXPECT_TRUE(root.Logged("KVCGetKey End web01", 10));
}

struct FailureRow {
    int status;
    Strings loud;   // lines of KVCGetKey above the details, for a caller that expects the key
    Strings quiet;  // the same lines for one that doesn't
};

TEST_F(KeyLookupTest, FailuresAreErrorsOrDetails)
{
    const std::string expected = "KVCGetKey KVCDoKVRESTCall SupressFailedReadError";
    const FailureRow rows[] = {
        {403,
         {"KVCGetKey KVCDoKVRESTCall Error 1", "KVCGetKey KVCDoKVRESTCall Failed Error 0x193 1"},
         {expected + " 10", expected + " Error 0x193 10"}},
        {204, {"KVCGetKey KVCDoKVRESTCall Failed Error 0xcc 1"}, {expected + " Error 0xcc 10"}},
    };
    for (const FailureRow& row : rows) {
        for (const int quiet : {0, 1}) {
            SCOPED_TRACE(std::to_string(row.status) + (quiet ? " quiet" : " loud"));
            Answer("/keys/web01?", row.status, "");
            root.ClearLog();
            OwnKey key;
            key.n_siz = 7;
            EXPECT_EQ(0, GetKey("web01", &key, quiet));
            EXPECT_EQ(0u, key.n_siz) << "the record is zeroed";
            EXPECT_EQ(static_cast<DWORD>(row.status), call->lastStatus);
            Strings lines;
            for (const std::string& line : root.LogLines()) {
                if (line.find("KVCGetKey KVCDoKVRESTCall") == 0)
                    lines.push_back(line);
            }
            EXPECT_EQ(quiet ? row.quiet : row.loud, lines);
            EXPECT_TRUE(root.Logged("KVCGetKey End web01", 10));
        }
    }
    EXPECT_TRUE(clock.Waits().empty());
}

TEST_F(KeyLookupTest, WithoutAnAnswerTheReadFails)
{
    sim.Control("PUT", "/listener", {{"name", "tls"}, {"mode", "down"}});
    OwnKey key;
    EXPECT_EQ(0, GetKey("web01", &key));
    EXPECT_EQ(0u, call->lastStatus);
    EXPECT_TRUE(root.Logged("KVCGetKey KVCDoKVRESTCall Error", 1));
    EXPECT_TRUE(root.Logged("KVCGetKey KVCDoKVRESTCall Failed Error 0x0", 1));

    // A status that an operation before left behind is not taken for the answer of one that could not be sent.
    call.reset(KVCBeginCall(client.get()));
    call->lastStatus = 429;
    clock.ClearWaits();
    EXPECT_EQ(0, GetKey("web01", &key));
    EXPECT_TRUE(clock.Waits().empty());
}

TEST_F(KeyLookupTest, AThrottledReadIsRepeatedFiveTimesAtMost)
{
    Throttle("/keys/web01?", 5);
    OwnKey key;
    EXPECT_EQ(0, GetKey("web01", &key));
    EXPECT_EQ((Waits{1000, 2000, 4000, 8000, 16000}), clock.Waits());
    EXPECT_EQ(5u, sim.VaultRequests().size());
    EXPECT_EQ(5u, LinesWith("KVCGetKey KVCDoKVRESTCall ActionThrottled Error 0x1ad 2"));
    EXPECT_EQ(0u, LinesWith("KVCDoKVRESTCall Failed Error")) << "429 is no other status";
}

TEST_F(KeyLookupTest, ReadsThatSendNothingAndAnswersThatAreNoJson)
{
    OwnKey key;
    EXPECT_EQ(0, GetKey(std::string(43, 'a'), &key));
    EXPECT_TRUE(root.Logged("KVCGetKey KVCConvertClearKeyNameToEncoded Failed " + std::string(43, 'a'), 8));
    EXPECT_FALSE(root.Logged("KVCGetKey End " + std::string(43, 'a'), 10));
    EXPECT_EQ(0, KVCGetKey(call.get(), nullptr, &key, 0));
    EXPECT_TRUE(root.Logged("KVCGetKey End (NULL)", 10));
    EXPECT_TRUE(sim.VaultRequests().empty());

    sim.Fault({{"path", "/keys/web01?"}, {"action", "nojson"}});
    EXPECT_EQ(1, GetKey("web01", &key));
    EXPECT_EQ("web01", Narrow(key.clearName));
    EXPECT_EQ(nullptr, key.kty);
    EXPECT_EQ(Strings{"KVCParseJSONKey answer is not JSON unexpected character 1"}, LinesUpTo(2));
}

TEST_F(KeyListingTest, TheLinkNamesThePageAndNotTheHost)
{
    Serve({Page({"https://v/keys/one"}, "t%2F2"), Page({"https://v/keys/two"}, "3"), Page({"https://v/keys/three"})});
    const Listing listing = List();
    EXPECT_EQ(1, listing.result);
    EXPECT_EQ((Strings{"one", "two", "three"}), listing.names);
    EXPECT_EQ((Strings{kFirstPage, Next("t%2F2"), Next("3")}), sim.VaultRequests());
    for (const json& request : sim.Journal())
        EXPECT_EQ("contoso-keys.vault.azure.net", request["host"].get<std::string>());
    EXPECT_TRUE(root.Logged("KVCGetKeys rawURL nextlinkstr Found " + Next("3").substr(4), 8));
    EXPECT_TRUE(root.Logged("KVCGetKeys kids two two", 8));
}

TEST_F(KeyListingTest, NamesAreDecodedAndMalformedOnesSkipped)
{
    const std::string coded = "-vBAgAAwBA" + std::string(33, 'z');
    const std::string malformed = "-vzA" + std::string(39, 'z');
    const std::string foreign(60, 'f');
    json page = Page({"https://v/keys/plain", "https://v/keys/" + coded, "https://v/keys/" + malformed,
                      "https://v/keys/" + foreign, "no slash"});
    for (const json& item : {json(nullptr), json("text"), json::object(), json{{"kid", nullptr}}, json{{"id", "/x"}}})
        page["value"].push_back(item);
    page["value"].push_back({{"kid", "https://v/keys/last"}, {"attributes", {{"enabled", false}}}});
    Serve({page});
    const Listing listing = List();
    EXPECT_EQ(1, listing.result);
    EXPECT_EQ((Strings{"plain", "a b", std::string(42, 'f'), "last"}), listing.names);
    EXPECT_TRUE(root.Logged("KVCGetKeys kids " + coded + " a b", 8));
    EXPECT_EQ(Strings{"KVCGetKeys kids KVCConvertEncodedKeyNameToClear Failed " + malformed + " InvalidName 1"},
              LinesUpTo(1));
}

TEST_F(KeyListingTest, PagesOfAnotherFormEndTheWalk)
{
    const json link = "https://contoso-keys.vault.azure.net:443/keys?api-version=2016-10-01&$skiptoken=2";
    const struct {
        const char* name;
        json body;
        Strings lines;
    } rows[] = {
        {"no JSON", "<html>", {"KVCGetKeys answer is not JSON unexpected character 1"}},
        {"cut short", R"({"value":[{"kid":"https://v/ke)", {"KVCGetKeys answer is not JSON unexpected end of data 1"}},
        {"no body", "", {"KVCGetKeys answer is not JSON unexpected end of data 1"}},
        {"JSON of another type", json::array(), {}},
        {"no members", json::object(), {}},
        {"value of another type", {{"value", "text"}}, {}},
        {"value of null", {{"value", nullptr}}, {}},
        {"link without the collection", {{"value", json::array()}, {"nextLink", "https://v/certificates?x"}}, {}},
        {"link of another type", {{"value", json::array()}, {"nextLink", 7}}, {}},
    };
    for (const auto& [name, body, lines] : rows) {
        SCOPED_TRACE(name);
        sim.ClearJournal();
        root.ClearLog();
        Serve({Page({"https://v/keys/first"}, "1"), body});
        const Listing listing = List();
        EXPECT_EQ(1, listing.result);
        EXPECT_EQ(Strings{"first"}, listing.names);
        EXPECT_EQ(2u, sim.VaultRequests().size());
        EXPECT_EQ(lines, LinesUpTo(2));
    }
    Serve({json{{"nextLink", link}}, Page({"https://v/keys/second"})});
    EXPECT_EQ(Strings{"second"}, List().names) << "a page without value has a next one";
}

TEST_F(KeyListingTest, EachPageIsThrottledOnItsOwn)
{
    Throttle("/keys?", 2);
    Answer("/keys?", 200, Page({"https://v/keys/one"}, "2"));
    Throttle("/keys?", 4);
    Serve({Page({"https://v/keys/two"}, "3"), Page({"https://v/keys/three"})});
    const Listing listing = List();
    EXPECT_EQ(1, listing.result);
    EXPECT_EQ((Strings{"one", "two", "three"}), listing.names);
    EXPECT_EQ((Waits{1000, 2000, 1000, 2000, 4000, 8000}), clock.Waits());
    EXPECT_EQ(
        (Strings{kFirstPage, kFirstPage, kFirstPage, Next("2"), Next("2"), Next("2"), Next("2"), Next("2"), Next("3")}),
        sim.VaultRequests());
    Strings lines;
    for (size_t i = 0; i < 6; i++) {
        lines.push_back("KVCGetKeys REST Call Error Error 0x1ad 1");
        lines.push_back("KVCGetKeys ActionThrottled Error 0x1ad 2");
    }
    EXPECT_EQ(lines, LinesUpTo(2));
}

TEST_F(KeyListingTest, FailuresInTheMiddleOfTheWalk)
{
    Answer("/keys?", 200, Page({"https://v/keys/one"}, "2"));
    Throttle("/keys?", 5);
    const Listing throttled = List();
    EXPECT_EQ(0, throttled.result);
    EXPECT_EQ(Strings{"one"}, throttled.names) << "names gathered so far are kept";
    EXPECT_EQ((Waits{1000, 2000, 4000, 8000, 16000}), clock.Waits());

    for (const auto& [status, lines] : {std::pair<int, size_t>{403, 2}, {500, 2}, {202, 1}}) {
        SCOPED_TRACE(status);
        Answer("/keys?", 200, Page({"https://v/keys/one"}, "2"));
        Answer("/keys?", status, "");
        root.ClearLog();
        const Listing refused = List();
        EXPECT_EQ(0, refused.result);
        EXPECT_FALSE(refused.written);
        EXPECT_EQ(lines, LinesWith("KVCGetKeys REST Call Error Error 0x"));
    }
    sim.Control("PUT", "/listener", {{"name", "tls"}, {"mode", "down"}});
    const Listing unreachable = List();
    EXPECT_EQ(0, unreachable.result);
    EXPECT_FALSE(unreachable.written);
}

TEST_F(KeyListingTest, WithoutMemoryAListingFailsOrEndsWithAWholePage)
{
    SetLogging(0);
    const std::vector<json> pages = {Page({"https://v/keys/one", "https://v/keys/two"}, "2"),
                                     Page({"https://v/keys/3"})};
    // An answer whose body was lost ends the walk like one without a body.
    const std::set<Strings> possible = {{}, {"one", "two"}, {"one", "two", "3"}};
    Serve(pages);
    size_t allocations = 0;
    EXPECT_EQ(1, List(SIZE_MAX, &allocations).result);
    size_t failed = 0;
    for (size_t failAt = 0; failAt < allocations; failAt++) {
        sim.Control("DELETE", "/faults");
        Serve(pages);
        const Listing listing = List(failAt);
        EXPECT_EQ(listing.result == 1, listing.written) << failAt;
        EXPECT_EQ(1u, possible.count(listing.names)) << failAt;
        failed += listing.result ? 0 : 1;
    }
    EXPECT_GT(failed, 10u);
}

// Both widths, both limits of a length, and enough texts for several chunks.
TEST(TextListTest, GivesBackWhatItTookInAndStandsFailedAllocations)
{
    std::vector<TextString> texts;
    for (int i = 0; i < 1500; i++)
        texts.push_back(
            TextString(static_cast<size_t>(i) % 128, static_cast<WCHAR>(i % 2 ? 0xFF - i % 9 : 0xD7FF + i)));
    TextList list;
    EXPECT_FALSE(list.Add(TextString(128, 'x')));
    {
        AllocFault fault(0);
        EXPECT_FALSE(list.Add(texts[0]));
    }
    size_t failures = 0;
    for (const TextString& text : texts) {
        bool added = false;
        {
            AllocFault fault(0);
            added = list.Add(text);
        }
        if (!added) {
            failures++;
            EXPECT_TRUE(list.Add(text));
        }
    }
    EXPECT_GT(failures, 3u);
    EXPECT_EQ(texts.size(), list.count());
    for (const TextString& text : texts) {
        ASSERT_EQ(text.size(), list.FirstLength());
        WCHAR whole[128], cut[11];
        const bool takeWhole = text.size() % 3 != 0;
        takeWhole ? list.TakeFirst(whole, 128) : list.TakeFirst(cut, 11);
        EXPECT_EQ(takeWhole ? text : text.substr(0, 10), TextString(takeWhole ? whole : cut));
    }
    EXPECT_EQ(0u, list.count());
}

}  // namespace

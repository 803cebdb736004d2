// Listing the vault's keys and its certificates, page by page.
#include "certsync/certificate_listing.h"
#include "keyvault/key_lookup.h"
#include "keyvault/text_list.h"
#include "tests/keyvault/client_fixture.h"

namespace {

struct Collection {
    const char* name;
    const char* id;  // the member with an element's address
};

class ListingTest : public VaultTest, public testing::WithParamInterface<Collection> {
  protected:
    struct Listing {
        bool good = false;
        bool written = false;  // the outputs were
        Strings names;
        Strings thumbprints;  // of certificates
    };

    bool IsKeys() const { return std::string(GetParam().name) == "keys"; }
    std::string Path() const { return std::string("/") + GetParam().name + "?"; }

    Listing List()
    {
        Listing listing;
        WCHAR** names = nullptr;
        WCHAR** thumbprints = nullptr;
        LONG count = -7;
        if (IsKeys()) {
            DWORD keys = 12345;
            listing.good = KVCGetKeys(call.get(), &names, &keys) == 1;
            listing.written = keys != 12345;
            count = listing.written ? static_cast<LONG>(keys) : 0;
        } else {
            listing.good = KVCGetCerts(call.get(), &names, &thumbprints, &count);
            listing.written = names && thumbprints;
            EXPECT_EQ(listing.good, listing.written);
        }
        const AllocFaultPause pause;
        for (LONG i = 0; listing.written && i < count; i++) {
            listing.names.push_back(Narrow(names[i]));
            if (thumbprints)
                listing.thumbprints.push_back(Narrow(thumbprints[i]));
        }
        IsKeys() ? KVCFreeNames(names, static_cast<DWORD>(count)) : KVCGetCertsFree(names, thumbprints);
        return listing;
    }

    json Element(const std::string& name, const std::string& thumbprint = "T") const
    {
        json element = {{GetParam().id, "https://v/" + std::string(GetParam().name) + "/" + name}};
        if (!IsKeys())
            element["x5t"] = thumbprint;
        return element;
    }
    std::string Target(const std::string& token = "") const
    {
        return Path() + "api-version=2016-10-01" + (token.empty() ? "" : "&$skiptoken=" + token);
    }
    // Queues a page with these elements and, if there is a token, a link to the next page.
    void Serve(const json& elements, const std::string& token = "")
    {
        const json link = token.empty() ? json() : json("https://elsewhere.example:8443" + Target(token));
        Answer(Path(), 200, {{"value", elements}, {"nextLink", link}});
    }
    // The same with one element.
    void ServeOne(const std::string& name, const std::string& token = "")
    {
        Serve(json::array({Element(name)}), token);
    }
};

INSTANTIATE_TEST_SUITE_P(Of, ListingTest, testing::Values(Collection{"keys", "kid"}, Collection{"certificates", "id"}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(ListingTest, NamesAreClear)
{
    const Listing empty = List();
    EXPECT_TRUE(empty.good && empty.written && empty.names.empty());
    sim.ClearJournal();
    const std::string vault = std::string("/vaults/") + Simulator::kVault;
    for (const std::string& name : {std::string("web01"), kCodedName, std::string("web02")})
        sim.Control("POST", vault + "/" + GetParam().name, {{"name", name}, {"kty", "EC"}, {"crv", "P-256"}});
    sim.Control("PUT", "/paging", {{"maxPage", 2}});
    const Listing listing = List();
    EXPECT_TRUE(listing.good);
    EXPECT_EQ((Strings{"a b", "web01", "web02"}), listing.names);
    EXPECT_EQ(2u, sim.VaultRequests().size());
    EXPECT_EQ(Strings{}, LinesUpTo(2));
    Strings thumbprints;
    const json content = sim.Control("GET", vault);
    for (const json& certificate : content["certificates"])
        thumbprints.push_back(certificate["versions"][0]["x5t"]);
    EXPECT_EQ(thumbprints, listing.thumbprints);
}

TEST_P(ListingTest, TheNextPageIsTheTailOfItsLink)
{
    const std::string other = IsKeys() ? "certificates" : "keys";
    const Row<const char*, json, bool> rows[] = {
        {"a link to another host", "https://elsewhere.example:8443" + Target("t%2F2"), true},
        {"a path alone", Target("t%2F2"), true},
        {"none", nullptr, false},
        {"empty", "", false},
        {"a link to something else", "https://contoso-keys.vault.azure.net/" + other + "?$skiptoken=T", false},
        {"no query", std::string("https://contoso-keys.vault.azure.net/") + GetParam().name, false},
        {"a number", 7, false},
        {"an array", json::array({"/x"}), false},
    };
    for (const auto& [name, link, followed] : rows) {
        SCOPED_TRACE(name);
        sim.ClearJournal();
        Answer(Path(), 200, {{"value", json::array({Element("first")})}, {"nextLink", link}});
        if (followed)
            ServeOne("second");
        const Listing listing = List();
        EXPECT_TRUE(listing.good);
        EXPECT_EQ(followed ? (Strings{"first", "second"}) : Strings{"first"}, listing.names);
        Strings targets;
        for (const json& request : sim.Journal()) {
            targets.push_back(request["target"]);
            EXPECT_EQ("contoso-keys.vault.azure.net", request["host"]);
        }
        EXPECT_EQ(followed ? (Strings{Target(), Target("t%2F2")}) : Strings{Target()}, targets);
    }
}

TEST_P(ListingTest, PagesOfAnotherForm)
{
    for (const json& body : {json("<html>"), json(R"({"value":[{"kid":"https://v/ke)"), json(""), json::array(),
                             json::object(), json{{"value", "text"}}, json{{"value", nullptr}}}) {
        SCOPED_TRACE(body);
        sim.ClearJournal();
        ServeOne("first", "1");
        Answer(Path(), 200, body);
        const Listing listing = List();
        EXPECT_TRUE(listing.good);
        EXPECT_EQ(Strings{"first"}, listing.names);
        EXPECT_EQ(2u, sim.VaultRequests().size());
    }
    // A page without elements may still have a next one.
    Answer(Path(), 200, {{"nextLink", Target("A")}});
    Serve(json::array(), "B");
    Serve("no list", "C");
    ServeOne("last");
    EXPECT_EQ(Strings{"last"}, List().names);
}

TEST_P(ListingTest, ABadElementIsSkippedAndTheOthersKeepTheirPlaces)
{
    const std::string id = GetParam().id;
    std::vector<json> bad = {nullptr,
                             5,
                             "text",
                             json::object(),
                             json{{id, "no slash"}, {"x5t", "T"}},
                             json{{id, 5}, {"x5t", "T"}},
                             Element("-vzA" + std::string(39, 'z')),
                             json{{"x5t", "T"}}};
    if (!IsKeys())
        bad.push_back(json{{"id", "https://v/certificates/pending"}});
    for (const json& element : bad) {
        SCOPED_TRACE(element);
        Serve({Element("before", "b"), element, Element("after", "a")});
        const Listing listing = List();
        EXPECT_TRUE(listing.good);
        EXPECT_EQ((Strings{"before", "after"}), listing.names);
        EXPECT_TRUE(IsKeys() || listing.thumbprints == (Strings{"b", "a"}));
    }
    Serve({Element(std::string(60, 'n'), std::string(127, 't')), Element("long", std::string(128, 't'))});
    const Listing cut = List();
    EXPECT_EQ((Strings{std::string(42, 'n'), "long"}), cut.names);
    EXPECT_TRUE(IsKeys() || cut.thumbprints == Strings(2, std::string(127, 't')));
}

TEST_P(ListingTest, EachPageHasFiveAttempts)
{
    Answer(Path(), 429, "", 4);
    ServeOne("one", "2");
    Answer(Path(), 429, "", 4);
    ServeOne("two");
    EXPECT_EQ((Strings{"one", "two"}), List().names);
    EXPECT_EQ((Waits{1000, 2000, 4000, 8000, 1000, 2000, 4000, 8000}), clock.Waits());

    ServeOne("one", "2");
    Answer(Path(), 429, "", 5);
    const Listing throttled = List();
    EXPECT_FALSE(throttled.good);
    EXPECT_EQ(IsKeys() ? Strings{"one"} : Strings{}, throttled.names) << "names of keys listed so far are kept";
}

TEST_P(ListingTest, AFailureOfTheSecondPageFailsTheListing)
{
    const json silence = {{"path", Path()}, {"action", "reset-before"}, {"times", 10}};
    const json ownPage = {{"path", Path()},
                          {"action", "status"},
                          {"status", 200},
                          {"body", {{"value", json::array()}, {"nextLink", Target("2")}}}};
    for (json fault : {json(403), json(500), json(202), silence, ownPage}) {
        SCOPED_TRACE(fault);
        sim.ClearJournal();
        ServeOne("one", "2");
        if (fault.is_number())
            Answer(Path(), fault, "");
        else
            sim.Fault(fault);
        const Listing listing = List();
        EXPECT_FALSE(listing.good || listing.written);
        EXPECT_LE(2u, sim.VaultRequests().size());
    }
}

TEST_P(ListingTest, WithoutMemoryItFailsOrEndsWithAWholePage)
{
    SetLogging(0);
    // An answer whose body is lost ends the listing like one without a body.
    const std::set<Strings> possible = {{}, {"one", "two"}, {"one", "two", "3"}};
    Listing listing;
    const auto prepare = [&](bool) {
        EXPECT_EQ(listing.good, listing.written);
        EXPECT_TRUE(!IsKeys() || possible.count(listing.names)) << "a certificate may be left out";
        sim.Control("DELETE", "/faults");
        Serve({Element("one"), Element("two")}, "2");
        ServeOne("3");
    };
    prepare(false);
    SweepAllocations([&] { listing = List(); }, prepare);
    EXPECT_EQ(3u, listing.names.size());
}

using ListingLimits = VaultTest;

TEST_F(ListingLimits, NullIsRefused)
{
    WCHAR** block = nullptr;
    LONG count = 0;
    DWORD keys = 0;
    EXPECT_FALSE(KVCGetCerts(nullptr, &block, &block, &count));
    EXPECT_FALSE(KVCGetCerts(call.get(), nullptr, &block, &count));
    EXPECT_FALSE(KVCGetCerts(call.get(), &block, nullptr, &count));
    EXPECT_FALSE(KVCGetCerts(call.get(), &block, &block, nullptr));
    KVCGetCertsFree(nullptr, nullptr);
    EXPECT_EQ(0, KVCGetKeys(nullptr, &block, &keys));
    EXPECT_EQ(0, KVCGetKeys(call.get(), nullptr, &keys));
    EXPECT_EQ(0, KVCGetKeys(call.get(), &block, nullptr));
    EXPECT_TRUE(sim.VaultRequests().empty());
}

#ifndef _WIN32  // by the linker name of this system

// Pages that an endless vault has left; with 0 the calls reach the network.
size_t pagesLeft = 0;
size_t pagesAsked = 0;

TEST_F(ListingLimits, TenThousandPagesAtMost)
{
    SetLogging(1);
    for (const size_t pages : {size_t{10000}, size_t{10001}}) {
        pagesAsked = 0;
        pagesLeft = pages;
        WCHAR** names = nullptr;
        DWORD count = 0;
        EXPECT_EQ(pages == 10000, KVCGetKeys(call.get(), &names, &count) == 1);
        pagesLeft = 0;
        EXPECT_EQ(10000u, pagesAsked);
    }
}

#endif

// Both widths of characters, both limits of a length, and enough texts for several chunks.
TEST(TextListTest, ReturnsWhatItTookDespiteFailedAllocations)
{
    std::vector<TextString> texts;
    for (int i = 0; i < 1500; i++)
        texts.push_back(
            TextString(static_cast<size_t>(i) % 128, static_cast<WCHAR>(i % 2 ? 0xFF - i % 9 : 0xD7FF + i)));
    TextList list;
    EXPECT_FALSE(list.Add(TextString(128, 'x')));
    size_t failures = 0;
    for (const TextString& text : texts) {
        bool added = false;
        {
            AllocFault fault(0);
            added = list.Add(text);
        }
        failures += added ? 0 : 1;
        EXPECT_TRUE(added || list.Add(text));
    }
    EXPECT_GT(failures, 3u);
    EXPECT_EQ(texts.size(), list.count());
    for (const TextString& text : texts) {
        ASSERT_EQ(text.size(), list.FirstLength());
        WCHAR room[128];
        const size_t length = text.size() % 3 ? 127 : 10;
        list.TakeFirst(room, length + 1);
        EXPECT_EQ(text.substr(0, length), TextString(room));
    }
    EXPECT_EQ(0u, list.count());
}

}  // namespace

#ifndef _WIN32

#define WEB_CALL_PARAMETERS \
    INTERNET_PORT port, const WCHAR *host, const WCHAR *path, const WCHAR *verb, const WCHAR *headers, const char *body
KVCResponse* RealWebCall(WEB_CALL_PARAMETERS) __asm__("__real__Z12KVCDoWebCalltPKDsS0_S0_S0_PKc");
KVCResponse* WrappedWebCall(WEB_CALL_PARAMETERS) __asm__("__wrap__Z12KVCDoWebCalltPKDsS0_S0_S0_PKc");

KVCResponse* WrappedWebCall(WEB_CALL_PARAMETERS)
{
    if (pagesLeft == 0)
        return RealWebCall(port, host, path, verb, headers, body);
    ++pagesAsked;
    const std::string link = --pagesLeft ? "\"https://v/keys?" + std::to_string(pagesLeft) + "\"" : "null";
    auto* const response = static_cast<KVCResponse*>(calloc(1, sizeof(KVCResponse)));
    response->status = HTTP_OK;
    response->body = strdup((R"({"value":[],"nextLink":)" + link + "}").c_str());
    return response;
}

#endif

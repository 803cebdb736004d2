// The walk over the vault's certificates.
#include "certsync/certificate_listing.h"

#include <algorithm>

#include "tests/keyvault/vault_fixture.h"

using nlohmann::json;

namespace {

constexpr char kFirstPage[] = "GET /certificates?api-version=2016-10-01";
constexpr char kThumbprint[] = "AAECAwQFBgcICQoLDA0ODxAREhM";

class CertificateListingTest : public VaultTest {
  protected:
    struct Listing {
        int result = -1;
        bool written = false;  // the outputs were
        Strings names;
        Strings thumbprints;
    };

    Listing List(size_t failAt = SIZE_MAX, size_t* allocations = nullptr)
    {
        Listing listing;
        WCHAR** names = nullptr;
        WCHAR** thumbprints = nullptr;
        LONG count = -7;
        {
            const AllocFault fault(failAt);
            listing.result = KVCGetCerts(call.get(), &names, &thumbprints, &count);
            if (allocations)
                *allocations = fault.Seen();
        }
        listing.written = names && thumbprints;
        EXPECT_EQ(listing.result == 1, listing.written);
        EXPECT_EQ(listing.written, names || thumbprints);
        for (LONG i = 0; listing.written && i < count; i++) {
            listing.names.push_back(Narrow(names[i]));
            listing.thumbprints.push_back(Narrow(thumbprints[i]));
        }
        if (listing.written)
            KVCGetCertsFree(names, thumbprints);
        return listing;
    }

    static json Element(const std::string& name, const std::string& thumbprint = kThumbprint)
    {
        return {{"id", "https://contoso-keys.vault.azure.net/certificates/" + name}, {"x5t", thumbprint}};
    }
    static json Page(const json& value, const json& nextLink = nullptr)
    {
        return {{"value", value}, {"nextLink", nextLink}};
    }
    static std::string Link(const std::string& token)
    {
        return "https://elsewhere.example:8443/certificates?api-version=2016-10-01&$skiptoken=" + token;
    }
    void Serve(const json& page) { Answer("/certificates?", 200, page); }
    void SeedCertificate(const std::string& name)
    {
        sim.Control("POST", std::string("/vaults/") + Simulator::kVault + "/certificates",
                    {{"name", name}, {"kty", "EC"}, {"crv", "P-256"}});
    }
};

TEST_F(CertificateListingTest, TellsNamesAsHostsKnowThemAndThumbprints)
{
    const std::string coded = "-vBAgAAwBA" + std::string(33, 'z');
    SeedCertificate("web01");
    SeedCertificate(coded);
    sim.ClearJournal();
    const Listing listing = List();
    EXPECT_EQ(1, listing.result);
    EXPECT_EQ((Strings{"a b", "web01"}), listing.names);
    const json vault = sim.Control("GET", std::string("/vaults/") + Simulator::kVault);
    Strings expected;
    for (const json& certificate : vault["certificates"])
        expected.push_back(certificate["versions"][0]["x5t"]);
    EXPECT_EQ(expected, listing.thumbprints);
    EXPECT_EQ(Strings{kFirstPage}, sim.VaultRequests());
    EXPECT_EQ((Strings{"KVCGetCerts 8", "KVCGetCerts value len is  2 8", "KVCGetCerts value mycount is   0 8",
                       "KVCGetCerts kids " + coded + " a b 8", "KVCGetCerts kids web01 web01 8",
                       "KVCGetCerts found sizes OK 8", "KVCGetCerts Complete 8", "KVCGetCertsFree 8"}),
              LinesUpTo(8));
}

TEST_F(CertificateListingTest, AVaultWithoutCertificates)
{
    const Listing listing = List();
    EXPECT_EQ(1, listing.result);
    EXPECT_TRUE(listing.names.empty());
    EXPECT_TRUE(root.Logged("KVCGetCerts value len is Zero", 8));
}

TEST_F(CertificateListingTest, TwoThousandCertificatesAreEightyPages)
{
    sim.Control("POST", std::string("/vaults/") + Simulator::kVault + "/certificates",
                {{"count", 2000}, {"kty", "EC"}, {"crv", "P-256"}});
    SetLogging(0);
    const Listing listing = List();
    ASSERT_EQ(2000u, listing.names.size());
    EXPECT_EQ("cert-000000", listing.names.front());
    EXPECT_EQ("cert-001999", listing.names.back());
    EXPECT_TRUE(std::is_sorted(listing.names.begin(), listing.names.end()));
    EXPECT_EQ(80u, sim.VaultRequests().size());
}

TEST_F(CertificateListingTest, TheNextPageIsTheTailOfItsLink)
{
    const std::string second = "GET /certificates?api-version=2016-10-01&$skiptoken=T";
    const struct {
        const char* name;
        json link;
        bool followed;
    } rows[] = {
        {"a link to another host", Link("T"), true},
        {"a path alone", "/certificates?api-version=2016-10-01&$skiptoken=T", true},
        {"none", nullptr, false},
        {"empty", "", false},
        {"a link to something else", "https://contoso-keys.vault.azure.net/keys?$skiptoken=T", false},
        {"no query", "https://contoso-keys.vault.azure.net/certificates", false},
        {"no text", json::array({"/x"}), false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        sim.ClearJournal();
        Serve(Page(json::array({Element("first")}), row.link));
        if (row.followed)
            Serve(Page(json::array({Element("second")})));
        const Listing listing = List();
        EXPECT_EQ(1, listing.result);
        EXPECT_EQ(row.followed ? (Strings{"first", "second"}) : Strings{"first"}, listing.names);
        EXPECT_EQ(row.followed ? (Strings{kFirstPage, second}) : Strings{kFirstPage}, sim.VaultRequests());
    }
    EXPECT_TRUE(
        root.Logged("KVCGetCerts rawURL nextlinkstr Found /certificates?api-version=2016-10-01&$skiptoken=T", 8));
}

TEST_F(CertificateListingTest, EmptyPagesAndPagesWithoutAValueAreWalkedOver)
{
    Serve({{"nextLink", Link("A")}});
    Serve(Page(json::array(), Link("B")));
    Serve(Page("no list", Link("C")));
    Serve(Page(json::array({Element("last")})));
    EXPECT_EQ(Strings{"last"}, List().names);
    EXPECT_EQ(4u, sim.VaultRequests().size());
}

TEST_F(CertificateListingTest, ABadElementIsLeftOutAndTheOthersKeepTheirPlaces)
{
    const std::string undecodable = "-AzA" + std::string(39, 'z');
    const std::string missing = "KVCGetCerts kids json_object_object_get id or x5t NULL";
    const struct {
        const char* name;
        json element;
        std::string line;
    } rows[] = {
        {"null", nullptr, "KVCGetCerts kids json_object_array_get_idx valueToken  1"},
        {"a pending one, without a thumbprint", {{"id", "https://v/certificates/p"}}, missing},
        {"without an id", {{"x5t", kThumbprint}}, missing},
        {"no object", 5, missing},
        {"an id without a slash", {{"id", "p"}, {"x5t", "T"}}, "KVCGetCerts kids strrchr / failed"},
        {"an id of another type", {{"id", 5}, {"x5t", "T"}}, "KVCGetCerts kids strrchr / failed"},
        {"a name that does not decode", Element(undecodable),
         "KVCGetCerts kids KVCConvertEncodedKeyNameToClear FAILED " + undecodable + " InvalidName"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        root.ClearLog();
        Serve(Page({Element("before", "b"), row.element, Element("after", "a")}));
        const Listing listing = List();
        EXPECT_EQ(1, listing.result);
        EXPECT_EQ((Strings{"before", "after"}), listing.names);
        EXPECT_EQ((Strings{"b", "a"}), listing.thumbprints);
        EXPECT_EQ(Strings{row.line + " 1"}, LinesUpTo(1));
    }
}

TEST_F(CertificateListingTest, TextsThatDoNotFitASlotAreCut)
{
    Serve(Page({Element("fits", std::string(127, 't')), Element("long", std::string(128, 't')),
                Element(std::string(300, 'n'))}));
    const Listing listing = List();
    EXPECT_EQ((Strings{"fits", "long", std::string(42, 'n')}), listing.names);
    EXPECT_EQ((Strings{std::string(127, 't'), std::string(127, 't'), kThumbprint}), listing.thumbprints);
}

TEST_F(CertificateListingTest, EachPageHasItsOwnFiveAttempts)
{
    const Waits all = {1000, 2000, 4000, 8000, 16000};
    Throttle("/certificates?", 4);
    Serve(Page(json::array({Element("first")}), Link("A")));
    Throttle("/certificates?", 4);
    Serve(Page(json::array({Element("second")})));
    EXPECT_EQ((Strings{"first", "second"}), List().names);
    EXPECT_EQ((Waits{1000, 2000, 4000, 8000, 1000, 2000, 4000, 8000}), clock.Waits());

    clock.ClearWaits();
    root.ClearLog();
    sim.ClearJournal();
    Serve(Page(json::array({Element("first")}), Link("A")));
    Throttle("/certificates?", 5);
    EXPECT_EQ(0, List().result);
    EXPECT_EQ(all, clock.Waits());
    EXPECT_EQ(6u, sim.VaultRequests().size());
    Strings lines;
    for (int i = 0; i < 5; i++)
        lines.insert(lines.end(),
                     {"KVCGetCerts REST Call Error Error 0x1ad 1", "KVCGetCerts ActionThrottled Error 0x1ad 2"});
    EXPECT_EQ(lines, LinesUpTo(2));
}

TEST_F(CertificateListingTest, HowAWalkEnds)
{
    const std::string failure = "KVCGetCerts REST Call Error Error ";
    const struct {
        const char* name;
        json fault;
        int result;
        Strings lines;
    } rows[] = {
        {"refused", {{"action", "status"}, {"status", 403}}, 0, {failure + "0x193 1", failure + "0x193 1"}},
        {"accepted but not read", {{"action", "status"}, {"status", 202}}, 0, {failure + "0xca 1"}},
        {"no answer", {{"action", "reset-before"}, {"times", 10}}, 0, {failure + "0x0 1", failure + "0x0 1"}},
        {"no JSON", {{"action", "nojson"}}, 1, {"KVCGetCerts answer is not JSON unexpected character 1"}},
        {"cut short",
         {{"action", "status"}, {"status", 200}, {"body", R"({"value":[)"}},
         1,
         {"KVCGetCerts answer is not JSON unexpected end of data 1"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Serve(Page(json::array({Element("first")}), Link("A")));
        json fault = row.fault;
        fault["path"] = "/certificates?";
        sim.Fault(fault);
        root.ClearLog();
        const Listing listing = List();
        EXPECT_EQ(row.result, listing.result);
        EXPECT_EQ(row.result ? Strings{"first"} : Strings{}, listing.names);
        EXPECT_EQ(row.lines, LinesUpTo(2));
        sim.Control("DELETE", "/faults");
    }
}

TEST_F(CertificateListingTest, MissingArguments)
{
    WCHAR** block = nullptr;
    LONG count = 0;
    EXPECT_EQ(0, KVCGetCerts(nullptr, &block, &block, &count));
    EXPECT_TRUE(root.Logged("KVCGetCerts kvc NULL - skipping", 8));
    EXPECT_EQ(0, KVCGetCerts(call.get(), nullptr, &block, nullptr));
    EXPECT_EQ(0, KVCGetCerts(call.get(), nullptr, nullptr, &count));
    EXPECT_EQ(0, KVCGetCerts(call.get(), &block, nullptr, &count));
    EXPECT_EQ((Strings{"KVCGetCerts Bad Count 1", "KVCGetCerts Bad WCHARCertsArray Array pointer 1",
                       "KVCGetCerts Bad WCHARThumbprintArray pointer 1"}),
              LinesUpTo(1));
    KVCGetCertsFree(nullptr, nullptr);
    EXPECT_TRUE(sim.VaultRequests().empty());
}

TEST_F(CertificateListingTest, EveryAllocationMayFail)
{
    for (const char* name : {"a", "b", "c"})
        SeedCertificate(name);
    sim.Control("PUT", "/paging", {{"maxPage", 2}});
    const Listing whole = List();
    ASSERT_EQ((Strings{"a", "b", "c"}), whole.names);
    Listing listing;
    size_t failAt = 0;
    size_t seen = 1;
    for (;; failAt++) {
        listing = List(failAt, &seen);
        if (seen <= failAt)
            break;
    }
    EXPECT_EQ(whole.names, listing.names);
    EXPECT_GT(failAt, 10u);
}

}  // namespace

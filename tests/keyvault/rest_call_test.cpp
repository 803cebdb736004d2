// One vault operation as one exchange.
#include <set>

#include "tests/keyvault/client_fixture.h"

namespace {

class RestCall : public ClientTest {
  protected:
    void SetUp() override
    {
        ClientTest::SetUp();
        client = NewClient();
        kvc.reset(KVCBeginCall(client.get()));
        ASSERT_EQ(1, KVCAuthenticate(kvc.get()));
        sim.ClearJournal();
        root.ClearLog();
    }
    ClientPtr client;
    KVCCall kvc;
};

TEST_F(RestCall, UrlsAreMadeOfTheirParts)
{
    const struct {
        const char* story;
        const WCHAR* rawURL;
        int useCertificates;
        const WCHAR* keyName;
        const WCHAR* verb;
        const WCHAR* actionverb;
        const char* body;
        const WCHAR* apiVersion;
        std::string request;
    } rows[] = {
        {"a listing", nullptr, 0, nullptr, TEXT("GET"), nullptr, nullptr, nullptr, "GET /keys?api-version=2016-10-01"},
        {"certificates", nullptr, 1, TEXT("web"), TEXT("GET"), nullptr, nullptr, nullptr,
         "GET /certificates/web?api-version=2016-10-01"},
        {"an operation on a version", nullptr, 0, TEXT("web/0123"), TEXT("POST"), TEXT("sign"), "{}", kApiVersionWrite,
         "POST /keys/web/0123/sign?api-version=7.0"},
        {"an action of two elements", nullptr, 7, TEXT("web"), TEXT("POST"), TEXT("pending/merge"), "{}",
         kApiVersionWrite, "POST /certificates/web/pending/merge?api-version=7.0"},
        {"a deletion", nullptr, 0, TEXT("web"), TEXT("DELETE"), nullptr, nullptr, kApiVersionWrite,
         "DELETE /keys/web?api-version=7.0"},
        {"a ready path stays as it is", TEXT("/keys?api-version=2016-10-01&$skiptoken=a%2Fb"), 1, TEXT("web"),
         TEXT("GET"), TEXT("sign"), nullptr, kApiVersionWrite, "GET /keys?api-version=2016-10-01&$skiptoken=a%2Fb"},
    };
    for (const auto& row : rows) {
        sim.ClearJournal();
        KVCDoKVRESTCall(kvc.get(), row.rawURL, row.useCertificates, row.keyName, row.verb, row.actionverb, row.body,
                        row.apiVersion);
        EXPECT_EQ(Strings{row.request}, sim.VaultRequests()) << row.story;
        EXPECT_EQ(row.body ? row.body : "", sim.Journal()[0]["body"]) << row.story;
    }
}

TEST_F(RestCall, FiveHeaderLinesGoOutWithEachRequestAndNoIdTwice)
{
    std::set<std::string> ids;
    for (int i = 0; i < 4; ++i)
        ListKeys(kvc.get());
    for (const auto& request : sim.Journal()) {
        ExpectLinesAndId(request, {"Content-Type: application/json; charset=utf-8", "Accept: application/json",
                                   "return-client-request-id: true",
                                   "Authorization: " + TextOf(kvc->tokenType) + " " + TextOf(kvc->accessToken)});
        EXPECT_TRUE(ids.insert(HeaderOf(request, "client-request-id")).second);
        EXPECT_EQ("contoso-keys.vault.azure.net", request["host"]);
    }
}

TEST_F(RestCall, EachStepIsTold)
{
    KVCDoKVRESTCall(kvc.get(), nullptr, 0, TEXT("none/1"), TEXT("POST"), TEXT("sign"), "{}", nullptr);
    EXPECT_EQ(
        (Strings{"KVCDoKVRESTCall 10", "KVCDoKVRESTCall API Version 2016-10-01 10", "KVCDoKVRESTCall Keyname none/1 10",
                 "KVCDoKVRESTCall actionverb sign 10", "KVCDoKVRESTCall host contoso-keys.vault.azure.net 10",
                 "KVCDoKVRESTCall url /keys/none/1/sign?api-version=2016-10-01 10", "KVCDoWebCall 8",
                 "KVCDoKVRESTCall Failed - JSON Error 0x0 10"}),
        root.LogLines());
    root.ClearLog();
    EXPECT_EQ(1, ListKeys(kvc.get()));
    EXPECT_EQ("KVCDoKVRESTCall Good - JSON 10", root.LogLines().back());
}

TEST_F(RestCall, StatusAndEntityStayWithTheCall)
{
    const struct {
        DWORD status;
        const char* body;
        int result;
    } rows[] = {
        {200, "{}", 1}, {201, "{}", 1}, {202, "{}", 1}, {204, "", 1},  {203, "{}", 0},
        {206, "x", 0},  {400, "x", 0},  {404, "x", 0},  {429, "x", 0}, {503, "", 0},
    };
    for (const auto& row : rows) {
        sim.Fault({{"path", "/keys"}, {"action", "status"}, {"status", row.status}, {"body", row.body}});
        EXPECT_EQ(row.result, ListKeys(kvc.get())) << row.status;
        EXPECT_EQ(row.status, kvc->lastStatus);
        EXPECT_STREQ(row.body, kvc->lastBody);
    }
}

TEST_F(RestCall, ATransportFailureLeavesNoEntityOfTheCallBefore)
{
    ASSERT_EQ(1, ListKeys(kvc.get()));
    ASSERT_NE(nullptr, kvc->lastBody);
    sim.Control("PUT", "/listener", {{"name", "tls"}, {"mode", "down"}});
    EXPECT_EQ(0, ListKeys(kvc.get()));
    EXPECT_EQ(0u, kvc->lastStatus);
    EXPECT_EQ(nullptr, kvc->lastBody);
    EXPECT_TRUE(root.Logged("KVCDoKVRESTCall Failed - JSON Error 0x2efd", 10));
}

TEST_F(RestCall, WithoutATokenNothingGoesOut)
{
    ASSERT_EQ(1, ListKeys(kvc.get()));
    sim.ClearJournal();

    EXPECT_EQ(0, ListKeys(static_cast<KVC*>(nullptr)));
    BldStr empty = {};
    for (BldStr** str : {&kvc->tokenType, &kvc->accessToken}) {
        for (BldStr* without : {static_cast<BldStr*>(nullptr), &empty}) {
            BldStr* const kept = *str;
            *str = without;
            EXPECT_EQ(0, ListKeys(kvc.get()));
            *str = kept;
        }
    }
    EXPECT_EQ(5u, LinesWith("KVCDoKVRESTCall Failed - kvc, kvc->tokenType or kvc->accessToken or "
                            "kvc->tokenType->cStr or kvc->accessToken->cStr NULL Error 0x57 10"));
    EXPECT_EQ(200u, kvc->lastStatus) << "what the call before left stays";
    EXPECT_NE(nullptr, kvc->lastBody);
    EXPECT_EQ(0u, sim.Journal().size());
}

TEST_F(RestCall, WithoutMemoryTheCallFailsAndTheNextSucceeds)
{
    SetLogging(0);
    SweepAllocations([&] { ListKeys(kvc.get()); }, [&](bool) { EXPECT_EQ(1, ListKeys(kvc.get())); });
}

}  // namespace

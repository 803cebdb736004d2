// One vault operation as one exchange, and the throttle rule.
#include <set>

#include "keyvault/throttle.h"
#include "tests/common/alloc_fault.h"
#include "tests/keyvault/client_fixture.h"

namespace {

class RestCall : public ClientTest {
  protected:
    void SetUp() override
    {
        ClientTest::SetUp();
        kvc = NewClient();
        ASSERT_EQ(1, KVCAuthenticate(kvc.get()));
        sim.ClearJournal();
        root.ClearLog();
    }
    ClientPtr kvc;
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
        EXPECT_EQ(std::vector<std::string>{row.request}, sim.VaultRequests()) << row.story;
        EXPECT_EQ(row.body ? row.body : "", sim.Journal()[0]["body"]) << row.story;
    }
}

TEST_F(RestCall, FiveHeaderLinesGoOutWithEachRequestAndNoIdTwice)
{
    std::set<std::string> ids;
    for (int i = 0; i < 4; ++i)
        ListKeys(kvc.get());
    for (const auto& request : sim.Journal()) {
        const std::vector<std::string> lines = CallerLines(request);
        ASSERT_EQ(5u, lines.size());
        EXPECT_EQ("Content-Type: application/json; charset=utf-8", lines[0]);
        EXPECT_EQ("Accept: application/json", lines[1]);
        EXPECT_EQ("return-client-request-id: true", lines[2]);
        EXPECT_EQ("Authorization: " + TextOf(kvc->tokenType) + " " + TextOf(kvc->accessToken), lines[3]);
        EXPECT_EQ(0u, lines[4].find("client-request-id: "));
        EXPECT_TRUE(IsUuid(HeaderOf(request, "client-request-id"))) << lines[4];
        EXPECT_TRUE(ids.insert(lines[4]).second) << lines[4];
        EXPECT_EQ("contoso-keys.vault.azure.net", request["host"]);
    }
}

TEST_F(RestCall, EachStepIsTold)
{
    KVCDoKVRESTCall(kvc.get(), nullptr, 0, TEXT("none/1"), TEXT("POST"), TEXT("sign"), "{}", nullptr);
    EXPECT_EQ((std::vector<std::string>{"KVCDoKVRESTCall 10", "KVCDoKVRESTCall API Version 2016-10-01 10",
                                        "KVCDoKVRESTCall Keyname none/1 10", "KVCDoKVRESTCall actionverb sign 10",
                                        "KVCDoKVRESTCall host contoso-keys.vault.azure.net 10",
                                        "KVCDoKVRESTCall url /keys/none/1/sign?api-version=2016-10-01 10",
                                        "KVCDoWebCall 8", "KVCDoKVRESTCall Failed - JSON Error 0x0 10"}),
              root.LogLines());
    root.ClearLog();
    EXPECT_EQ(1, ListKeys(kvc.get()));
    EXPECT_EQ("KVCDoKVRESTCall Good - JSON 10", root.LogLines().back());
}

TEST_F(RestCall, StatusAndEntityStayWithTheClient)
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
    const std::string line =
        "KVCDoKVRESTCall Failed - kvc, kvc->tokenType or kvc->accessToken or kvc->tokenType->cStr or "
        "kvc->accessToken->cStr NULL Error 0x57";
    ASSERT_EQ(1, ListKeys(kvc.get()));
    const std::string body = kvc->lastBody;
    sim.ClearJournal();

    EXPECT_EQ(0, KVCDoKVRESTCall(nullptr, nullptr, 0, nullptr, TEXT("GET"), nullptr, nullptr, nullptr));
    BldStr* type = kvc->tokenType;
    kvc->tokenType = nullptr;
    EXPECT_EQ(0, ListKeys(kvc.get()));
    kvc->tokenType = type;
    BldStr* token = kvc->accessToken;
    kvc->accessToken = nullptr;
    EXPECT_EQ(0, ListKeys(kvc.get()));
    BldStr empty = {};
    kvc->accessToken = &empty;
    EXPECT_EQ(0, ListKeys(kvc.get()));
    kvc->accessToken = token;

    EXPECT_EQ(4u, LinesWith(line));
    EXPECT_TRUE(root.Logged(line, 10));
    EXPECT_EQ(200u, kvc->lastStatus);
    EXPECT_EQ(body, kvc->lastBody);
    EXPECT_EQ(0u, sim.Journal().size());
}

TEST_F(RestCall, WithoutMemoryTheCallFailsAndTheNextSucceeds)
{
    SetLogging(0);
    for (size_t failAt = 0; failAt < 100; ++failAt) {
        size_t seen = 0;
        {
            const AllocFault fault(failAt);
            ListKeys(kvc.get());
            seen = fault.Seen();
        }
        EXPECT_EQ(1, ListKeys(kvc.get())) << failAt;
        if (seen <= failAt)
            return;
    }
    FAIL() << "the call never came through";
}

TEST_F(RestCall, TheThrottleRuleWaitsHalfAMinuteInFiveSteps)
{
    Throttle throttle;
    int calls = 1;
    while (throttle.WaitAndRetry(TEXT("KVCGetKeys ActionThrottled"), 429))
        ++calls;
    EXPECT_EQ(5, calls);
    EXPECT_EQ((std::vector<DWORD>{1000, 2000, 4000, 8000, 16000}), clock.Waits());
    EXPECT_EQ(std::vector<std::string>(5, "KVCGetKeys ActionThrottled Error 0x1ad 2"), root.LogLines());
}

}  // namespace

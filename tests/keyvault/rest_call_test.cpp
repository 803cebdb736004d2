// One vault operation as one exchange.
#include "tests/keyvault/client_fixture.h"

namespace {

using nlohmann::json;

using RestCall = VaultTest;

TEST_F(RestCall, UrlsAreMadeOfTheirParts)
{
    const struct {
        const char* name;
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
        {"a certificate", nullptr, 1, TEXT("web"), TEXT("GET"), nullptr, nullptr, nullptr,
         "GET /certificates/web?api-version=2016-10-01"},
        {"an operation on a version", nullptr, 0, TEXT("web/0123"), TEXT("POST"), TEXT("sign"), "{}", kApiVersionWrite,
         "POST /keys/web/0123/sign?api-version=7.0"},
        {"an action of two elements", nullptr, 7, TEXT("web"), TEXT("POST"), TEXT("pending/merge"), "{}",
         kApiVersionWrite, "POST /certificates/web/pending/merge?api-version=7.0"},
        {"a whole path", TEXT("/keys?api-version=2016-10-01&$skiptoken=a%2Fb"), 1, TEXT("web"), TEXT("GET"),
         TEXT("sign"), nullptr, kApiVersionWrite, "GET /keys?api-version=2016-10-01&$skiptoken=a%2Fb"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        sim.ClearJournal();
        KVCDoKVRESTCall(call.get(), row.rawURL, row.useCertificates, row.keyName, row.verb, row.actionverb, row.body,
                        row.apiVersion);
        EXPECT_EQ(Strings{row.request}, sim.VaultRequests());
        EXPECT_EQ(row.body ? row.body : "", sim.Journal()[0]["body"]);
    }
}

TEST_F(RestCall, FiveHeaderLinesGoOutWithEachRequestAndNoIdTwice)
{
    std::set<std::string> ids;
    for (int i = 0; i < 4; ++i)
        ListKeys(call.get());
    for (const json& request : sim.Journal()) {
        ExpectLinesAndId(request, {"Content-Type: application/json; charset=utf-8", "Accept: application/json",
                                   "return-client-request-id: true",
                                   "Authorization: " + TextOf(call->tokenType) + " " + TextOf(call->accessToken)});
        EXPECT_TRUE(ids.insert(HeaderOf(request, "client-request-id")).second);
        EXPECT_EQ("contoso-keys.vault.azure.net", request["host"]);
    }
}

TEST_F(RestCall, StatusAndBodyStayWithTheCall)
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
        Answer("/keys", static_cast<int>(row.status), row.body);
        EXPECT_EQ(row.result, ListKeys(call.get())) << row.status;
        EXPECT_EQ(row.status, call->lastStatus);
        EXPECT_STREQ(row.body, call->lastBody);
    }
    // Without a token nothing is sent, and what the call before left stays.
    sim.ClearJournal();
    EXPECT_EQ(0, ListKeys(static_cast<KVC*>(nullptr)));
    BldStr empty = {};
    for (BldStr** str : {&call->tokenType, &call->accessToken}) {
        for (BldStr* without : {static_cast<BldStr*>(nullptr), &empty}) {
            BldStr* const kept = *str;
            *str = without;
            EXPECT_EQ(0, ListKeys(call.get()));
            *str = kept;
        }
    }
    EXPECT_EQ(503u, call->lastStatus);
    EXPECT_NE(nullptr, call->lastBody);
    EXPECT_TRUE(sim.Journal().empty());
    // A failure of the transport leaves nothing.
    SetNetwork(false);
    EXPECT_EQ(0, ListKeys(call.get()));
    EXPECT_EQ(0u, call->lastStatus);
    EXPECT_EQ(nullptr, call->lastBody);
    EXPECT_TRUE(root.Logged("KVCDoKVRESTCall Failed - JSON Error 0x2efd", 10));
}

}  // namespace

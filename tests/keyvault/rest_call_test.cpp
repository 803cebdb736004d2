// One vault operation as one exchange.
#include "tests/keyvault/client_fixture.h"

namespace {

using nlohmann::json;

using RestCall = VaultTest;

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
        EXPECT_EQ("/keys?api-version=2016-10-01", request["target"]);
        EXPECT_EQ("", HeaderOf(request, "Content-Length"));
    }
}

TEST_F(RestCall, StatusAndBodyStayWithTheCall)
{
    const Row<DWORD, const char*, int> rows[] = {
        {200, "{}", 1}, {201, "{}", 1}, {202, "{}", 1}, {204, "", 1},  {203, "{}", 0},
        {206, "x", 0},  {400, "x", 0},  {404, "x", 0},  {429, "x", 0}, {503, "", 0},
    };
    for (const auto& [status, body, result] : rows) {
        Answer("/keys", static_cast<int>(status), body);
        EXPECT_EQ(result, ListKeys(call.get())) << status;
        EXPECT_EQ(status, call->lastStatus);
        EXPECT_STREQ(body, call->lastBody);
    }
    EXPECT_EQ(std::size(rows), sim.Journal().size()) << "whatever the service says is an answer";
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

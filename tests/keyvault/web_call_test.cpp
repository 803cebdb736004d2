// One HTTP exchange, and one vault operation as one exchange.
#include "tests/keyvault/client_fixture.h"

namespace {

constexpr size_t kMiB = 1024 * 1024;

KVCResponsePtr Get(const WCHAR* host = TEXT("contoso-keys.vault.azure.net"))
{
    return KVCResponsePtr(
        KVCDoWebCall(443, host, TEXT("/keys"), TEXT("GET"), TEXT("Accept: application/json\r\n"), nullptr));
}

using WebCall = ClientTest;

TEST_F(WebCall, TheRequestIsSentAsGivenAndTheAnswerIsReturnedWhole)
{
    sim.Fault({{"path", "/keys/a/sign"},
               {"action", "status"},
               {"status", 418},
               {"headers", {"X-Answer: yes"}},
               {"body", "tea"}});
    const KVCResponsePtr response(KVCDoWebCall(443, TEXT("contoso-keys.vault.azure.net"), TEXT("/keys/a/sign?v=1"),
                                               TEXT("POST"), TEXT("X-First: 1\r\nX-Last: 3\r\n\r\n"), "{\"a\": 1}"));
    ASSERT_TRUE(response);
    EXPECT_EQ(418u, response->status);
    EXPECT_EQ(0u, response->error);
    EXPECT_STREQ("tea", response->body);
    const std::string head = TextOf(response->headers);
    EXPECT_EQ(0u, head.find("HTTP/1.1 418 "));
    EXPECT_NE(std::string::npos, head.find("\r\nX-Answer: yes\r\n"));

    const json request = sim.Journal().at(0);
    EXPECT_EQ("POST", request["method"]);
    EXPECT_EQ("contoso-keys.vault.azure.net", request["host"]);
    EXPECT_EQ("/keys/a/sign?v=1", request["target"]);
    EXPECT_EQ((Strings{"X-First: 1", "X-Last: 3"}), CallerLines(request));
    EXPECT_EQ("Zandrel Key Storage Provider for Key Vault", HeaderOf(request, "User-Agent"));
    EXPECT_EQ("{\"a\": 1}", request["body"]);
    EXPECT_EQ(Strings{"KVCDoWebCall 8"}, root.LogLines()) << "neither URL nor headers";
}

class WebCallFailure : public WebCall {
  protected:
    // control: makes the transport fail. waits: after each of ten attempts. requests: those that reach a server.
    void ExpectTenAttempts(const char* control, const json& body, DWORD error, const Waits& waits, size_t requests)
    {
        SCOPED_TRACE(body);
        Fresh();
        sim.Control(control == std::string("/faults") ? "POST" : "PUT", control, body);
        const KVCResponsePtr response = Get();
        ASSERT_TRUE(response);
        EXPECT_EQ(0u, response->status);
        EXPECT_EQ(error, response->error);
        EXPECT_TRUE(!response->body && !response->headers);
        Waits all;
        for (int attempt = 0; attempt < 10; ++attempt)
            all.insert(all.end(), waits.begin(), waits.end());
        EXPECT_EQ(all, clock.Waits());
        EXPECT_EQ(requests, sim.Journal().size());
        EXPECT_EQ(1u, LinesWith("KVCDoWebCall failure Error 0x"));
    }
};

TEST_F(WebCallFailure, AServerThatIsDownIsTriedTenTimes)
{
    ExpectTenAttempts("/listener", {{"name", "tls"}, {"mode", "down"}}, 12029, {20000, 200}, 0);
}

TEST_F(WebCallFailure, OtherFailuresOfTheTransportAreRepeatedTenTimes)
{
    json fault = {{"path", "/keys"}, {"action", "reset-before"}, {"times", -1}};
    ExpectTenAttempts("/faults", fault, 12030, {200}, 10);
    fault.update({{"action", "truncate"}, {"inHead", true}, {"afterBytes", 12}});
    ExpectTenAttempts("/faults", fault, 12030, {200}, 10);
    ExpectTenAttempts("/certificate", {{"mode", "wrong-host"}}, 12175, {200}, 0);
    ExpectTenAttempts("/certificate", {{"mode", "unknown-root"}}, 12175, {200}, 0);
}

TEST_F(WebCall, ASuccessfulAttemptClearsEarlierFailures)
{
    sim.Fault({{"path", "/keys"}, {"action", "reset-before"}, {"times", 3}});
    Answer("/keys", 200, "fine");
    const KVCResponsePtr response = Get();
    ASSERT_TRUE(response);
    EXPECT_EQ(200u, response->status);
    EXPECT_EQ(0u, response->error);
    EXPECT_STREQ("fine", response->body);
    EXPECT_EQ(Waits(3, 200), clock.Waits());
    EXPECT_EQ(0u, LinesWith("KVCDoWebCall failure"));
}

TEST_F(WebCall, AnInvalidHostNameIsNotRetried)
{
    const KVCResponsePtr response = Get(TEXT("no such host/"));
    ASSERT_TRUE(response);
    EXPECT_EQ(0u, response->status);
    EXPECT_NE(0u, response->error);
    EXPECT_TRUE(clock.Waits().empty());
    EXPECT_EQ(1u, LinesWith("KVCDoWebCall failure Error"));
}

TEST_F(WebCall, ABodyCutShortKeepsStatusHeadAndWhatArrived)
{
    for (const char* action : {"truncate", "reset-inside"}) {
        SCOPED_TRACE(action);
        sim.ClearJournal();
        sim.Fault({{"path", "/keys"}, {"action", action}, {"afterBytes", 9}, {"body", "0123456789abcdef"}});
        const KVCResponsePtr response = Get();
        ASSERT_TRUE(response && response->body);
        EXPECT_EQ(401u, response->status);
        EXPECT_EQ(12030u, response->error);
        // A reset may lose data that was sent before.
        EXPECT_EQ(0u, std::string("012345678").find(response->body)) << response->body;
        EXPECT_TRUE(action == std::string("reset-inside") || response->body == std::string("012345678"));
        EXPECT_NE(nullptr, response->headers);
        EXPECT_EQ(1u, sim.Journal().size()) << "an answer that began isn't requested again";
    }
    EXPECT_EQ(0u, LinesWith("KVCDoWebCall failure"));
    EXPECT_TRUE(clock.Waits().empty());
}

TEST_F(WebCall, AnAnswerEndsAfterTwoMinutesOrSixteenMiB)
{
    const json whole = {{"action", "status"}, {"status", 200}};
    const json drip = {{"action", "drip"}, {"afterBytes", 1}, {"delayMs", 1}};
    const Row<const char*, DWORD, json, size_t, DWORD> rows[] = {
        {"slow", 50, whole, 2 * kMiB, 0},
        {"in pieces", 0, drip, 50, 0},
        {"too slow", 1000, whole, 2 * kMiB, ERROR_WINHTTP_TIMEOUT},
        {"byte by byte", 30000, drip, 50, ERROR_WINHTTP_TIMEOUT},
        {"late and short", 120000, whole, 3, ERROR_WINHTTP_TIMEOUT},
        {"too large", 0, whole, 16 * kMiB + 1, ERROR_FILE_TOO_LARGE},
    };
    for (const auto& [name, msPerPiece, action, size, error] : rows) {
        SCOPED_TRACE(name);
        sim.ClearJournal();
        json fault = action;
        fault["path"] = "/keys";
        fault["body"] = std::string(size, 'b');
        sim.Fault(fault);
        clock.StepTicks(msPerPiece);
        const KVCResponsePtr response = Get();
        ASSERT_TRUE(response && response->body);
        EXPECT_NE(0u, response->status) << "what came before the end is kept";
        EXPECT_NE(nullptr, response->headers);
        EXPECT_EQ(error, response->error);
        const size_t received = strlen(response->body);
        EXPECT_EQ(error == 0, response->body == std::string(size, 'b')) << received;
        EXPECT_TRUE(error != ERROR_FILE_TOO_LARGE || received > 15 * kMiB) << received;
        EXPECT_EQ(1u, sim.Journal().size()) << "an answer isn't requested again";
    }
    EXPECT_TRUE(clock.Waits().empty());
}

// Whichever allocation fails: no record, or a truthful one.
TEST_F(WebCall, WithoutMemoryTheRecordSaysWhatIsMissing)
{
    SetLogging(0);
    bool sawNoRecord = false, sawNoBody = false, sawNoHead = false;
    const std::string body(20000, 'b');
    Answer("/keys", 200, body, -1);
    KVCResponsePtr response;
    SweepAllocations([&] { response = Get(); },
                     [&](bool) {
                         sawNoRecord |= !response;
                         if (!response)
                             return;
                         EXPECT_EQ(200u, response->status);
                         sawNoBody |= !response->body;
                         sawNoHead |= !response->headers;
                         EXPECT_TRUE(response->body ? body == response->body : response->error != 0);
                     });
    EXPECT_TRUE(sawNoRecord && sawNoBody && sawNoHead);
}

using RestCall = VaultTest;

TEST_F(RestCall, EachRequestHasFiveHeaderLinesAndANewId)
{
    std::set<std::string> ids;
    for (int i = 0; i < 4; ++i)
        ListKeys(call.get());
    for (const json& request : sim.Journal()) {
        ExpectLinesAndId(request, {"Content-Type: application/json; charset=utf-8", "Accept: application/json",
                                   "return-client-request-id: true",
                                   "Authorization: " + TextOf(call->tokenType) + " " + TextOf(call->accessToken)});
        EXPECT_TRUE(ids.insert(HeaderOf(request, "client-request-id")).second);
        EXPECT_EQ("/keys?api-version=2016-10-01", request["target"]);
        EXPECT_EQ("", HeaderOf(request, "Content-Length"));
    }
}

TEST_F(RestCall, TheCallKeepsStatusAndBody)
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
    EXPECT_EQ(std::size(rows), sim.Journal().size()) << "no answer is retried here";
    // Without a token nothing is sent, and the last answer stays.
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
    // A failure of the transport clears it.
    SetNetwork(false);
    EXPECT_EQ(0, ListKeys(call.get()));
    EXPECT_EQ(0u, call->lastStatus);
    EXPECT_EQ(nullptr, call->lastBody);
}

}  // namespace

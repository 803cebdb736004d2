// One HTTP exchange: what goes out, what comes back, what is tried again, and where an answer ends.
#include "tests/keyvault/client_fixture.h"

namespace {

using nlohmann::json;

constexpr size_t kMiB = 1024 * 1024;

KVCResponsePtr Get(const WCHAR* host = TEXT("contoso-keys.vault.azure.net"))
{
    return KVCResponsePtr(
        KVCDoWebCall(443, host, TEXT("/keys"), TEXT("GET"), TEXT("Accept: application/json\r\n"), nullptr));
}

using WebCall = ClientTest;

TEST_F(WebCall, RequestGoesOutAsGivenAndTheAnswerComesBackWhole)
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

    const auto journal = sim.Journal();
    ASSERT_EQ(1u, journal.size());
    EXPECT_EQ("POST", journal[0]["method"]);
    EXPECT_EQ("contoso-keys.vault.azure.net", journal[0]["host"]);
    EXPECT_EQ("/keys/a/sign?v=1", journal[0]["target"]);
    EXPECT_EQ((Strings{"X-First: 1", "X-Last: 3"}), CallerLines(journal[0]));
    EXPECT_EQ("Zandrel Key Storage Provider for Key Vault", HeaderOf(journal[0], "User-Agent"));
    EXPECT_EQ("{\"a\": 1}", journal[0]["body"]);
    EXPECT_EQ(Strings{"KVCDoWebCall 8"}, root.LogLines()) << "neither URL nor headers";
}

// A failure of the transport on every attempt.
struct FailureRow {
    const char *name, *method, *control;
    json body;
    DWORD error;
    Waits waits;  // after each attempt
    size_t requests;
};

class WebCallFailure : public WebCall {
  protected:
    void ExpectTenAttempts(const FailureRow& row)
    {
        SCOPED_TRACE(row.name);
        Fresh();
        sim.Control(row.method, row.control, row.body);
        const KVCResponsePtr response = Get();
        ASSERT_TRUE(response);
        EXPECT_EQ(0u, response->status);
        EXPECT_EQ(row.error, response->error);
        EXPECT_TRUE(!response->body && !response->headers);
        Waits waits;
        for (int attempt = 0; attempt < 10; ++attempt)
            waits.insert(waits.end(), row.waits.begin(), row.waits.end());
        EXPECT_EQ(waits, clock.Waits());
        EXPECT_EQ(row.requests, sim.Journal().size()) << "nothing may reach a server that isn't trusted";
        EXPECT_EQ(11u, LinesWith(" Error 0x"));
        EXPECT_EQ(1u, LinesWith("KVCDoWebCall failure Error 0x"));
    }
};

TEST_F(WebCallFailure, AServerThatIsDownIsTriedTenTimes)
{
    ExpectTenAttempts({"", "PUT", "/listener", {{"name", "tls"}, {"mode", "down"}}, 12029, {20000, 200}, 0});
}

TEST_F(WebCallFailure, OtherFailuresOfTheTransportAreRepeatedTenTimes)
{
    const json closed = {{"path", "/keys"}, {"action", "reset-before"}, {"times", -1}};
    const json cut = {{"path", "/keys"}, {"action", "truncate"}, {"inHead", true}, {"afterBytes", 12}, {"times", -1}};
    const FailureRow rows[] = {
        {"closed before an answer", "POST", "/faults", closed, 12030, {200}, 10},
        {"closed inside the head", "POST", "/faults", cut, 12030, {200}, 10},
        {"another host's certificate", "PUT", "/certificate", {{"mode", "wrong-host"}}, 12175, {200}, 0},
        {"an unknown root", "PUT", "/certificate", {{"mode", "unknown-root"}}, 12175, {200}, 0},
    };
    for (const FailureRow& row : rows)
        ExpectTenAttempts(row);
}

TEST_F(WebCall, AnAttemptThatSucceedsForgetsTheFailuresBefore)
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

TEST_F(WebCall, AConnectionThatCannotBeMadeUpIsNotRepeated)
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
        // A reset may throw away what was on its way; an orderly end doesn't.
        EXPECT_EQ(0u, std::string("012345678").find(response->body)) << response->body;
        EXPECT_TRUE(action == std::string("reset-inside") || response->body == std::string("012345678"));
        EXPECT_NE(nullptr, response->headers);
        EXPECT_EQ(1u, sim.Journal().size()) << "a response was received: no further attempt";
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
        EXPECT_NE(0u, response->status) << "what came before the end counts";
        EXPECT_NE(nullptr, response->headers);
        EXPECT_EQ(error, response->error);
        const size_t received = strlen(response->body);
        EXPECT_EQ(error == 0, response->body == std::string(size, 'b')) << received;
        EXPECT_TRUE(error != ERROR_FILE_TOO_LARGE || received > 15 * kMiB) << received;
        EXPECT_EQ(1u, sim.Journal().size()) << "an answer isn't asked for again";
    }
    EXPECT_TRUE(clock.Waits().empty());
}

// Whichever allocation fails: no record, or a record that tells the truth.
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

}  // namespace
